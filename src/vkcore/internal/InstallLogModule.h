#pragma once

#include <QtCore/QLatin1String>
#include <QtCore/QString>

// The seam between libvkcore and the module that reads the install log with SQLite.
namespace tarn::vkcore {

class Application;
class Installer;

inline constexpr QLatin1String sInstallLogName("install-log.db");

// Opens the log at pPath; null, with the reason in *pReason, if that fails. The caller owns the result.
using OpenInstallLog = Installer*(Application* pApp, const QString& pPath, QString* pReason);

// The function's name in the module.
inline constexpr auto sOpenInstallLogName = "vkcoreOpenInstallLog";

} // namespace tarn::vkcore

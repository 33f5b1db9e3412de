#pragma once

#include <vkcore/LangString.h>

#include <QtCore/QDateTime>
#include <QtCore/QString>

namespace tarn::vkcore {

// The entry of one package in the install log of a run. A child is a package that was only installed as a
// requirement of another one.
struct LogRecord
{
    QString mPackage; // the package's technical name
    QString mParent;  // that of the package that required it; null at the top level
    QString mVersion; // Version::toString
    QString mStatus;  // "ok", "child_packages_updated", "warning", "error"
    QDateTime mVersionDate;
    LangString mTitle;
    LangString mReport;
};

} // namespace tarn::vkcore

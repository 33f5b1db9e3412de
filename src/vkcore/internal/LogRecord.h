#pragma once

#include <vkcore/LangString.h>

#include <QtCore/QDateTime>
#include <QtCore/QString>

namespace tarn::vkcore {

// What the install log says of one package of a run. A child is a package that only came along with another
// one.
struct LogRecord
{
    QString mPackage; // the package's technical name
    QString mParent;  // that of the package it came along with; null for one of the top level
    QString mVersion; // Version::toString
    QString mStatus;  // "ok", "child_packages_updated", "warning", "error"
    QDateTime mVersionDate;
    LangString mTitle;
    LangString mReport;
};

} // namespace tarn::vkcore

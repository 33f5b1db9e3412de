#pragma once

#include <vkcore/Export.h>
#include <vkcore/GRef.h>
#include <vkcore/LangString.h>
#include <vkcore/Version.h>

#include <QtCore/QDateTime>
#include <QtCore/QString>

namespace tarn::vkcore {

// One package in the log of installed updates.
class VKCORE_EXPORT InstLogEntry : public CountedObject
{
public:
    LangString mName;
    Version mVersion;
    QDateTime mVersionDate; // date of this version; invalid if the package has none
    QDateTime mDate;        // date of the entry, local time
    QString mStatus;        // "ok", "child_packages_updated", "warning", "error"
    LangString mInstallReport;

protected:
    ~InstLogEntry() override;
};

} // namespace tarn::vkcore

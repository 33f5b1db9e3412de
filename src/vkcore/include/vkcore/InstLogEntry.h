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
    QDateTime mVersionDate; // when this version was made; invalid where the package does not say
    QDateTime mDate;        // when the entry was made, local time
    QString mStatus;        // "ok", "child_packages_updated", "warning", "error"
    LangString mInstallReport;

protected:
    ~InstLogEntry() override;
};

} // namespace tarn::vkcore

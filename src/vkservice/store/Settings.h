#pragma once

#include "internal/Values.h"
#include "values/RunRecord.h"
#include "values/ScheduleSettings.h"

#include <QtCore/QHash>
#include <QtCore/QString>

#include <optional>

namespace tarn::vkcore {
class Database;
}

namespace tarn::vkservice::store {

using vkcore::protocol::ProxySettings;

// The settings of which there is one each. A getter gives none if the database can't be read, and what a
// fresh machine has where nothing was stored; a setter is one transaction, durable when it returns true.
class Settings
{
public:
    explicit Settings(vkcore::Database& pDatabase) : mDatabase(pDatabase) {}

    // The password is in it; it is for the service's own use.
    std::optional<ProxySettings> proxy() const;
    // Keeps the stored password where pProxy has not changed it and has the same host and port: a password is
    // only ever sent to the proxy that it was given for.
    bool setProxy(const ProxySettings& pProxy);

    std::optional<QString> dataDirectory() const;
    bool setDataDirectory(const QString& pPath);

    // Null where none was chosen.
    std::optional<QString> appLanguage() const;
    std::optional<QString> dataLanguage() const;
    // A null text leaves that language as it is.
    bool setLanguages(const QString& pApp, const QString& pData);

    std::optional<ScheduleSettings> schedule() const;
    bool setSchedule(const ScheduleSettings& pSchedule);

    std::optional<vkcore::MonitoringSettings> monitoring() const;
    bool setMonitoring(const vkcore::MonitoringSettings& pSettings);

    std::optional<RunRecord> lastRun() const;
    bool setLastRun(const RunRecord& pRecord);
    // When a run began that has not ended yet, as text of QDateTime; setLastRun ends it. A run that
    // the service did not survive is found by this mark.
    std::optional<QString> unfinishedRun() const;
    bool beginRun(const QString& pDate);

private:
    using Values = QHash<QString, QString>;

    std::optional<QString> value(const QString& pName) const;
    std::optional<Values> values(const QString& pPrefix) const;
    bool set(const Values& pValues);

    vkcore::Database& mDatabase;
};

} // namespace tarn::vkservice::store

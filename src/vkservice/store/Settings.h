#pragma once

#include "internal/PackageValues.h"
#include "internal/Values.h"
#include "store/RunCounters.h"
#include "values/RunRecord.h"
#include "values/ScheduleSettings.h"
#include "values/Waiting.h"

#include <QtCore/QHash>
#include <QtCore/QList>
#include <QtCore/QString>

#include <optional>

namespace tarn::vkcore {
class Database;
}

namespace tarn::vkservice::store {

using vkcore::protocol::LeftOutPackage;
using vkcore::protocol::ProxySettings;

// The settings that exist once each. A getter returns no value if the database cannot be read, and the
// initial value if nothing was stored. A setter is one transaction, durable when it returns true.
class Settings
{
public:
    explicit Settings(vkcore::Database& pDatabase) : mDatabase(pDatabase) {}

    // Contains the password; only for use inside the service.
    std::optional<ProxySettings> proxy() const;
    // Keeps the stored password if pProxy does not change it and has the same host and port: a password is
    // only ever sent to the proxy that it was set for.
    bool setProxy(const ProxySettings& pProxy);

    std::optional<QString> dataDirectory() const;
    bool setDataDirectory(const QString& pPath);

    // Null if none was chosen.
    std::optional<QString> appLanguage() const;
    std::optional<QString> dataLanguage() const;
    // A null text leaves that language unchanged.
    bool setLanguages(const QString& pApp, const QString& pData);

    // Empty: stable.
    std::optional<QString> channel() const;
    bool setChannel(const QString& pChannel);

    // What the last run that could ask a server left out.
    std::optional<QList<LeftOutPackage>> leftOut() const;
    bool setLeftOut(const QList<LeftOutPackage>& pPackages);

    // The security fixes that the last such run was offered, and that are not installed.
    std::optional<QList<vkcore::protocol::PackageVersion>> pendingFixes() const;
    bool setPendingFixes(const QList<vkcore::protocol::PackageVersion>& pFixes);

    std::optional<ScheduleSettings> schedule() const;
    bool setSchedule(const ScheduleSettings& pSchedule);

    std::optional<vkcore::MonitoringSettings> monitoring() const;
    bool setMonitoring(const vkcore::MonitoringSettings& pSettings);

    std::optional<Waiting> waiting() const;
    bool setWaiting(const Waiting& pWaiting);

    std::optional<RunRecord> lastRun() const;
    // Counts a run that has its own beginning, and keeps how it ended unless it had nothing to install.
    bool setLastRun(const RunRecord& pRecord, const RunTraffic& pTraffic = {});
    // How past runs ended, the oldest first. The newest sMostPastRuns are kept.
    std::optional<QList<RunRecord>> pastRuns() const;
    bool addPastRun(const RunRecord& pRecord);
    static constexpr int sMostPastRuns = 1000;
    std::optional<RunCounters> counters() const;
    // The start of a run that has not ended yet, as text of QDateTime; setLastRun clears it. This mark shows
    // that the service did not survive a run.
    std::optional<QString> unfinishedRun() const;
    bool beginRun(const QString& pDate);

private:
    using Values = QHash<QString, QString>;

    std::optional<QString> value(const QString& pName) const;
    std::optional<Values> values(const QString& pPrefix) const;
    bool set(const Values& pValues);
    bool forgetOldRuns();

    vkcore::Database& mDatabase;
};

} // namespace tarn::vkservice::store

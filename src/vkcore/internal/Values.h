#pragma once

#include "internal/Fields.h"

#include <vkcore/MonitoringSettings.h>
#include <vkcore/NetProxy.h>
#include <vkcore/Scheduler.h>
#include <vkcore/Types.h>

#include <QtCore/QDateTime>
#include <QtCore/QJsonValue>
#include <QtCore/QList>
#include <QtCore/QString>

#include <optional>

// The values on the service's socket, without those about packages (PackageValues.h): the parameters of
// requests and events, and the results that have members. docs/protocol.md explains them.
namespace tarn::vkcore::protocol {

struct Hello
{
    int mProtocol = 0;
    QString mClient;
    QString mVersion;
};

struct Greeting
{
    int mProtocol = 0;
    QString mService;
    QString mVersion;
    qint64 mPid = 0;
    bool mWorker = false;
};

// The progress of the current run.
struct Progress
{
    ServiceActivity mActivity = ActivityNone;
    bool mCancelable = false;
    QString mText;
    qint64 mBytesDone = 0;
    qint64 mBytesTotal = 0;
    qint64 mDone = 0; // of mTotal: the share of the activity to show
    qint64 mTotal = 0;
    int mPackage = 0; // counted from 1
    int mPackageCount = 0;
    int mFailedCount = 0;
};

struct ResultOf
{
    bool mThisSession = false; // or the last on record
};

struct Trigger
{
    bool mManual = false;
};

struct WithPassword
{
    bool mWithPassword = false;
};

struct DefaultServer
{
    QString mUri;
    QString mUser;
    QString mPassword; // null if it was not requested
};

struct ProxySettings
{
    NetProxyMode mMode = NetProxyModeOs;
    NetProxy mProxy{false, true};
};

struct DataDirectory
{
    QString mPath;
};

struct LanguageChoice
{
    QString mApp; // null leaves it unchanged
    QString mData;
};

struct VariableQuery
{
    QString mName;
    QString mDefault;
};

struct Variable
{
    QString mName;
    QString mValue;
};

// When the service updates by itself.
struct Schedule
{
    Scheduler::AutoUpdateMode mMode = Scheduler::AutoUpdateManual;
    int mFlags = 0;
    QDateTime mNextCheck; // local time
    int mPeriodCount = 1;
    Scheduler::PeriodUnit mUnit = Scheduler::PeriodDay;
    QString mExtra; // of other clients, only carried along

    bool operator==(const Schedule&) const = default;
};

struct ScheduleChange : Schedule
{
    bool mSave = false;
};

struct MonitoringChange
{
    MonitoringSettings mSettings;
};

// An entry of the list of update servers.
struct ServerEntry
{
    QString mName;
    QString mUri;
    QString mUser;
    // Only in requests; if it is not set, the stored one remains.
    std::optional<QString> mPassword = {};
    bool mEnabled = true;
    bool mDefault = false;
    bool mSavePassword = false;
};

struct ServerEntries
{
    QJsonValue mRevision = QJsonValue::Undefined; // opaque to clients
    QList<ServerEntry> mServers;
};

struct NewServer
{
    ServerEntry mServer;
};

struct ServerPosition
{
    int mIndex = 0;
    QJsonValue mRevision = QJsonValue::Undefined; // undefined: applies to the current list
};

struct ServerChange : ServerPosition
{
    ServerEntry mServer;
};

struct StatusChange
{
    ServiceStatus mStatus = StatusIdle;
};

struct ActivityChange
{
    ServiceActivity mActivity = ActivityNone;
};

// A notification or an error for people.
struct Message
{
    int mType = 0; // 0 error, 1 warning, 4 information
    QString mText;
    QString mDetails;
};

template <>
inline constexpr auto sFields<Hello> = std::tuple{
    Field{"protocol", &Hello::mProtocol},
    Field{"client", &Hello::mClient},
    Field{"version", &Hello::mVersion},
};

template <>
inline constexpr auto sFields<Greeting> = std::tuple{
    Field{"protocol", &Greeting::mProtocol}, Field{"service", &Greeting::mService},
    Field{"version", &Greeting::mVersion},   Field{"pid", &Greeting::mPid},
    Field{"worker", &Greeting::mWorker},
};

template <>
inline constexpr auto sFields<Progress> = std::tuple{
    Field{"activity", &Progress::mActivity},
    Field{"cancelable", &Progress::mCancelable},
    Field{"text", &Progress::mText},
    Field{"bytesDone", &Progress::mBytesDone},
    Field{"bytesTotal", &Progress::mBytesTotal},
    Field{"done", &Progress::mDone},
    Field{"total", &Progress::mTotal},
    Field{"package", &Progress::mPackage},
    Field{"packageCount", &Progress::mPackageCount},
    Field{"failedCount", &Progress::mFailedCount},
};

template <>
inline constexpr auto sFields<ResultOf> = std::tuple{Field{"thisSession", &ResultOf::mThisSession}};

template <>
inline constexpr auto sFields<Trigger> = std::tuple{Field{"manual", &Trigger::mManual}};

template <>
inline constexpr auto sFields<WithPassword> = std::tuple{Field{"withPassword", &WithPassword::mWithPassword}};

template <>
inline constexpr auto sFields<DefaultServer> = std::tuple{
    Field{"uri", &DefaultServer::mUri},
    Field{"user", &DefaultServer::mUser},
    Field{"password", &DefaultServer::mPassword},
};

template <>
inline constexpr auto sFields<NetProxy> = std::tuple{
    Field{"enabled", &NetProxy::mEnabled},
    Field{"configured", &NetProxy::mConfigured},
    Field{"host", &NetProxy::mHost},
    Property{"port", [](const NetProxy& pProxy) { return static_cast<quint16>(pProxy.mPort); },
             [](NetProxy& pProxy, quint16 pPort) { pProxy.mPort = pPort; }},
    Field{"user", &NetProxy::mUser},
    Field{"password", &NetProxy::mPassword},
    Field{"passwordChanged", &NetProxy::mPasswordChanged},
};

template <>
inline constexpr auto sFields<ProxySettings> =
    std::tuple{Field{"mode", &ProxySettings::mMode}, Field{"proxy", &ProxySettings::mProxy}};

template <>
inline constexpr auto sFields<DataDirectory> = std::tuple{Field{"path", &DataDirectory::mPath}};

template <>
inline constexpr auto sFields<LanguageChoice> =
    std::tuple{Field{"app", &LanguageChoice::mApp}, Field{"data", &LanguageChoice::mData}};

template <>
inline constexpr auto sFields<VariableQuery> =
    std::tuple{Field{"name", &VariableQuery::mName}, Field{"default", &VariableQuery::mDefault}};

template <>
inline constexpr auto sFields<Variable> =
    std::tuple{Field{"name", &Variable::mName}, Field{"value", &Variable::mValue}};

template <>
inline constexpr auto sFields<Schedule> = std::tuple{
    Field{"mode", &Schedule::mMode},           Field{"flags", &Schedule::mFlags},
    Field{"nextCheck", &Schedule::mNextCheck}, Field{"periodCount", &Schedule::mPeriodCount},
    Field{"unit", &Schedule::mUnit},           Field{"extra", &Schedule::mExtra},
};

template <>
inline constexpr auto sFields<ScheduleChange> =
    std::tuple_cat(sFields<Schedule>, std::tuple{Field{"save", &ScheduleChange::mSave}});

template <>
inline constexpr auto sFields<MonitoringEmail> = std::tuple{
    Field{"address", &MonitoringEmail::mAddress},
    Property{"verified", &MonitoringEmail::isVerified,
             [](MonitoringEmail& pTo, bool pVerified) { pTo = MonitoringEmail(pTo.mAddress, pVerified); }},
};

template <>
inline constexpr auto sFields<MonitoringSettings::ClientSettings> = std::tuple{
    Field{"text1", &MonitoringSettings::ClientSettings::mText1},
    Field{"text2", &MonitoringSettings::ClientSettings::mText2},
    Field{"text3", &MonitoringSettings::ClientSettings::mText3},
    Field{"text4", &MonitoringSettings::ClientSettings::mText4},
    Field{"date1", &MonitoringSettings::ClientSettings::mDate1},
    Field{"date2", &MonitoringSettings::ClientSettings::mDate2},
};

template <>
inline constexpr auto sFields<MonitoringSettings> = std::tuple{
    Property{"eventMailsEnabled", &MonitoringSettings::eventMailsEnabled,
             &MonitoringSettings::setEventMailsEnabled},
    Property{"eventMailOnUpdate", &MonitoringSettings::eventMailOnUpdate,
             &MonitoringSettings::setEventMailOnUpdate},
    Property{"eventMailOnOverdue", &MonitoringSettings::eventMailOnOverdue,
             &MonitoringSettings::setEventMailOnOverdue},
    Property{"eventMailOnManualIntervention", &MonitoringSettings::eventMailOnManualIntervention,
             &MonitoringSettings::setEventMailOnManualIntervention},
    Property{"summarizedMailsEnabled", &MonitoringSettings::summarizedMailsEnabled,
             &MonitoringSettings::setSummarizedMailsEnabled},
    Property{"summarizedMailsOnChangeOnly", &MonitoringSettings::summarizedMailsOnChangeOnly,
             &MonitoringSettings::setSummarizedMailsOnChangeOnly},
    Property{"summarizedMailPeriod", &MonitoringSettings::summarizedMailPeriod,
             &MonitoringSettings::setSummarizedMailPeriod},
    Property{"updateOverduePeriod", &MonitoringSettings::updateOverduePeriod,
             &MonitoringSettings::setUpdateOverduePeriod},
    Property{"clientName", &MonitoringSettings::clientName, &MonitoringSettings::setClientName},
    Property{"notificationEmailAddresses", &MonitoringSettings::notificationEmailAddresses,
             &MonitoringSettings::setNotificationEmailAddresses},
    Field{"lastSummary", &MonitoringSettings::mLastSummary},
    Field{"clientSettings", &MonitoringSettings::mClientSettings},
};

template <>
inline constexpr auto sFields<MonitoringChange> = std::tuple{Field{"settings", &MonitoringChange::mSettings}};

template <>
inline constexpr auto sFields<ServerEntry> = std::tuple{
    Field{"name", &ServerEntry::mName},
    Field{"uri", &ServerEntry::mUri},
    Field{"userName", &ServerEntry::mUser},
    Field{"password", &ServerEntry::mPassword},
    Field{"enabled", &ServerEntry::mEnabled},
    Field{"default", &ServerEntry::mDefault},
    Field{"savePassword", &ServerEntry::mSavePassword},
};

template <>
inline constexpr auto sFields<ServerEntries> =
    std::tuple{Field{"revision", &ServerEntries::mRevision}, Field{"servers", &ServerEntries::mServers}};

template <>
inline constexpr auto sFields<NewServer> = std::tuple{Field{"server", &NewServer::mServer}};

template <>
inline constexpr auto sFields<ServerPosition> =
    std::tuple{Field{"index", &ServerPosition::mIndex}, Field{"revision", &ServerPosition::mRevision}};

template <>
inline constexpr auto sFields<ServerChange> =
    std::tuple_cat(sFields<ServerPosition>, std::tuple{Field{"server", &ServerChange::mServer}});

template <>
inline constexpr auto sFields<StatusChange> = std::tuple{Field{"status", &StatusChange::mStatus}};

template <>
inline constexpr auto sFields<ActivityChange> = std::tuple{Field{"activity", &ActivityChange::mActivity}};

template <>
inline constexpr auto sFields<Message> = std::tuple{
    Field{"type", &Message::mType},
    Field{"text", &Message::mText},
    Field{"details", &Message::mDetails},
};

} // namespace tarn::vkcore::protocol

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

// All values on the service's socket: the parameters of requests and events, and the results that have
// members. docs/protocol.md explains them.
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

// What an operator wants to know first.
struct Overview
{
    ServiceStatus mStatus = StatusIdle;
    ServiceActivity mActivity = ActivityNone;
    QString mVersion; // of the service
    int mCode = 0;    // the result of the last run on record, as the last successful one below
    QString mText;
    QDateTime mEnded;
    QDateTime mLastSuccess;
    QDateTime mNextCheck;       // not set if none is scheduled by date
    QDateTime mMetadataExpires; // the first of the trusted files; not set if that is not known
};

struct HistoryQuery
{
    std::optional<int> mRuns; // how many, the newest
};

// A package in the install log.
struct HistoryPackage
{
    QString mName;
    QString mTitle;
    QString mVersion;
    QString mPrevious; // the version that this one replaced; null if there was none, or it is not known
    QString mStatus;   // "ok", "child_packages_updated", "warning", "error"
    QString mReport;
};

struct HistoryRun
{
    QDateTime mDate;
    std::optional<int> mCode; // the result, known for the last run on record only
    std::optional<QString> mText;
    QList<HistoryPackage> mPackages;
};

struct History
{
    QList<HistoryRun> mRuns; // newest first
};

// One thing that is wrong in an installed package.
struct DamageEntry
{
    QString mPath; // in the package, as one plain line for people
    QString mProblem;
    std::optional<QString> mExactPath; // where it is another text
};

struct PackageEntry
{
    QString mName;
    QString mVersion;
    QString mFolder;
    bool mIndexed = false;
    QString mState;     // "sound", "damaged", "unproven", "unchecked"
    QDateTime mChecked; // local time
    qint64 mFiles = 0;
    qint64 mBytes = 0;
    qint64 mDamageCount = 0;
    QList<DamageEntry> mDamage; // the first of them
    // Services before version 1.1 do not send these.
    std::optional<QString> mTitle = {};
    std::optional<QString> mLanguage = {}; // empty: for all languages
    std::optional<qint64> mSize = {};      // unpacked bytes, as published
    std::optional<QDateTime> mInstalled = {};
};

struct PackageEntries
{
    QList<PackageEntry> mPackages;
};

// The verification of the installed files.
struct VerificationState
{
    bool mRunning = false;
    bool mWaiting = false; // for the end of an update
    QString mPackage;
    qint64 mBytesDone = 0;
    qint64 mBytesTotal = 0;
    QDateTime mBegan; // of the last one
    QDateTime mEnded; // of the last complete one
    int mDamaged = 0; // packages
    int mUnproven = 0;
    QString mFailure; // why the last one did not come to its end
};

// A package that the last update left out although it was offered.
struct LeftOutPackage
{
    QString mName;
    QString mVersion;
    QString mReason;   // "held", "phase", "halted", "refused", "requirement"
    QString mRequired; // requirement: the package that is missing
    QDateTime mDate;   // local time; phase: of its turn; held: of the end of the hold

    bool operator==(const LeftOutPackage&) const = default;
};

struct LeftOutPackages
{
    QList<LeftOutPackage> mPackages;
};

// What the administrator wants to stay as it is.
struct HoldEntry
{
    QString mName;
    QString mVersions; // the first numbers of those that may be installed; empty: none
    QDateTime mUntil;  // local time; invalid: without end
};

struct HoldEntries
{
    QList<HoldEntry> mHolds;
};

struct PackageVersion
{
    QString mName;
    QString mVersion;
};

// A kept state of the machine, which it can go back to.
struct GenerationEntry
{
    qint64 mGeneration = 0;
    QDateTime mDate; // local time
    bool mCurrent = false;
    bool mOnTrial = false;
    QList<PackageVersion> mPackages;
};

struct GenerationEntries
{
    QList<GenerationEntry> mGenerations; // the newest first
};

struct GenerationNumber
{
    qint64 mGeneration = 0; // 0: the one before the current one
};

// A package that failed on this machine and is not installed again.
struct RefusalEntry
{
    QString mPackage;
    QString mVersion;
    QString mHash; // of its archive
    QString mReason;
    QDateTime mDate; // local time
};

struct RefusalEntries
{
    QList<RefusalEntry> mRefused; // the oldest first
};

struct PackageName
{
    QString mName;
};

struct Channel
{
    QString mChannel; // empty: stable
};

// What became of an order that may be impossible.
struct Outcome
{
    bool mDone = false;
    QString mReason; // why not, a sentence
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
inline constexpr auto sFields<Overview> = std::tuple{
    Field{"status", &Overview::mStatus},
    Field{"activity", &Overview::mActivity},
    Field{"version", &Overview::mVersion},
    Field{"code", &Overview::mCode},
    Field{"text", &Overview::mText},
    Field{"ended", &Overview::mEnded},
    Field{"lastSuccess", &Overview::mLastSuccess},
    Field{"nextCheck", &Overview::mNextCheck},
    Field{"metadataExpires", &Overview::mMetadataExpires},
};

template <>
inline constexpr auto sFields<HistoryQuery> = std::tuple{Field{"runs", &HistoryQuery::mRuns}};

template <>
inline constexpr auto sFields<HistoryPackage> = std::tuple{
    Field{"name", &HistoryPackage::mName},       Field{"title", &HistoryPackage::mTitle},
    Field{"version", &HistoryPackage::mVersion}, Field{"previous", &HistoryPackage::mPrevious},
    Field{"status", &HistoryPackage::mStatus},   Field{"report", &HistoryPackage::mReport},
};

template <>
inline constexpr auto sFields<HistoryRun> = std::tuple{
    Field{"date", &HistoryRun::mDate},
    Field{"code", &HistoryRun::mCode},
    Field{"text", &HistoryRun::mText},
    Field{"packages", &HistoryRun::mPackages},
};

template <>
inline constexpr auto sFields<History> = std::tuple{Field{"runs", &History::mRuns}};

template <>
inline constexpr auto sFields<DamageEntry> =
    std::tuple{Field{"path", &DamageEntry::mPath}, Field{"problem", &DamageEntry::mProblem},
               Field{"exactPath", &DamageEntry::mExactPath}};

template <>
inline constexpr auto sFields<PackageEntry> = std::tuple{
    Field{"name", &PackageEntry::mName},
    Field{"version", &PackageEntry::mVersion},
    Field{"folder", &PackageEntry::mFolder},
    Field{"indexed", &PackageEntry::mIndexed},
    Field{"state", &PackageEntry::mState},
    Field{"checked", &PackageEntry::mChecked},
    Field{"files", &PackageEntry::mFiles},
    Field{"bytes", &PackageEntry::mBytes},
    Field{"damageCount", &PackageEntry::mDamageCount},
    Field{"damage", &PackageEntry::mDamage},
    Field{"title", &PackageEntry::mTitle},
    Field{"language", &PackageEntry::mLanguage},
    Field{"size", &PackageEntry::mSize},
    Field{"installed", &PackageEntry::mInstalled},
};

template <>
inline constexpr auto sFields<PackageEntries> = std::tuple{Field{"packages", &PackageEntries::mPackages}};

template <>
inline constexpr auto sFields<VerificationState> = std::tuple{
    Field{"running", &VerificationState::mRunning},       Field{"waiting", &VerificationState::mWaiting},
    Field{"package", &VerificationState::mPackage},       Field{"bytesDone", &VerificationState::mBytesDone},
    Field{"bytesTotal", &VerificationState::mBytesTotal}, Field{"began", &VerificationState::mBegan},
    Field{"ended", &VerificationState::mEnded},           Field{"damaged", &VerificationState::mDamaged},
    Field{"unproven", &VerificationState::mUnproven},     Field{"failure", &VerificationState::mFailure},
};

template <>
inline constexpr auto sFields<LeftOutPackage> = std::tuple{
    Field{"name", &LeftOutPackage::mName},     Field{"version", &LeftOutPackage::mVersion},
    Field{"reason", &LeftOutPackage::mReason}, Field{"required", &LeftOutPackage::mRequired},
    Field{"date", &LeftOutPackage::mDate},
};

template <>
inline constexpr auto sFields<LeftOutPackages> = std::tuple{Field{"packages", &LeftOutPackages::mPackages}};

template <>
inline constexpr auto sFields<HoldEntry> = std::tuple{
    Field{"name", &HoldEntry::mName},
    Field{"versions", &HoldEntry::mVersions},
    Field{"until", &HoldEntry::mUntil},
};

template <>
inline constexpr auto sFields<HoldEntries> = std::tuple{Field{"holds", &HoldEntries::mHolds}};

template <>
inline constexpr auto sFields<PackageName> = std::tuple{Field{"name", &PackageName::mName}};

template <>
inline constexpr auto sFields<Channel> = std::tuple{Field{"channel", &Channel::mChannel}};

template <>
inline constexpr auto sFields<PackageVersion> =
    std::tuple{Field{"name", &PackageVersion::mName}, Field{"version", &PackageVersion::mVersion}};

template <>
inline constexpr auto sFields<GenerationEntry> = std::tuple{
    Field{"generation", &GenerationEntry::mGeneration}, Field{"date", &GenerationEntry::mDate},
    Field{"current", &GenerationEntry::mCurrent},       Field{"onTrial", &GenerationEntry::mOnTrial},
    Field{"packages", &GenerationEntry::mPackages},
};

template <>
inline constexpr auto sFields<GenerationEntries> =
    std::tuple{Field{"generations", &GenerationEntries::mGenerations}};

template <>
inline constexpr auto sFields<GenerationNumber> =
    std::tuple{Field{"generation", &GenerationNumber::mGeneration}};

template <>
inline constexpr auto sFields<RefusalEntry> = std::tuple{
    Field{"package", &RefusalEntry::mPackage}, Field{"version", &RefusalEntry::mVersion},
    Field{"hash", &RefusalEntry::mHash},       Field{"reason", &RefusalEntry::mReason},
    Field{"date", &RefusalEntry::mDate},
};

template <>
inline constexpr auto sFields<RefusalEntries> = std::tuple{Field{"refused", &RefusalEntries::mRefused}};

template <>
inline constexpr auto sFields<Outcome> =
    std::tuple{Field{"done", &Outcome::mDone}, Field{"reason", &Outcome::mReason}};

template <>
inline constexpr auto sFields<Message> = std::tuple{
    Field{"type", &Message::mType},
    Field{"text", &Message::mText},
    Field{"details", &Message::mDetails},
};

} // namespace tarn::vkcore::protocol

#include "store/Settings.h"

#include "sqlite/Database.h"
#include "values/ResultCode.h"

#include <QtCore/QJsonDocument>
#include <QtCore/QJsonObject>

#include <algorithm>

using namespace Qt::StringLiterals;

namespace tarn::vkservice::store {

using namespace vkcore;

namespace {

QString fromBool(bool pValue)
{
    return pValue ? u"1"_s : u"0"_s;
}
bool toBool(const QString& pText)
{
    return pText == "1"_L1;
}
QString fromDate(const QDateTime& pDate)
{
    return pDate.isValid() ? pDate.toString(Qt::ISODate) : QString();
}
QDateTime toDate(const QString& pText)
{
    return QDateTime::fromString(pText, Qt::ISODate);
}

// Sorted like the dates.
QString pastRunName(const QDateTime& pBegan)
{
    return u"pastRun."_s + pBegan.toUTC().toString(Qt::ISODateWithMs);
}

QString fromPastRun(const RunRecord& pRecord)
{
    const QJsonObject tJson{{u"ended"_s, pRecord.mFinished.toUTC().toString(Qt::ISODateWithMs)},
                            {u"code"_s, pRecord.mCode},
                            {u"text"_s, pRecord.mText}};
    return QString::fromUtf8(QJsonDocument(tJson).toJson(QJsonDocument::Compact));
}

RunRecord toPastRun(const QString& pName, const QString& pText)
{
    const QJsonObject tJson = QJsonDocument::fromJson(pText.toUtf8()).object();
    RunRecord tRecord;
    tRecord.mBegan = QDateTime::fromString(pName.section(u'.', 1), Qt::ISODateWithMs);
    tRecord.mFinished = QDateTime::fromString(tJson["ended"_L1].toString(), Qt::ISODateWithMs).toLocalTime();
    tRecord.mCode = tJson["code"_L1].toInt();
    tRecord.mText = tJson["text"_L1].toString();
    return tRecord;
}

// A password that was set before the host belongs to the first host.
bool isAnotherProxy(const NetProxy& pOld, const NetProxy& pNew)
{
    const bool tChanged = pOld.mHost != pNew.mHost || pOld.mPort != pNew.mPort;
    return pOld.mHost.isEmpty() ? pNew.mHost.isEmpty() && pNew.mUser.isEmpty() : tChanged;
}

} // namespace

std::optional<Settings::Values> Settings::values(const QString& pPrefix) const
{
    Statement tQuery(mDatabase, "SELECT name, value FROM settings WHERE name >= ? AND name < ?");
    tQuery.bind(1, pPrefix).bind(2, pPrefix + QChar(0x7f));
    Values tValues;
    while (tQuery.step()) {
        tValues.insert(tQuery.text(0), tQuery.text(1));
    }
    return tQuery.isOk() ? std::optional(tValues) : std::nullopt;
}

std::optional<QString> Settings::value(const QString& pName) const
{
    Statement tQuery(mDatabase, "SELECT value FROM settings WHERE name = ?");
    tQuery.bind(1, pName);
    const QString tValue = tQuery.step() ? tQuery.text(0) : QString();
    return tQuery.isOk() ? std::optional(tValue) : std::nullopt;
}

bool Settings::set(const Values& pValues)
{
    return mDatabase.transaction([&] {
        Statement tInsert(mDatabase, "INSERT OR REPLACE INTO settings (name, value) VALUES (?, ?)");
        for (auto tValue = pValues.begin(); tValue != pValues.end(); ++tValue) {
            if (!tInsert.bind(1, tValue.key()).bind(2, tValue.value()).run()) {
                return false;
            }
        }
        return true;
    });
}

std::optional<ProxySettings> Settings::proxy() const
{
    const auto tStored = values(u"proxy."_s);
    if (!tStored) {
        return std::nullopt;
    }
    ProxySettings tSettings;
    if (tStored->isEmpty()) {
        return tSettings;
    }
    tSettings.mMode = static_cast<NetProxyMode>(tStored->value(u"proxy.mode"_s).toInt());
    NetProxy& tProxy = tSettings.mProxy;
    tProxy.mEnabled = toBool(tStored->value(u"proxy.enabled"_s));
    tProxy.mConfigured = toBool(tStored->value(u"proxy.configured"_s));
    tProxy.mHost = tStored->value(u"proxy.host"_s);
    tProxy.mPort = tStored->value(u"proxy.port"_s).toUInt();
    tProxy.mUser = tStored->value(u"proxy.user"_s);
    tProxy.mPassword = tStored->value(u"proxy.password"_s);
    return tSettings;
}

bool Settings::setProxy(const ProxySettings& pProxy)
{
    const auto tOld = proxy();
    if (!tOld) {
        return false;
    }
    const NetProxy& tProxy = pProxy.mProxy;
    Values tValues{
        {u"proxy.mode"_s, QString::number(pProxy.mMode)},
        {u"proxy.enabled"_s, fromBool(tProxy.mEnabled)},
        {u"proxy.configured"_s, fromBool(tProxy.mConfigured)},
        {u"proxy.host"_s, tProxy.mHost},
        {u"proxy.port"_s, QString::number(tProxy.mPort)},
        {u"proxy.user"_s, tProxy.mUser},
    };
    if (tProxy.mPasswordChanged || isAnotherProxy(tOld->mProxy, tProxy)) {
        tValues.insert(u"proxy.password"_s, tProxy.mPasswordChanged ? tProxy.mPassword : QString());
    }
    return set(tValues);
}

std::optional<QString> Settings::dataDirectory() const
{
    return value(u"dataDirectory"_s);
}

bool Settings::setDataDirectory(const QString& pPath)
{
    return set({{u"dataDirectory"_s, pPath}});
}

std::optional<QString> Settings::appLanguage() const
{
    return value(u"language.app"_s);
}
std::optional<QString> Settings::dataLanguage() const
{
    return value(u"language.data"_s);
}

bool Settings::setLanguages(const QString& pApp, const QString& pData)
{
    Values tValues;
    if (!pApp.isNull()) {
        tValues.insert(u"language.app"_s, pApp);
    }
    if (!pData.isNull()) {
        tValues.insert(u"language.data"_s, pData);
    }
    return tValues.isEmpty() || set(tValues);
}

std::optional<QString> Settings::channel() const
{
    return value(u"channel"_s);
}

bool Settings::setChannel(const QString& pChannel)
{
    return set({{u"channel"_s, pChannel}});
}

std::optional<QList<LeftOutPackage>> Settings::leftOut() const
{
    const auto tStored = value(u"leftOut"_s);
    if (!tStored) {
        return std::nullopt;
    }
    QString tFault;
    const QJsonObject tJson = QJsonDocument::fromJson(tStored->toUtf8()).object();
    return protocol::fromJson<protocol::LeftOutPackages>(tJson, &tFault)
        .value_or(protocol::LeftOutPackages())
        .mPackages;
}

bool Settings::setLeftOut(const QList<LeftOutPackage>& pPackages)
{
    const QJsonObject tJson = protocol::toJson(protocol::LeftOutPackages{pPackages});
    return set({{u"leftOut"_s, QString::fromUtf8(QJsonDocument(tJson).toJson(QJsonDocument::Compact))}});
}

std::optional<QList<protocol::PackageVersion>> Settings::pendingFixes() const
{
    const auto tStored = value(u"pendingFixes"_s);
    if (!tStored) {
        return std::nullopt;
    }
    QString tFault;
    const QJsonObject tJson = QJsonDocument::fromJson(tStored->toUtf8()).object();
    return protocol::fromJson<protocol::PackageVersions>(tJson, &tFault)
        .value_or(protocol::PackageVersions())
        .mPackages;
}

bool Settings::setPendingFixes(const QList<protocol::PackageVersion>& pFixes)
{
    const QJsonObject tJson = protocol::toJson(protocol::PackageVersions{pFixes});
    return set({{u"pendingFixes"_s, QString::fromUtf8(QJsonDocument(tJson).toJson(QJsonDocument::Compact))}});
}

std::optional<ScheduleSettings> Settings::schedule() const
{
    const auto tStored = values(u"schedule."_s);
    if (!tStored) {
        return std::nullopt;
    }
    ScheduleSettings tSchedule;
    if (tStored->isEmpty()) {
        return tSchedule;
    }
    tSchedule.mMode = static_cast<Scheduler::AutoUpdateMode>(tStored->value(u"schedule.mode"_s).toInt());
    tSchedule.mFlags = tStored->value(u"schedule.flags"_s).toInt();
    tSchedule.mNextCheck = toDate(tStored->value(u"schedule.nextCheck"_s));
    tSchedule.mAnchor = toDate(tStored->value(u"schedule.anchor"_s));
    tSchedule.mPeriodCount = tStored->value(u"schedule.periodCount"_s).toInt();
    tSchedule.mUnit = static_cast<Scheduler::PeriodUnit>(tStored->value(u"schedule.unit"_s).toInt());
    tSchedule.mExtra = tStored->value(u"schedule.extra"_s);
    tSchedule.mNextCheckChosen = toBool(tStored->value(u"schedule.nextCheckChosen"_s));
    return tSchedule;
}

bool Settings::setSchedule(const ScheduleSettings& pSchedule)
{
    return set({
        {u"schedule.mode"_s, QString::number(pSchedule.mMode)},
        {u"schedule.flags"_s, QString::number(pSchedule.mFlags)},
        {u"schedule.nextCheck"_s, fromDate(pSchedule.mNextCheck)},
        {u"schedule.anchor"_s, fromDate(pSchedule.mAnchor)},
        {u"schedule.periodCount"_s, QString::number(pSchedule.mPeriodCount)},
        {u"schedule.unit"_s, QString::number(pSchedule.mUnit)},
        {u"schedule.extra"_s, pSchedule.mExtra},
        {u"schedule.nextCheckChosen"_s, fromBool(pSchedule.mNextCheckChosen)},
    });
}

std::optional<MonitoringSettings> Settings::monitoring() const
{
    const auto tStored = value(u"monitoring"_s);
    if (!tStored) {
        return std::nullopt;
    }
    QString tFault;
    const QJsonObject tJson = QJsonDocument::fromJson(tStored->toUtf8()).object();
    return protocol::fromJson<MonitoringSettings>(tJson, &tFault).value_or(MonitoringSettings());
}

bool Settings::setMonitoring(const MonitoringSettings& pSettings)
{
    const QByteArray tJson = QJsonDocument(protocol::toJson(pSettings)).toJson(QJsonDocument::Compact);
    return set({{u"monitoring"_s, QString::fromUtf8(tJson)}});
}

std::optional<Waiting> Settings::waiting() const
{
    const auto tStored = values(u"waiting."_s);
    if (!tStored) {
        return std::nullopt;
    }
    return Waiting{.mSince = toDate(tStored->value(u"waiting.since"_s)),
                   .mIsReported = toBool(tStored->value(u"waiting.reported"_s))};
}

bool Settings::setWaiting(const Waiting& pWaiting)
{
    return set({{u"waiting.since"_s, fromDate(pWaiting.mSince)},
                {u"waiting.reported"_s, fromBool(pWaiting.mIsReported)}});
}

std::optional<RunRecord> Settings::lastRun() const
{
    const auto tStored = values(u"lastRun."_s);
    if (!tStored) {
        return std::nullopt;
    }
    RunRecord tRecord;
    tRecord.mCode = tStored->value(u"lastRun.code"_s).toInt();
    tRecord.mText = tStored->value(u"lastRun.text"_s);
    tRecord.mFinished = toDate(tStored->value(u"lastRun.finished"_s));
    tRecord.mLastSuccess = toDate(tStored->value(u"lastRun.lastSuccess"_s));
    tRecord.mCutShort = tStored->value(u"lastRun.cutShort"_s).toInt();
    tRecord.mBegan = QDateTime::fromString(tStored->value(u"lastRun.began"_s), Qt::ISODateWithMs);
    return tRecord;
}

std::optional<RunCounters> Settings::counters() const
{
    const auto tStored = values(u"counters."_s);
    return tStored ? std::optional(RunCounters::fromSettings(*tStored)) : std::nullopt;
}

bool Settings::setLastRun(const RunRecord& pRecord, const RunTraffic& pTraffic)
{
    auto tCounters = counters();
    if (!tCounters) {
        return false;
    }
    if (pRecord.mBegan.isValid()) {
        tCounters->add(pRecord, pTraffic);
    }
    Values tValues = tCounters->toSettings();
    const QString tName = pastRunName(pRecord.mBegan);
    const bool tIsIdle = pRecord.mCode == ResultSuccess && pTraffic.mWhole == 0;
    // One that was cut short is known already, and may end with nothing left to install.
    if (pRecord.mBegan.isValid() && (!tIsIdle || !value(tName).value_or(QString()).isNull())) {
        tValues.insert(tName, fromPastRun(pRecord));
    }
    tValues.insert({
        {u"lastRun.code"_s, QString::number(pRecord.mCode)},
        {u"lastRun.text"_s, pRecord.mText},
        {u"lastRun.finished"_s, fromDate(pRecord.mFinished)},
        {u"lastRun.lastSuccess"_s, fromDate(pRecord.mLastSuccess)},
        {u"lastRun.began"_s, pRecord.mBegan.toString(Qt::ISODateWithMs)},
        {u"lastRun.cutShort"_s, QString::number(pRecord.mCutShort)},
        {u"unfinishedRun"_s, QString()},
    });
    return set(tValues) && forgetOldRuns();
}

std::optional<QList<RunRecord>> Settings::pastRuns() const
{
    const auto tStored = values(u"pastRun."_s);
    if (!tStored) {
        return std::nullopt;
    }
    QList<RunRecord> tRuns;
    for (auto tRun = tStored->begin(); tRun != tStored->end(); ++tRun) {
        tRuns.append(toPastRun(tRun.key(), tRun.value()));
    }
    std::sort(tRuns.begin(), tRuns.end(),
              [](const RunRecord& pLeft, const RunRecord& pRight) { return pLeft.mBegan < pRight.mBegan; });
    return tRuns;
}

bool Settings::addPastRun(const RunRecord& pRecord)
{
    return set({{pastRunName(pRecord.mBegan), fromPastRun(pRecord)}}) && forgetOldRuns();
}

bool Settings::forgetOldRuns()
{
    Statement tDelete(mDatabase,
                      "DELETE FROM settings WHERE name >= 'pastRun.' AND name <= (SELECT name FROM settings"
                      " WHERE name >= 'pastRun.' AND name < 'pastRun/' ORDER BY name DESC LIMIT 1 OFFSET ?)");
    return tDelete.bind(1, sMostPastRuns).run();
}

std::optional<QString> Settings::unfinishedRun() const
{
    return value(u"unfinishedRun"_s);
}

bool Settings::beginRun(const QString& pDate)
{
    return set({{u"unfinishedRun"_s, pDate}});
}

} // namespace tarn::vkservice::store

#include "store/Settings.h"

#include "internal/Protocol.h"
#include "sqlite/Database.h"

#include <QtCore/QJsonDocument>
#include <QtCore/QJsonObject>

namespace tarn::vkservice::store {

using namespace vkcore;

namespace {

QString fromBool(bool pValue)
{
    return pValue ? QStringLiteral("1") : QStringLiteral("0");
}
bool toBool(const QString& pText)
{
    return pText == QLatin1String("1");
}
QString fromDate(const QDateTime& pDate)
{
    return pDate.isValid() ? pDate.toString(Qt::ISODate) : QString();
}
QDateTime toDate(const QString& pText)
{
    return QDateTime::fromString(pText, Qt::ISODate);
}

// A password that was given before there was a host is for the first one.
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
    const auto tStored = values(QStringLiteral("proxy."));
    if (!tStored) {
        return std::nullopt;
    }
    ProxySettings tSettings;
    if (tStored->isEmpty()) {
        return tSettings;
    }
    tSettings.mMode = static_cast<NetProxyMode>(tStored->value(QStringLiteral("proxy.mode")).toInt());
    NetProxy& tProxy = tSettings.mProxy;
    tProxy.mEnabled = toBool(tStored->value(QStringLiteral("proxy.enabled")));
    tProxy.mConfigured = toBool(tStored->value(QStringLiteral("proxy.configured")));
    tProxy.mHost = tStored->value(QStringLiteral("proxy.host"));
    tProxy.mPort = tStored->value(QStringLiteral("proxy.port")).toUInt();
    tProxy.mUser = tStored->value(QStringLiteral("proxy.user"));
    tProxy.mPassword = tStored->value(QStringLiteral("proxy.password"));
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
        {QStringLiteral("proxy.mode"), QString::number(pProxy.mMode)},
        {QStringLiteral("proxy.enabled"), fromBool(tProxy.mEnabled)},
        {QStringLiteral("proxy.configured"), fromBool(tProxy.mConfigured)},
        {QStringLiteral("proxy.host"), tProxy.mHost},
        {QStringLiteral("proxy.port"), QString::number(tProxy.mPort)},
        {QStringLiteral("proxy.user"), tProxy.mUser},
    };
    if (tProxy.mPasswordChanged || isAnotherProxy(tOld->mProxy, tProxy)) {
        tValues.insert(QStringLiteral("proxy.password"),
                       tProxy.mPasswordChanged ? tProxy.mPassword : QString());
    }
    return set(tValues);
}

std::optional<QString> Settings::dataDirectory() const
{
    return value(QStringLiteral("dataDirectory"));
}

bool Settings::setDataDirectory(const QString& pPath)
{
    return set({{QStringLiteral("dataDirectory"), pPath}});
}

std::optional<QString> Settings::appLanguage() const
{
    return value(QStringLiteral("language.app"));
}
std::optional<QString> Settings::dataLanguage() const
{
    return value(QStringLiteral("language.data"));
}

bool Settings::setLanguages(const QString& pApp, const QString& pData)
{
    Values tValues;
    if (!pApp.isNull()) {
        tValues.insert(QStringLiteral("language.app"), pApp);
    }
    if (!pData.isNull()) {
        tValues.insert(QStringLiteral("language.data"), pData);
    }
    return tValues.isEmpty() || set(tValues);
}

std::optional<ScheduleSettings> Settings::schedule() const
{
    const auto tStored = values(QStringLiteral("schedule."));
    if (!tStored) {
        return std::nullopt;
    }
    ScheduleSettings tSchedule;
    if (tStored->isEmpty()) {
        return tSchedule;
    }
    tSchedule.mMode =
        static_cast<Scheduler::AutoUpdateMode>(tStored->value(QStringLiteral("schedule.mode")).toInt());
    tSchedule.mFlags = tStored->value(QStringLiteral("schedule.flags")).toInt();
    tSchedule.mNextCheck = toDate(tStored->value(QStringLiteral("schedule.nextCheck")));
    tSchedule.mAnchor = toDate(tStored->value(QStringLiteral("schedule.anchor")));
    tSchedule.mPeriodCount = tStored->value(QStringLiteral("schedule.periodCount")).toInt();
    tSchedule.mUnit =
        static_cast<Scheduler::PeriodUnit>(tStored->value(QStringLiteral("schedule.unit")).toInt());
    tSchedule.mExtra = tStored->value(QStringLiteral("schedule.extra"));
    tSchedule.mNextCheckChosen = toBool(tStored->value(QStringLiteral("schedule.nextCheckChosen")));
    return tSchedule;
}

bool Settings::setSchedule(const ScheduleSettings& pSchedule)
{
    return set({
        {QStringLiteral("schedule.mode"), QString::number(pSchedule.mMode)},
        {QStringLiteral("schedule.flags"), QString::number(pSchedule.mFlags)},
        {QStringLiteral("schedule.nextCheck"), fromDate(pSchedule.mNextCheck)},
        {QStringLiteral("schedule.anchor"), fromDate(pSchedule.mAnchor)},
        {QStringLiteral("schedule.periodCount"), QString::number(pSchedule.mPeriodCount)},
        {QStringLiteral("schedule.unit"), QString::number(pSchedule.mUnit)},
        {QStringLiteral("schedule.extra"), pSchedule.mExtra},
        {QStringLiteral("schedule.nextCheckChosen"), fromBool(pSchedule.mNextCheckChosen)},
    });
}

std::optional<MonitoringSettings> Settings::monitoring() const
{
    const auto tStored = value(QStringLiteral("monitoring"));
    if (!tStored) {
        return std::nullopt;
    }
    MonitoringSettings tSettings;
    protocol::read(QJsonDocument::fromJson(tStored->toUtf8()).object(), &tSettings);
    return tSettings;
}

bool Settings::setMonitoring(const MonitoringSettings& pSettings)
{
    const QByteArray tJson = QJsonDocument(protocol::toJson(pSettings)).toJson(QJsonDocument::Compact);
    return set({{QStringLiteral("monitoring"), QString::fromUtf8(tJson)}});
}

std::optional<RunRecord> Settings::lastRun() const
{
    const auto tStored = values(QStringLiteral("lastRun."));
    if (!tStored) {
        return std::nullopt;
    }
    RunRecord tRecord;
    tRecord.mCode = tStored->value(QStringLiteral("lastRun.code")).toInt();
    tRecord.mText = tStored->value(QStringLiteral("lastRun.text"));
    tRecord.mFinished = toDate(tStored->value(QStringLiteral("lastRun.finished")));
    tRecord.mLastSuccess = toDate(tStored->value(QStringLiteral("lastRun.lastSuccess")));
    tRecord.mCutShort = tStored->value(QStringLiteral("lastRun.cutShort")).toInt();
    tRecord.mBegan =
        QDateTime::fromString(tStored->value(QStringLiteral("lastRun.began")), Qt::ISODateWithMs);
    return tRecord;
}

bool Settings::setLastRun(const RunRecord& pRecord)
{
    return set({
        {QStringLiteral("lastRun.code"), QString::number(pRecord.mCode)},
        {QStringLiteral("lastRun.text"), pRecord.mText},
        {QStringLiteral("lastRun.finished"), fromDate(pRecord.mFinished)},
        {QStringLiteral("lastRun.lastSuccess"), fromDate(pRecord.mLastSuccess)},
        {QStringLiteral("lastRun.began"), pRecord.mBegan.toString(Qt::ISODateWithMs)},
        {QStringLiteral("lastRun.cutShort"), QString::number(pRecord.mCutShort)},
        {QStringLiteral("unfinishedRun"), QString()},
    });
}

std::optional<QString> Settings::unfinishedRun() const
{
    return value(QStringLiteral("unfinishedRun"));
}

bool Settings::beginRun(const QString& pDate)
{
    return set({{QStringLiteral("unfinishedRun"), pDate}});
}

} // namespace tarn::vkservice::store

#include <vkcore/IPCClient.h>

#include <vkcore/Application.h>
#include <vkcore/MonitoringSettings.h>
#include <vkcore/Server.h>
#include <vkcore/ServerList.h>

#include "internal/Protocol.h"
#include "internal/SocketName.h"
#include "ipc/Session.h"

#include <QtCore/QJsonArray>

namespace tarn::vkcore {

using protocol::read;
using protocol::toJson;

namespace {

QJsonObject helloOf(const Application* pApp)
{
    return {{QStringLiteral("protocol"), protocol::sVersion},
            {QStringLiteral("client"), pApp == nullptr ? QString() : pApp->getAppName()},
            {QStringLiteral("version"), pApp == nullptr ? QString() : pApp->getAppVersion().toString()}};
}

QString defaultServerName(const Application* pApp)
{
    // Found once, so that all clients of a process speak to the same service.
    static const QString sDefault = protocol::defaultSocketName();
    const QString tName =
        pApp == nullptr ? QString() : pApp->getConfig()->getStrValue(QStringLiteral("service.socketName"));
    return tName.isEmpty() ? sDefault : tName;
}

template <typename T>
void put(T* pTo, const T& pValue)
{
    if (pTo != nullptr) {
        *pTo = pValue;
    }
}

// An enumeration travels as its number, also one that this library does not know.
template <typename T>
bool readNumber(const QJsonObject& pFrom, const QString& pName, T* pTo)
{
    int tNumber = 0;
    const bool tOk = read(pFrom, pName, &tNumber);
    *pTo = static_cast<T>(tNumber);
    return tOk;
}

bool readServers(const QJsonObject& pFrom, Application* pApp, QList<GRef2<Server>>* pTo)
{
    const QJsonValue tValue = pFrom.value(QLatin1String("servers"));
    const QJsonArray tArray = tValue.toArray();
    pTo->reserve(tArray.size());
    for (const QJsonValue tEntry : tArray) {
        const GRef2<Server> tServer(new Server(pApp));
        if (!tEntry.isObject() || !read(tEntry.toObject(), tServer.get())) {
            return false;
        }
        pTo->append(tServer);
    }
    return tValue.isArray();
}

// The deliveries of the events, each with its parameters read.
bool readEvent(IPCClient* pClient, const QString& pMethod, const QJsonObject& pParams, Event* pEvent)
{
    if (pMethod == QLatin1String("serviceStatusChanged")) {
        ServiceStatus tStatus{};
        const bool tOk = readNumber(pParams, QStringLiteral("status"), &tStatus);
        const bool tEndsRun = tStatus == StatusIdle || tStatus == StatusSuppressed || tStatus == StatusError;
        *pEvent = {[pClient, tStatus] { Q_EMIT pClient->serviceStatusChanged(tStatus); }, tEndsRun};
        return tOk;
    }
    if (pMethod == QLatin1String("serviceActivityChanged")) {
        ServiceActivity tActivity{};
        const bool tOk = readNumber(pParams, QStringLiteral("activity"), &tActivity);
        pEvent->mDeliver = [pClient, tActivity] { Q_EMIT pClient->serviceActivityChanged(tActivity); };
        return tOk;
    }
    const bool tIsError = pMethod == QLatin1String("serviceErrorReceived");
    if (tIsError || pMethod == QLatin1String("serviceNotificationReceived")) {
        int tType = 0;
        QString tText;
        QString tDetails;
        const bool tOk = read(pParams, QStringLiteral("type"), &tType) &&
                         read(pParams, QStringLiteral("text"), &tText) &&
                         read(pParams, QStringLiteral("details"), &tDetails);
        const auto tSignal =
            tIsError ? &IPCClient::serviceErrorReceived : &IPCClient::serviceNotificationReceived;
        pEvent->mDeliver = [=] { Q_EMIT(pClient->*tSignal)(tType, tText, tDetails); };
        return tOk;
    }
    if (pMethod == QLatin1String("quitRequestReceived")) {
        pEvent->mDeliver = [pClient] { Q_EMIT pClient->quitRequestReceived(); };
    }
    return true;
}

} // namespace

class IPCClient::Private : public Session
{
public:
    explicit Private(Application* pApp)
        : Session(
              [pApp](const QString& pText) {
                  if (pApp != nullptr) {
                      pApp->log(pText);
                  }
              },
              helloOf(pApp)),
          mApp(pApp)
    {
        setServerName(defaultServerName(pApp));
    }

    // The result of a method where it has the type of *pTo, which is left alone on failure.
    template <typename T>
    bool ask(const QString& pMethod, const QJsonObject& pParams, T* pTo, bool pStartsRun = false)
    {
        const std::shared_ptr<Session> tKeep = shared_from_this();
        const std::optional<QJsonValue> tResult = call(pMethod, pParams, pStartsRun);
        return tResult && (read({{QStringLiteral("result"), *tResult}}, QStringLiteral("result"), pTo) ||
                           malformed(pMethod));
    }
    // As above, for a result of several members, which pRead takes apart.
    bool askObject(const QString& pMethod, const QJsonObject& pParams,
                   const std::function<bool(const QJsonObject&)>& pRead)
    {
        const std::shared_ptr<Session> tKeep = shared_from_this();
        const std::optional<QJsonValue> tResult = call(pMethod, pParams);
        return tResult && ((tResult->isObject() && pRead(tResult->toObject())) || malformed(pMethod));
    }
    // A method whose result says whether it was done.
    bool order(const QString& pMethod, const QJsonObject& pParams = {}, bool pStartsRun = false)
    {
        bool tDone = false;
        return ask(pMethod, pParams, &tDone, pStartsRun) && tDone;
    }
    QJsonObject withRevision(int pIndex) const
    {
        QJsonObject tParams{{QStringLiteral("index"), pIndex}};
        if (!mRevision.isUndefined()) {
            tParams.insert(QLatin1String("revision"), mRevision);
        }
        return tParams;
    }

    Application* mApp;
    QJsonValue mRevision = QJsonValue::Undefined; // of the server list fetched last
};

IPCClient::IPCClient(Application* pApp, QObject* pParent)
    : QObject(pParent), d(std::make_shared<Private>(pApp))
{
}

IPCClient::~IPCClient()
{
    d->close();
}

void IPCClient::setServerName(const QString& pName)
{
    d->setServerName(pName);
}

const QString& IPCClient::serverName() const
{
    return d->serverName();
}

void IPCClient::setConnectTimeout(int pSeconds)
{
    d->setTimeout(pSeconds);
}

bool IPCClient::testConnect(int pTimeoutMs)
{
    return d->test(pTimeoutMs);
}

bool IPCClient::ping()
{
    return d->order(QStringLiteral("ping"));
}

bool IPCClient::isConnected() const
{
    return d->isConnected();
}

void IPCClient::close()
{
    d->close();
}

bool IPCClient::enterMonitorMode()
{
    const auto tRead = [this](const QString& pMethod, const QJsonObject& pParams, Event* pEvent) {
        return readEvent(this, pMethod, pParams, pEvent);
    };
    return d->enterMonitorMode({tRead, [this] { Q_EMIT disconnected(); }});
}

bool IPCClient::isServiceActive(bool* pOk)
{
    bool tActive = false;
    const bool tOk = d->ask(QStringLiteral("isServiceActive"), {}, &tActive);
    put(pOk, tOk);
    return tActive;
}

bool IPCClient::isVKClientActive()
{
    return d->order(QStringLiteral("isVKClientActive"));
}

ServiceStatus IPCClient::getServiceStatus(bool* pOk)
{
    int tStatus = StatusIdle;
    const bool tOk = d->ask(QStringLiteral("getServiceStatus"), {}, &tStatus);
    put(pOk, tOk);
    return static_cast<ServiceStatus>(tStatus);
}

bool IPCClient::getServiceProgress(ServiceActivity* pActivity, bool* pCancelable, QString* pText,
                                   long long* pBytesDone, long long* pBytesTotal, long long* pDone,
                                   long long* pTotal, int* pPackage, int* pPackageCount, int* pFailedCount)
{
    ServiceActivity tActivity{};
    bool tCancelable = false;
    QString tText;
    long long tBytesDone = 0;
    long long tBytesTotal = 0;
    long long tDone = 0;
    long long tTotal = 0;
    int tPackage = 0;
    int tPackageCount = 0;
    int tFailedCount = 0;
    const bool tOk = d->askObject(QStringLiteral("getServiceProgress"), {}, [&](const QJsonObject& pFrom) {
        return readNumber(pFrom, QStringLiteral("activity"), &tActivity) &&
               read(pFrom, QStringLiteral("cancelable"), &tCancelable) &&
               read(pFrom, QStringLiteral("text"), &tText) &&
               read(pFrom, QStringLiteral("bytesDone"), &tBytesDone) &&
               read(pFrom, QStringLiteral("bytesTotal"), &tBytesTotal) &&
               read(pFrom, QStringLiteral("done"), &tDone) && read(pFrom, QStringLiteral("total"), &tTotal) &&
               read(pFrom, QStringLiteral("package"), &tPackage) &&
               read(pFrom, QStringLiteral("packageCount"), &tPackageCount) &&
               read(pFrom, QStringLiteral("failedCount"), &tFailedCount);
    });
    if (tOk) {
        put(pActivity, tActivity);
        put(pCancelable, tCancelable);
        put(pText, tText);
        put(pBytesDone, tBytesDone);
        put(pBytesTotal, tBytesTotal);
        put(pDone, tDone);
        put(pTotal, tTotal);
        put(pPackage, tPackage);
        put(pPackageCount, tPackageCount);
        put(pFailedCount, tFailedCount);
    }
    return tOk;
}

int IPCClient::getLastServiceResult(bool pThisSession)
{
    int tResult = 0;
    d->ask(QStringLiteral("getLastServiceResult"), {{QStringLiteral("thisSession"), pThisSession}}, &tResult);
    return tResult;
}

QString IPCClient::getLastServiceResultStr(bool pThisSession)
{
    QString tText;
    d->ask(QStringLiteral("getLastServiceResultStr"), {{QStringLiteral("thisSession"), pThisSession}},
           &tText);
    return tText;
}

bool IPCClient::triggerUpdate(bool pManual)
{
    return d->order(QStringLiteral("triggerUpdate"), {{QStringLiteral("manual"), pManual}}, true);
}

bool IPCClient::abortUpdate()
{
    return d->order(QStringLiteral("abortUpdate"));
}

bool IPCClient::quitService()
{
    return d->order(QStringLiteral("quitService"));
}

bool IPCClient::reloadConfig()
{
    return d->order(QStringLiteral("reloadConfig"));
}

bool IPCClient::getDefaultServer(QString* pUri, QString* pUser, QString* pPassword)
{
    QString tUri;
    QString tUser;
    QString tPassword;
    const bool tOk =
        d->askObject(QStringLiteral("getDefaultServer"),
                     {{QStringLiteral("withPassword"), pPassword != nullptr}}, [&](const QJsonObject& pFrom) {
                         return read(pFrom, QStringLiteral("uri"), &tUri) &&
                                read(pFrom, QStringLiteral("user"), &tUser) &&
                                read(pFrom, QStringLiteral("password"), &tPassword);
                     });
    if (tOk) {
        put(pUri, tUri);
        put(pUser, tUser);
        put(pPassword, tPassword);
    }
    return tOk;
}

bool IPCClient::updateDefaultServer(const QString& pUri, const QString& pUser, const QString& pPassword)
{
    return d->order(QStringLiteral("updateDefaultServer"), {{QStringLiteral("uri"), toJson(pUri)},
                                                            {QStringLiteral("user"), toJson(pUser)},
                                                            {QStringLiteral("password"), toJson(pPassword)}});
}

bool IPCClient::getNetProxySettings(NetProxyMode* pMode, NetProxy* pProxy)
{
    NetProxyMode tMode{};
    NetProxy tProxy(false, false);
    const bool tOk = d->askObject(QStringLiteral("getNetProxySettings"), {}, [&](const QJsonObject& pFrom) {
        return readNumber(pFrom, QStringLiteral("mode"), &tMode) &&
               read(pFrom.value(QLatin1String("proxy")).toObject(), &tProxy);
    });
    if (tOk) {
        put(pMode, tMode);
        put(pProxy, tProxy);
    }
    return tOk;
}

bool IPCClient::setNetProxySettings(NetProxyMode pMode, const NetProxy& pProxy)
{
    return d->order(QStringLiteral("setNetProxySettings"),
                    {{QStringLiteral("mode"), int{pMode}}, {QStringLiteral("proxy"), toJson(pProxy)}});
}

QString IPCClient::getKdmlDataDirectory()
{
    QString tPath;
    d->ask(QStringLiteral("getKdmlDataDirectory"), {}, &tPath);
    return tPath;
}

bool IPCClient::setKdmlDataDirectory(const QString& pPath)
{
    return d->order(QStringLiteral("setKdmlDataDirectory"), {{QStringLiteral("path"), toJson(pPath)}});
}

bool IPCClient::getLanguages(QString* pAppLang, QString* pDataLang)
{
    QString tApp;
    QString tData;
    const bool tOk = d->askObject(QStringLiteral("getLanguages"), {}, [&](const QJsonObject& pFrom) {
        return read(pFrom, QStringLiteral("app"), &tApp) && read(pFrom, QStringLiteral("data"), &tData);
    });
    if (tOk) {
        put(pAppLang, tApp);
        put(pDataLang, tData);
    }
    return tOk;
}

bool IPCClient::setLanguages(const QString& pAppLang, const QString& pDataLang)
{
    return d->order(QStringLiteral("setLanguages"),
                    {{QStringLiteral("app"), toJson(pAppLang)}, {QStringLiteral("data"), toJson(pDataLang)}});
}

QString IPCClient::getConfigValue(const QString& pName, const QString& pDefault)
{
    QString tValue;
    const bool tOk = d->ask(
        QStringLiteral("getConfigValue"),
        {{QStringLiteral("name"), toJson(pName)}, {QStringLiteral("default"), toJson(pDefault)}}, &tValue);
    return tOk ? tValue : pDefault;
}

bool IPCClient::setConfigValue(const QString& pName, const QString& pValue)
{
    return d->order(QStringLiteral("setConfigValue"),
                    {{QStringLiteral("name"), toJson(pName)}, {QStringLiteral("value"), toJson(pValue)}});
}

bool IPCClient::getScheduleParameters(Scheduler::AutoUpdateMode* pMode, int* pFlags, QDateTime* pNextCheck,
                                      int* pPeriodCount, Scheduler::PeriodUnit* pUnit, QString* pExtra)
{
    Scheduler::AutoUpdateMode tMode{};
    int tFlags = 0;
    QDateTime tNextCheck;
    int tPeriodCount = 0;
    Scheduler::PeriodUnit tUnit{};
    QString tExtra;
    const bool tOk = d->askObject(QStringLiteral("getScheduleParameters"), {}, [&](const QJsonObject& pFrom) {
        return readNumber(pFrom, QStringLiteral("mode"), &tMode) &&
               read(pFrom, QStringLiteral("flags"), &tFlags) &&
               read(pFrom, QStringLiteral("nextCheck"), &tNextCheck) &&
               read(pFrom, QStringLiteral("periodCount"), &tPeriodCount) &&
               readNumber(pFrom, QStringLiteral("unit"), &tUnit) &&
               read(pFrom, QStringLiteral("extra"), &tExtra);
    });
    if (tOk) {
        put(pMode, tMode);
        put(pFlags, tFlags);
        put(pNextCheck, tNextCheck);
        put(pPeriodCount, tPeriodCount);
        put(pUnit, tUnit);
        put(pExtra, tExtra);
    }
    return tOk;
}

// Values as the header promises them.
// NOLINTBEGIN(performance-unnecessary-value-param)
bool IPCClient::setScheduleParameters(Scheduler::AutoUpdateMode pMode, int pFlags, QDateTime pNextCheck,
                                      int pPeriodCount, Scheduler::PeriodUnit pUnit, QString pExtra,
                                      bool pSave)
// NOLINTEND(performance-unnecessary-value-param)
{
    return d->order(QStringLiteral("setScheduleParameters"),
                    {{QStringLiteral("mode"), int{pMode}},
                     {QStringLiteral("flags"), pFlags},
                     {QStringLiteral("nextCheck"), toJson(pNextCheck)},
                     {QStringLiteral("periodCount"), pPeriodCount},
                     {QStringLiteral("unit"), int{pUnit}},
                     {QStringLiteral("extra"), toJson(pExtra)},
                     {QStringLiteral("save"), pSave}});
}

bool IPCClient::getMonitoringSettings(MonitoringSettings* pSettings)
{
    return d->askObject(QStringLiteral("getMonitoringSettings"), {},
                        [&](const QJsonObject& pFrom) { return read(pFrom, pSettings); });
}

bool IPCClient::setMonitoringSettings(const MonitoringSettings& pSettings)
{
    return d->order(QStringLiteral("setMonitoringSettings"),
                    {{QStringLiteral("settings"), toJson(pSettings)}});
}

bool IPCClient::getServerList(ServerList* pList)
{
    const std::shared_ptr<Private> tPrivate = d;
    QList<GRef2<Server>> tServers;
    QJsonValue tRevision;
    const bool tOk = tPrivate->askObject(QStringLiteral("getServerList"), {}, [&](const QJsonObject& pFrom) {
        tRevision = pFrom.value(QLatin1String("revision"));
        return !tRevision.isUndefined() && readServers(pFrom, tPrivate->mApp, &tServers);
    });
    if (tOk) {
        tPrivate->mRevision = tRevision;
        pList->mServers = tServers;
    }
    return tOk;
}

bool IPCClient::addServer(Server* pServer)
{
    return d->order(QStringLiteral("addServer"), {{QStringLiteral("server"), toJson(*pServer)}});
}

bool IPCClient::changeServer(int pIndex, Server* pServer)
{
    QJsonObject tParams = d->withRevision(pIndex);
    tParams.insert(QLatin1String("server"), toJson(*pServer));
    return d->order(QStringLiteral("changeServer"), tParams);
}

bool IPCClient::removeServer(int pIndex)
{
    return d->order(QStringLiteral("removeServer"), d->withRevision(pIndex));
}

} // namespace tarn::vkcore

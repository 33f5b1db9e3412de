#include <vkcore/IPCClient.h>

#include <vkcore/Application.h>
#include <vkcore/MonitoringSettings.h>
#include <vkcore/Server.h>
#include <vkcore/ServerList.h>

#include "internal/Protocol.h"
#include "internal/SocketName.h"
#include "ipc/Session.h"

#include <QtCore/QJsonArray>

using namespace Qt::StringLiterals;

namespace tarn::vkcore {

using protocol::read;
using protocol::toJson;

namespace {

QJsonObject helloOf(const Application* pApp)
{
    return {{u"protocol"_s, protocol::sVersion},
            {u"client"_s, pApp == nullptr ? QString() : pApp->getAppName()},
            {u"version"_s, pApp == nullptr ? QString() : pApp->getAppVersion().toString()}};
}

QString defaultServerName(const Application* pApp)
{
    // Found once, so that all clients of a process speak to the same service.
    static const QString sDefault = protocol::defaultSocketName();
    const QString tName =
        pApp == nullptr ? QString() : pApp->getConfig()->getStrValue(u"service.socketName"_s);
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
    const QJsonValue tValue = pFrom.value("servers"_L1);
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
    if (pMethod == "serviceStatusChanged"_L1) {
        ServiceStatus tStatus{};
        const bool tOk = readNumber(pParams, u"status"_s, &tStatus);
        const bool tEndsRun = tStatus == StatusIdle || tStatus == StatusSuppressed || tStatus == StatusError;
        *pEvent = {[pClient, tStatus] { Q_EMIT pClient->serviceStatusChanged(tStatus); }, tEndsRun};
        return tOk;
    }
    if (pMethod == "serviceActivityChanged"_L1) {
        ServiceActivity tActivity{};
        const bool tOk = readNumber(pParams, u"activity"_s, &tActivity);
        pEvent->mDeliver = [pClient, tActivity] { Q_EMIT pClient->serviceActivityChanged(tActivity); };
        return tOk;
    }
    const bool tIsError = pMethod == "serviceErrorReceived"_L1;
    if (tIsError || pMethod == "serviceNotificationReceived"_L1) {
        int tType = 0;
        QString tText;
        QString tDetails;
        const bool tOk = read(pParams, u"type"_s, &tType) && read(pParams, u"text"_s, &tText) &&
                         read(pParams, u"details"_s, &tDetails);
        const auto tSignal =
            tIsError ? &IPCClient::serviceErrorReceived : &IPCClient::serviceNotificationReceived;
        pEvent->mDeliver = [=] { Q_EMIT(pClient->*tSignal)(tType, tText, tDetails); };
        return tOk;
    }
    if (pMethod == "quitRequestReceived"_L1) {
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
        return tResult && (read({{u"result"_s, *tResult}}, u"result"_s, pTo) || malformed(pMethod));
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
        QJsonObject tParams{{u"index"_s, pIndex}};
        if (!mRevision.isUndefined()) {
            tParams.insert("revision"_L1, mRevision);
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
    return d->order(u"ping"_s);
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
    const bool tOk = d->ask(u"isServiceActive"_s, {}, &tActive);
    put(pOk, tOk);
    return tActive;
}

bool IPCClient::isVKClientActive()
{
    return d->order(u"isVKClientActive"_s);
}

ServiceStatus IPCClient::getServiceStatus(bool* pOk)
{
    int tStatus = StatusIdle;
    const bool tOk = d->ask(u"getServiceStatus"_s, {}, &tStatus);
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
    const bool tOk = d->askObject(u"getServiceProgress"_s, {}, [&](const QJsonObject& pFrom) {
        return readNumber(pFrom, u"activity"_s, &tActivity) && read(pFrom, u"cancelable"_s, &tCancelable) &&
               read(pFrom, u"text"_s, &tText) && read(pFrom, u"bytesDone"_s, &tBytesDone) &&
               read(pFrom, u"bytesTotal"_s, &tBytesTotal) && read(pFrom, u"done"_s, &tDone) &&
               read(pFrom, u"total"_s, &tTotal) && read(pFrom, u"package"_s, &tPackage) &&
               read(pFrom, u"packageCount"_s, &tPackageCount) && read(pFrom, u"failedCount"_s, &tFailedCount);
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
    d->ask(u"getLastServiceResult"_s, {{u"thisSession"_s, pThisSession}}, &tResult);
    return tResult;
}

QString IPCClient::getLastServiceResultStr(bool pThisSession)
{
    QString tText;
    d->ask(u"getLastServiceResultStr"_s, {{u"thisSession"_s, pThisSession}}, &tText);
    return tText;
}

bool IPCClient::triggerUpdate(bool pManual)
{
    return d->order(u"triggerUpdate"_s, {{u"manual"_s, pManual}}, true);
}

bool IPCClient::abortUpdate()
{
    return d->order(u"abortUpdate"_s);
}

bool IPCClient::quitService()
{
    return d->order(u"quitService"_s);
}

bool IPCClient::reloadConfig()
{
    return d->order(u"reloadConfig"_s);
}

bool IPCClient::getDefaultServer(QString* pUri, QString* pUser, QString* pPassword)
{
    QString tUri;
    QString tUser;
    QString tPassword;
    const bool tOk = d->askObject(u"getDefaultServer"_s, {{u"withPassword"_s, pPassword != nullptr}},
                                  [&](const QJsonObject& pFrom) {
                                      return read(pFrom, u"uri"_s, &tUri) && read(pFrom, u"user"_s, &tUser) &&
                                             read(pFrom, u"password"_s, &tPassword);
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
    return d->order(
        u"updateDefaultServer"_s,
        {{u"uri"_s, toJson(pUri)}, {u"user"_s, toJson(pUser)}, {u"password"_s, toJson(pPassword)}});
}

bool IPCClient::getNetProxySettings(NetProxyMode* pMode, NetProxy* pProxy)
{
    NetProxyMode tMode{};
    NetProxy tProxy(false, false);
    const bool tOk = d->askObject(u"getNetProxySettings"_s, {}, [&](const QJsonObject& pFrom) {
        return readNumber(pFrom, u"mode"_s, &tMode) && read(pFrom.value("proxy"_L1).toObject(), &tProxy);
    });
    if (tOk) {
        put(pMode, tMode);
        put(pProxy, tProxy);
    }
    return tOk;
}

bool IPCClient::setNetProxySettings(NetProxyMode pMode, const NetProxy& pProxy)
{
    return d->order(u"setNetProxySettings"_s, {{u"mode"_s, int{pMode}}, {u"proxy"_s, toJson(pProxy)}});
}

QString IPCClient::getKdmlDataDirectory()
{
    QString tPath;
    d->ask(u"getKdmlDataDirectory"_s, {}, &tPath);
    return tPath;
}

bool IPCClient::setKdmlDataDirectory(const QString& pPath)
{
    return d->order(u"setKdmlDataDirectory"_s, {{u"path"_s, toJson(pPath)}});
}

bool IPCClient::getLanguages(QString* pAppLang, QString* pDataLang)
{
    QString tApp;
    QString tData;
    const bool tOk = d->askObject(u"getLanguages"_s, {}, [&](const QJsonObject& pFrom) {
        return read(pFrom, u"app"_s, &tApp) && read(pFrom, u"data"_s, &tData);
    });
    if (tOk) {
        put(pAppLang, tApp);
        put(pDataLang, tData);
    }
    return tOk;
}

bool IPCClient::setLanguages(const QString& pAppLang, const QString& pDataLang)
{
    return d->order(u"setLanguages"_s, {{u"app"_s, toJson(pAppLang)}, {u"data"_s, toJson(pDataLang)}});
}

QString IPCClient::getConfigValue(const QString& pName, const QString& pDefault)
{
    QString tValue;
    const bool tOk =
        d->ask(u"getConfigValue"_s, {{u"name"_s, toJson(pName)}, {u"default"_s, toJson(pDefault)}}, &tValue);
    return tOk ? tValue : pDefault;
}

bool IPCClient::setConfigValue(const QString& pName, const QString& pValue)
{
    return d->order(u"setConfigValue"_s, {{u"name"_s, toJson(pName)}, {u"value"_s, toJson(pValue)}});
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
    const bool tOk = d->askObject(u"getScheduleParameters"_s, {}, [&](const QJsonObject& pFrom) {
        return readNumber(pFrom, u"mode"_s, &tMode) && read(pFrom, u"flags"_s, &tFlags) &&
               read(pFrom, u"nextCheck"_s, &tNextCheck) && read(pFrom, u"periodCount"_s, &tPeriodCount) &&
               readNumber(pFrom, u"unit"_s, &tUnit) && read(pFrom, u"extra"_s, &tExtra);
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
    return d->order(u"setScheduleParameters"_s, {{u"mode"_s, int{pMode}},
                                                 {u"flags"_s, pFlags},
                                                 {u"nextCheck"_s, toJson(pNextCheck)},
                                                 {u"periodCount"_s, pPeriodCount},
                                                 {u"unit"_s, int{pUnit}},
                                                 {u"extra"_s, toJson(pExtra)},
                                                 {u"save"_s, pSave}});
}

bool IPCClient::getMonitoringSettings(MonitoringSettings* pSettings)
{
    return d->askObject(u"getMonitoringSettings"_s, {},
                        [&](const QJsonObject& pFrom) { return read(pFrom, pSettings); });
}

bool IPCClient::setMonitoringSettings(const MonitoringSettings& pSettings)
{
    return d->order(u"setMonitoringSettings"_s, {{u"settings"_s, toJson(pSettings)}});
}

bool IPCClient::getServerList(ServerList* pList)
{
    const std::shared_ptr<Private> tPrivate = d;
    QList<GRef2<Server>> tServers;
    QJsonValue tRevision;
    const bool tOk = tPrivate->askObject(u"getServerList"_s, {}, [&](const QJsonObject& pFrom) {
        tRevision = pFrom.value("revision"_L1);
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
    return d->order(u"addServer"_s, {{u"server"_s, toJson(*pServer)}});
}

bool IPCClient::changeServer(int pIndex, Server* pServer)
{
    QJsonObject tParams = d->withRevision(pIndex);
    tParams.insert("server"_L1, toJson(*pServer));
    return d->order(u"changeServer"_s, tParams);
}

bool IPCClient::removeServer(int pIndex)
{
    return d->order(u"removeServer"_s, d->withRevision(pIndex));
}

} // namespace tarn::vkcore

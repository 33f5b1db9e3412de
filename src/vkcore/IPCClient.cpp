#include <vkcore/IPCClient.h>

#include <vkcore/Application.h>
#include <vkcore/MonitoringSettings.h>
#include <vkcore/Server.h>
#include <vkcore/ServerList.h>

#include "internal/Methods.h"
#include "internal/Protocol.h"
#include "internal/SocketName.h"
#include "internal/Values.h"
#include "ipc/Session.h"

#include <QtCore/QMetaMethod>

#include <utility>

using namespace Qt::StringLiterals;

namespace tarn::vkcore {

using namespace protocol;

namespace {

QJsonObject helloOf(const Application* pApp)
{
    Hello tHello{.mProtocol = protocol::sVersion, .mClient = {}, .mVersion = {}};
    if (pApp != nullptr) {
        tHello.mClient = pApp->getAppName();
        tHello.mVersion = pApp->getAppVersion().toString();
    }
    return toJson(tHello);
}

QString defaultServerName(const Application* pApp)
{
    // Determined once, so that all clients of a process use the same service.
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

ServerEntry toEntry(const Server& pServer)
{
    return {.mName = pServer.getName(),
            .mUri = pServer.getUri(),
            .mUser = pServer.getUserName(),
            .mPassword = pServer.getPassword(),
            .mEnabled = pServer.isEnabled(),
            .mDefault = pServer.isDefault(),
            .mSavePassword = pServer.savePassword()};
}

GRef2<Server> fromEntry(const ServerEntry& pEntry, Application* pApp)
{
    const GRef2<Server> tServer(new Server(pApp));
    tServer->setName(pEntry.mName);
    tServer->setUri(pEntry.mUri);
    tServer->setUserName(pEntry.mUser);
    tServer->setEnabled(pEntry.mEnabled);
    tServer->setDefault(pEntry.mDefault);
    tServer->setSavePassword(pEntry.mSavePassword);
    if (pEntry.mPassword) {
        tServer->setPassword(*pEntry.mPassword);
    }
    return tServer;
}

// Reads the parameters of an event; pSetDelivery(const T&) creates its delivery from them.
template <typename T, typename F>
bool readEvent(const QJsonObject& pParams, F pSetDelivery)
{
    QString tFault;
    const auto tValue = fromJson<T>(pParams, &tFault);
    if (tValue) {
        pSetDelivery(*tValue);
    }
    return tValue.has_value();
}

// The deliveries of the events, each with its parameters read.
bool readEvent(IPCClient* pClient, const QString& pMethod, const QJsonObject& pParams, Event* pEvent)
{
    if (pMethod == method::sServiceStatusChanged) {
        return readEvent<StatusChange>(pParams, [=](const StatusChange& pChange) {
            const ServiceStatus tStatus = pChange.mStatus;
            pEvent->mDeliver = [=] { Q_EMIT pClient->serviceStatusChanged(tStatus); };
            pEvent->mEndsRun = tStatus == StatusIdle || tStatus == StatusSuppressed || tStatus == StatusError;
        });
    }
    if (pMethod == method::sServiceActivityChanged) {
        return readEvent<ActivityChange>(pParams, [=](const ActivityChange& pChange) {
            pEvent->mDeliver = [=] { Q_EMIT pClient->serviceActivityChanged(pChange.mActivity); };
        });
    }
    const bool tIsError = pMethod == method::sServiceErrorReceived;
    if (tIsError || pMethod == method::sServiceNotificationReceived) {
        const auto tSignal =
            tIsError ? &IPCClient::serviceErrorReceived : &IPCClient::serviceNotificationReceived;
        return readEvent<Message>(pParams, [=](const Message& pMessage) {
            pEvent->mDeliver = [=] {
                Q_EMIT(pClient->*tSignal)(pMessage.mType, pMessage.mText, pMessage.mDetails);
            };
        });
    }
    if (pMethod == method::sQuitRequestReceived) {
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

    // The result of a method whose result is one T.
    template <typename T>
    std::optional<T> get(const QString& pMethod, const QJsonObject& pParams = {}, bool pStartsRun = false)
    {
        const std::shared_ptr<Session> tKeep = shared_from_this();
        const Result<QJsonValue> tResult = call(pMethod, pParams, pStartsRun);
        if (!tResult) {
            return std::nullopt;
        }
        QString tFault;
        JsonReader tReader(QJsonObject{{u"result"_s, *tResult}}, &tFault);
        T tValue{};
        read(tReader, "result", &tValue);
        return tReader.ok() || malformed(pMethod) ? std::optional(tValue) : std::nullopt;
    }
    // A method whose result is whether it succeeded.
    bool order(const QString& pMethod, const QJsonObject& pParams = {}, bool pStartsRun = false)
    {
        return get<bool>(pMethod, pParams, pStartsRun).value_or(false);
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
    return d->order(method::sPing);
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
        const bool tIsSound = readEvent(this, pMethod, pParams, pEvent);
        const bool tIsOther = tIsSound && !pEvent->mDeliver;
        if (tIsOther && isSignalConnected(QMetaMethod::fromSignal(&IPCClient::eventReceived))) {
            pEvent->mDeliver = [=, this] { Q_EMIT eventReceived(pMethod, pParams); };
        }
        return tIsSound;
    };
    return d->enterMonitorMode({tRead, [this] { Q_EMIT disconnected(); }});
}

bool IPCClient::isServiceActive(bool* pOk)
{
    const auto tActive = d->get<bool>(method::sIsServiceActive);
    put(pOk, tActive.has_value());
    return tActive.value_or(false);
}

bool IPCClient::isVKClientActive()
{
    return d->order(method::sIsVKClientActive);
}

ServiceStatus IPCClient::getServiceStatus(bool* pOk)
{
    const auto tStatus = d->get<ServiceStatus>(method::sGetServiceStatus);
    put(pOk, tStatus.has_value());
    return tStatus.value_or(StatusIdle);
}

bool IPCClient::getServiceProgress(ServiceActivity* pActivity, bool* pCancelable, QString* pText,
                                   long long* pBytesDone, long long* pBytesTotal, long long* pDone,
                                   long long* pTotal, int* pPackage, int* pPackageCount, int* pFailedCount)
{
    const auto tProgress = d->get<Progress>(method::sGetServiceProgress);
    if (!tProgress) {
        return false;
    }
    put(pActivity, tProgress->mActivity);
    put(pCancelable, tProgress->mCancelable);
    put(pText, tProgress->mText);
    put(pBytesDone, tProgress->mBytesDone);
    put(pBytesTotal, tProgress->mBytesTotal);
    put(pDone, tProgress->mDone);
    put(pTotal, tProgress->mTotal);
    put(pPackage, tProgress->mPackage);
    put(pPackageCount, tProgress->mPackageCount);
    put(pFailedCount, tProgress->mFailedCount);
    return true;
}

int IPCClient::getLastServiceResult(bool pThisSession)
{
    return d->get<int>(method::sGetLastServiceResult, toJson(ResultOf{pThisSession})).value_or(0);
}

QString IPCClient::getLastServiceResultStr(bool pThisSession)
{
    return d->get<QString>(method::sGetLastServiceResultStr, toJson(ResultOf{pThisSession}))
        .value_or(QString());
}

bool IPCClient::triggerUpdate(bool pManual)
{
    return d->order(method::sTriggerUpdate, toJson(Trigger{pManual}), true);
}

bool IPCClient::abortUpdate()
{
    return d->order(method::sAbortUpdate);
}

bool IPCClient::quitService()
{
    return d->order(method::sQuitService);
}

bool IPCClient::reloadConfig()
{
    return d->order(method::sReloadConfig);
}

bool IPCClient::getDefaultServer(QString* pUri, QString* pUser, QString* pPassword)
{
    const auto tServer =
        d->get<DefaultServer>(method::sGetDefaultServer, toJson(WithPassword{pPassword != nullptr}));
    if (!tServer) {
        return false;
    }
    put(pUri, tServer->mUri);
    put(pUser, tServer->mUser);
    put(pPassword, tServer->mPassword);
    return true;
}

bool IPCClient::updateDefaultServer(const QString& pUri, const QString& pUser, const QString& pPassword)
{
    return d->order(method::sUpdateDefaultServer,
                    toJson(DefaultServer{.mUri = pUri, .mUser = pUser, .mPassword = pPassword}));
}

bool IPCClient::getNetProxySettings(NetProxyMode* pMode, NetProxy* pProxy)
{
    const auto tSettings = d->get<ProxySettings>(method::sGetNetProxySettings);
    if (!tSettings) {
        return false;
    }
    put(pMode, tSettings->mMode);
    put(pProxy, tSettings->mProxy);
    return true;
}

bool IPCClient::setNetProxySettings(NetProxyMode pMode, const NetProxy& pProxy)
{
    return d->order(method::sSetNetProxySettings, toJson(ProxySettings{.mMode = pMode, .mProxy = pProxy}));
}

QString IPCClient::getKdmlDataDirectory()
{
    return d->get<QString>(method::sGetKdmlDataDirectory).value_or(QString());
}

bool IPCClient::setKdmlDataDirectory(const QString& pPath)
{
    return d->order(method::sSetKdmlDataDirectory, toJson(DataDirectory{pPath}));
}

bool IPCClient::getLanguages(QString* pAppLang, QString* pDataLang)
{
    const auto tLanguages = d->get<LanguageChoice>(method::sGetLanguages);
    if (!tLanguages) {
        return false;
    }
    put(pAppLang, tLanguages->mApp);
    put(pDataLang, tLanguages->mData);
    return true;
}

bool IPCClient::setLanguages(const QString& pAppLang, const QString& pDataLang)
{
    return d->order(method::sSetLanguages, toJson(LanguageChoice{.mApp = pAppLang, .mData = pDataLang}));
}

QString IPCClient::getConfigValue(const QString& pName, const QString& pDefault)
{
    const VariableQuery tQuery{.mName = pName, .mDefault = pDefault};
    return d->get<QString>(method::sGetConfigValue, toJson(tQuery)).value_or(pDefault);
}

bool IPCClient::setConfigValue(const QString& pName, const QString& pValue)
{
    return d->order(method::sSetConfigValue, toJson(Variable{.mName = pName, .mValue = pValue}));
}

bool IPCClient::getScheduleParameters(Scheduler::AutoUpdateMode* pMode, int* pFlags, QDateTime* pNextCheck,
                                      int* pPeriodCount, Scheduler::PeriodUnit* pUnit, QString* pExtra)
{
    const auto tSchedule = d->get<Schedule>(method::sGetScheduleParameters);
    if (!tSchedule) {
        return false;
    }
    put(pMode, tSchedule->mMode);
    put(pFlags, tSchedule->mFlags);
    put(pNextCheck, tSchedule->mNextCheck);
    put(pPeriodCount, tSchedule->mPeriodCount);
    put(pUnit, tSchedule->mUnit);
    put(pExtra, tSchedule->mExtra);
    return true;
}

// Values as the header promises them.
// NOLINTBEGIN(performance-unnecessary-value-param)
bool IPCClient::setScheduleParameters(Scheduler::AutoUpdateMode pMode, int pFlags, QDateTime pNextCheck,
                                      int pPeriodCount, Scheduler::PeriodUnit pUnit, QString pExtra,
                                      bool pSave)
// NOLINTEND(performance-unnecessary-value-param)
{
    const Schedule tSchedule{.mMode = pMode,
                             .mFlags = pFlags,
                             .mNextCheck = std::move(pNextCheck),
                             .mPeriodCount = pPeriodCount,
                             .mUnit = pUnit,
                             .mExtra = std::move(pExtra)};
    return d->order(method::sSetScheduleParameters, toJson(ScheduleChange{tSchedule, pSave}));
}

bool IPCClient::getMonitoringSettings(MonitoringSettings* pSettings)
{
    const auto tSettings = d->get<MonitoringSettings>(method::sGetMonitoringSettings);
    *pSettings = tSettings.value_or(*pSettings);
    return tSettings.has_value();
}

bool IPCClient::setMonitoringSettings(const MonitoringSettings& pSettings)
{
    return d->order(method::sSetMonitoringSettings, toJson(MonitoringChange{pSettings}));
}

bool IPCClient::getServerList(ServerList* pList)
{
    const QString tMethod = method::sGetServerList;
    const std::shared_ptr<Private> tPrivate = d;
    const auto tList = tPrivate->get<ServerEntries>(tMethod);
    if (!tList || (tList->mRevision.isUndefined() && !tPrivate->malformed(tMethod))) {
        return false;
    }
    tPrivate->mRevision = tList->mRevision;
    pList->mServers.clear();
    pList->mServers.reserve(tList->mServers.size());
    for (const ServerEntry& tEntry : tList->mServers) {
        pList->mServers.append(fromEntry(tEntry, tPrivate->mApp));
    }
    return true;
}

bool IPCClient::addServer(Server* pServer)
{
    return d->order(method::sAddServer, toJson(NewServer{toEntry(*pServer)}));
}

bool IPCClient::changeServer(int pIndex, Server* pServer)
{
    return d->order(method::sChangeServer, toJson(ServerChange{{pIndex, d->mRevision}, toEntry(*pServer)}));
}

std::optional<QJsonValue> IPCClient::call(const QString& pMethod, const QJsonObject& pParams)
{
    QString tReason;
    return call(pMethod, pParams, &tReason);
}

std::optional<QJsonValue> IPCClient::call(const QString& pMethod, const QJsonObject& pParams,
                                          QString* pReason)
{
    const std::shared_ptr<Session> tKeep = d;
    const Result<QJsonValue> tResult = tKeep->call(pMethod, pParams);
    *pReason = tResult.failure().mText;
    return tResult ? std::optional(*tResult) : std::nullopt;
}

bool IPCClient::removeServer(int pIndex)
{
    return d->order(method::sRemoveServer, toJson(ServerPosition{pIndex, d->mRevision}));
}

} // namespace tarn::vkcore

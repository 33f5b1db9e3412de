#pragma once

#include <vkcore/Export.h>
#include <vkcore/NetProxy.h>
#include <vkcore/Scheduler.h>
#include <vkcore/Types.h>

#include <QtCore/QDateTime>
#include <QtCore/QJsonObject>
#include <QtCore/QJsonValue>
#include <QtCore/QObject>
#include <QtCore/QString>

#include <memory>
#include <optional>

namespace tarn::vkcore {

class Application;
class MonitoringSettings;
class Server;
class ServerList;

// The client end of the service's socket.
//
// Every operation blocks in a local event loop until its answer arrives, for at most 30 seconds or the time
// of setConnectTimeout(). Timers fire while it waits. The operations are reentrant: one may begin while
// another waits, on the same or another client. close() during a wait ends every waiting call of this client
// with its failure value, and so does the destructor. All clients of a process belong to one thread, which
// needs a QCoreApplication.
//
// The first operation connects. If the service closes the connection, the waiting calls fail, or otherwise
// the next one; the call after that connects again, without waiting for a missing service. Nothing connects
// after close().
//
// The signals are emitted only after enterMonitorMode(), and only from the main event loop: they are delayed
// during any blocking call of the process, when a receiver could not act on them. They keep their order, and
// none is lost, except for the end of an earlier run, see triggerUpdate().
//
// Failure is false, or the value named below; the reason is written to the application's log.
class VKCORE_EXPORT IPCClient : public QObject
{
    Q_OBJECT

public:
    IPCClient(Application* pApp, QObject* pParent);
    ~IPCClient() override;

    // A name in QDir::tempPath(), or an absolute path. If none is set, the configuration key
    // service.socketName is used. Without that key it is /run/vkservice/socket for root and for users who may
    // write to that socket, $XDG_RUNTIME_DIR/vkservice.socket for others, and "vkservice" if they have no
    // such folder.
    void setServerName(const QString& pName);
    const QString& serverName() const;
    // How long a connection may take, and then each answer on it, in seconds; 30 if not set. An operation
    // waits that long for a missing or unused socket, because a service may be starting.
    void setConnectTimeout(int pSeconds);

    // True if a service answers within pTimeoutMs milliseconds. False at once if no process listens, or if
    // the peer runs as another user than root, this one and the one that service.user names. A false result
    // is not logged.
    bool testConnect(int pTimeoutMs);
    bool ping();
    bool isConnected() const;
    // Closes the connection for good: waiting and later calls fail, and no more signals are emitted. Harmless
    // if never connected.
    void close();
    bool enterMonitorMode();

    // *pOk, if not null, is false if the result is only the fallback.
    bool isServiceActive(bool* pOk);           // false on failure
    bool isVKClientActive();                   // false on failure
    ServiceStatus getServiceStatus(bool* pOk); // StatusIdle on failure
    // Bytes and steps of the current activity, and the packages of the run; any pointer may be null. pDone of
    // pTotal is the share to show, without a unit.
    bool getServiceProgress(ServiceActivity* pActivity, bool* pCancelable, QString* pText,
                            long long* pBytesDone, long long* pBytesTotal, long long* pDone,
                            long long* pTotal, int* pPackage, int* pPackageCount, int* pFailedCount);
    // 0: no run on record, also on failure. pThisSession: only runs of this service process count.
    int getLastServiceResult(bool pThisSession);
    QString getLastServiceResultStr(bool pThisSession);

    // The monitors of this process no longer receive the end of a run that had ended before the request was
    // sent: an undelivered status of idle, suppressed or error is dropped.
    bool triggerUpdate(bool pManual);
    bool abortUpdate();
    bool quitService();
    bool reloadConfig();

    // Each pointer may be null; the password is requested only if pPassword is given.
    bool getDefaultServer(QString* pUri, QString* pUser, QString* pPassword);
    bool updateDefaultServer(const QString& pUri, const QString& pUser, const QString& pPassword);
    bool getNetProxySettings(NetProxyMode* pMode, NetProxy* pProxy);
    bool setNetProxySettings(NetProxyMode pMode, const NetProxy& pProxy);
    QString getKdmlDataDirectory(); // null on failure
    bool setKdmlDataDirectory(const QString& pPath);
    bool getLanguages(QString* pAppLang, QString* pDataLang);
    // A null text leaves that language unchanged.
    bool setLanguages(const QString& pAppLang, const QString& pDataLang);
    QString getConfigValue(const QString& pName, const QString& pDefault); // pDefault on failure
    bool setConfigValue(const QString& pName, const QString& pValue);

    // pFlags: bit 0 means a check at user login. nextCheck is local time.
    bool getScheduleParameters(Scheduler::AutoUpdateMode* pMode, int* pFlags, QDateTime* pNextCheck,
                               int* pPeriodCount, Scheduler::PeriodUnit* pUnit, QString* pExtra);
    // pSave false changes the schedule of the running service only.
    bool setScheduleParameters(Scheduler::AutoUpdateMode pMode, int pFlags, QDateTime pNextCheck,
                               int pPeriodCount, Scheduler::PeriodUnit pUnit, QString pExtra, bool pSave);

    bool getMonitoringSettings(MonitoringSettings* pSettings);
    bool setMonitoringSettings(const MonitoringSettings& pSettings);

    // Fills the list with new entries. changeServer and removeServer send the revision of the last list that
    // this client fetched, so a list that has changed since is refused instead of hitting another server.
    bool getServerList(ServerList* pList);
    bool addServer(Server* pServer);
    bool changeServer(int pIndex, Server* pServer);
    bool removeServer(int pIndex);

    // Any method of the socket by its name.
    std::optional<QJsonValue> call(const QString& pMethod, const QJsonObject& pParams = {});
    // On failure, *pReason says why: a refusal in the words of the service, which may not be plain, or what
    // is wrong with the connection.
    std::optional<QJsonValue> call(const QString& pMethod, const QJsonObject& pParams, QString* pReason);

Q_SIGNALS:
    void serviceStatusChanged(tarn::vkcore::ServiceStatus pStatus);
    void serviceActivityChanged(tarn::vkcore::ServiceActivity pActivity);
    void serviceNotificationReceived(int pMsgType, const QString& pText, const QString& pDetails);
    void serviceErrorReceived(int pMsgType, const QString& pText, const QString& pDetails);
    void quitRequestReceived();
    // An event of another name than the ones above.
    void eventReceived(const QString& pMethod, const QJsonObject& pParams);
    // The connection in monitor mode has ended, with or without a quit request, other than by close().
    void disconnected();

private:
    class Private;
    std::shared_ptr<Private> d; // shared with waiting calls
};

} // namespace tarn::vkcore

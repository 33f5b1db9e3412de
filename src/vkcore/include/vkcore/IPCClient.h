#pragma once

#include <vkcore/Export.h>
#include <vkcore/NetProxy.h>
#include <vkcore/Scheduler.h>
#include <vkcore/Types.h>

#include <QtCore/QDateTime>
#include <QtCore/QObject>
#include <QtCore/QString>

#include <memory>

namespace tarn::vkcore {

class Application;
class MonitoringSettings;
class Server;
class ServerList;

// The client end of the service's socket.
//
// Every operation blocks until its answer is there, at most 30 seconds or as setConnectTimeout() says, in a
// local event loop: timers fire while it waits. The operations are re-entrant: one may begin while another
// waits, on the same or another client, and close() from inside ends every waiting call of this client with
// its failure value; so does the end of the client itself. All clients of a process belong to one thread,
// which needs a QCoreApplication.
//
// The first operation connects. A link that the service has ended fails the calls that wait for an answer, or
// else the next one; the call behind that connects anew, without waiting for a service that is not there.
// Nothing connects after close().
//
// The signals come only after enterMonitorMode(), and only from the plain event loop: while any
// blocking call of the process is under way they are held back, so that none comes at a moment when its
// receiver can't act on it. Their order is kept, and none is lost but for the end of an earlier run, see
// triggerUpdate().
//
// Failure is false, or the value named below; the reason is written to the application's log.
class VKCORE_EXPORT IPCClient : public QObject
{
    Q_OBJECT

public:
    IPCClient(Application* pApp, QObject* pParent);
    ~IPCClient() override;

    // A name, which lies in QDir::tempPath(), or an absolute path. If none is set it is the configuration key
    // service.socketName. Without that key it is /run/vkservice/socket for root and for whoever may write to
    // that socket, $XDG_RUNTIME_DIR/vkservice.socket for others, and "vkservice" where they have no such
    // folder.
    void setServerName(const QString& pName);
    const QString& serverName() const;
    // How long a connection may take, and then each answer on it, in seconds; 30 if not set. A socket that
    // does not exist or that nobody listens on yet is waited for as long, since a service may just be
    // starting.
    void setConnectTimeout(int pSeconds);

    // True if a service answers within pTimeoutMs milliseconds. False at once where nobody listens, and
    // where the peer runs neither as root nor as this user. A false result is not logged.
    bool testConnect(int pTimeoutMs);
    bool ping();
    bool isConnected() const;
    // Drops the connection for good: waiting calls and all later ones fail, and no more signals come.
    // Harmless if never connected.
    void close();
    bool enterMonitorMode();

    // *pOk, which may be null, is false where the result is only the fall-back.
    bool isServiceActive(bool* pOk);           // false on failure
    bool isVKClientActive();                   // false on failure
    ServiceStatus getServiceStatus(bool* pOk); // StatusIdle on failure
    // Bytes and steps of the activity under way, and the packages of the run; any pointer may be null.
    // pDone of pTotal is the share to show, in no unit.
    bool getServiceProgress(ServiceActivity* pActivity, bool* pCancelable, QString* pText,
                            long long* pBytesDone, long long* pBytesTotal, long long* pDone,
                            long long* pTotal, int* pPackage, int* pPackageCount, int* pFailedCount);
    // 0: no run on record, also on failure. pThisSession: only runs of this service process count.
    int getLastServiceResult(bool pThisSession);
    QString getLastServiceResultStr(bool pThisSession);

    // The monitors of this process are no longer told of a run that had ended before the order was sent: a
    // status of idle, suppressed or error that was there by then is dropped.
    bool triggerUpdate(bool pManual);
    bool abortUpdate();
    bool quitService();
    bool reloadConfig();

    // Each pointer may be null; the password is asked for only where pPassword is given.
    bool getDefaultServer(QString* pUri, QString* pUser, QString* pPassword);
    bool updateDefaultServer(const QString& pUri, const QString& pUser, const QString& pPassword);
    bool getNetProxySettings(NetProxyMode* pMode, NetProxy* pProxy);
    bool setNetProxySettings(NetProxyMode pMode, const NetProxy& pProxy);
    QString getKdmlDataDirectory(); // null on failure
    bool setKdmlDataDirectory(const QString& pPath);
    bool getLanguages(QString* pAppLang, QString* pDataLang);
    // A null text leaves that language as it is.
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

Q_SIGNALS:
    void serviceStatusChanged(tarn::vkcore::ServiceStatus pStatus);
    void serviceActivityChanged(tarn::vkcore::ServiceActivity pActivity);
    void serviceNotificationReceived(int pMsgType, const QString& pText, const QString& pDetails);
    void serviceErrorReceived(int pMsgType, const QString& pText, const QString& pDetails);
    void quitRequestReceived();
    // The connection in monitor mode has ended, with or without a quit request, other than by close().
    void disconnected();

private:
    class Private;
    std::shared_ptr<Private> d; // shared with the calls under way
};

} // namespace tarn::vkcore

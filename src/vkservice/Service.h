#pragma once

#include "ipc/MethodTable.h"
#include "ipc/SocketServer.h"
#include "schedule/LoginWatch.h"
#include "schedule/ScheduleTimer.h"
#include "schedule/SystemClock.h"
#include "store/ConfigVariables.h"
#include "store/ServerTable.h"
#include "store/Settings.h"
#include "store/StateStore.h"

#include <QtCore/QJsonObject>
#include <QtCore/QList>
#include <QtCore/QObject>
#include <QtCore/QTimer>

#include <memory>

namespace tarn::vkcore {
class LockFile;
}

namespace tarn::vkservice {

namespace control {
class MailControl;
class UpdateControl;
} // namespace control
namespace update {
class UpdateRun;
struct RunRequest;
} // namespace update
class ServiceApplication;

// The service: its parts, put together. What the methods of the socket do is in methods/, one file a subject.
class Service : public QObject
{
    Q_OBJECT

public:
    struct Options
    {
        QString mSocketName; // empty: as configured
        bool mWorker = false;
    };

    Service(ServiceApplication& pApp, const Options& pOptions);
    ~Service() override;

    // Takes the state directory and the socket for this process alone. False, with a reason, where another
    // service has them or they can't be had.
    bool start(QString* pError);
    // Begins the orderly end: tells the monitors, ends a run at its next safe point, then ended() comes.
    void quit();
    // The same for a worker that pAsker has started and needs no longer. Others may have found it meanwhile:
    // it takes no more of them, and waits a few seconds for those that are there.
    void leave(pid_t pAsker);
    bool isEnding() const { return mEnding; }
    // Takes up the configuration files. False with a reason.
    bool reload(QString* pError);

    ServiceApplication& app() { return mApp; }
    bool isWorker() const { return mOptions.mWorker; }
    ipc::SocketServer& sockets() { return mSockets; }
    store::Settings& settings() { return mSettings; }
    store::ServerTable& servers() { return mServers; }
    store::ConfigVariables& variables() { return mVariables; }
    schedule::ScheduleTimer& schedule() { return mSchedule; }
    control::UpdateControl& updates() { return *mUpdates; }
    control::MailControl& mail() { return *mMail; }
    const QString& socketName() const { return mSocketName; }

    // pSave false: the stored schedule stays, and comes back with the next start.
    bool changeSchedule(const ScheduleSettings& pWanted, bool pSave);
    // What hangs on a variable or on the configuration looks anew.
    void onVariablesChanged();
    // The answer to a request that the store let down. A damaged store is replaced.
    ipc::Reply storeFailure(const QString& pWhat);
    // Events that came before anybody listened.
    QList<QJsonObject> takeHeldErrors() { return std::exchange(mHeldErrors, {}); }

Q_SIGNALS:
    void ended();

private:
    bool lockState(QString* pError);
    bool openStore(QString* pError);
    bool listen(QString* pError);
    void recoverLastRun();
    bool startSchedule(QString* pError);
    void resumeRun();
    void connectUpdates();
    void replaceDamagedStore();
    void reportDamage(const QString& pDamagedFile);
    std::optional<update::RunRequest> runRequest(QString* pReason);
    bool readVariables(update::RunRequest* pTo) const;
    bool isSuppressed();
    // What was chosen, else the language of the service.
    QString languageOr(const std::optional<QString>& pChosen) const;
    void onDue();
    void onScheduleMoved(const ScheduleSettings& pSettings);
    void onRunEnded(const RunRecord& pRecord, bool pManual);
    void connectMail();
    void openMail();
    void sendError(int pType, const QString& pText, const QString& pDetails);
    void finish();

    ServiceApplication& mApp;
    Options mOptions;
    QString mSocketName;
    std::unique_ptr<vkcore::LockFile> mStateLock;
    store::StateStore mStore;
    store::Settings mSettings;
    store::ServerTable mServers;
    store::ConfigVariables mVariables;
    ipc::MethodTable mMethods;
    ipc::SocketServer mSockets;
    schedule::SystemClock mClock;
    schedule::ScheduleTimer mSchedule;
    schedule::LoginWatch mLogins;
    std::unique_ptr<update::UpdateRun> mRun;
    std::unique_ptr<control::UpdateControl> mUpdates;
    std::unique_ptr<control::MailControl> mMail;
    QTimer mMinute;
    QList<QJsonObject> mHeldErrors;
    bool mScheduleSaved = true; // the schedule in force is the stored one
    int mRetries = 0;
    bool mEnding = false;
    bool mFinished = false;
};

} // namespace tarn::vkservice

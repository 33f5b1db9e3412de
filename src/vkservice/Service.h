#pragma once

#include "control/Configuration.h"
#include "control/Events.h"
#include "control/Lifetime.h"
#include "control/MailControl.h"
#include "control/MetricsControl.h"
#include "control/OperatorView.h"
#include "control/ReleaseControl.h"
#include "control/RunNotes.h"
#include "control/ScheduleControl.h"
#include "control/ScheduledRuns.h"
#include "control/StoreCare.h"
#include "control/UpdateControl.h"
#include "control/VerifyControl.h"
#include "internal/Failure.h"
#include "ipc/MethodTable.h"
#include "ipc/SocketServer.h"
#include "packages/CheckRecord.h"
#include "store/ConfigVariables.h"
#include "store/HoldTable.h"
#include "store/ServerTable.h"
#include "store/Settings.h"
#include "store/StateStore.h"
#include "update/UpdateThread.h"

#include <QtCore/QObject>
#include <QtCore/QString>
#include <QtCore/QTimer>

#include <memory>

namespace tarn::vkcore {
class LockFile;
}

namespace tarn::vkservice {

// Connects the parts of the service and starts them. None of them depends on this class.
class Service : public QObject
{
    Q_OBJECT

public:
    struct Options
    {
        QString mSocketName; // empty: as configured
        bool mWorker = false;
        os::ProcessList* mProcesses = nullptr; // outlives the service; none: the real one
    };

    Service(process::ServiceApplication& pApp, const Options& pOptions);
    ~Service() override;

    // Claims the state directory and the socket for this process. A failure if another service has them or
    // they are not available.
    Failure start();

    const ipc::MethodTable& methods() const { return mMethods; }
    const ipc::SocketServer& sockets() const { return mSockets; }
    control::Configuration& configuration() { return mConfiguration; }
    control::Lifetime& lifetime() { return mLifetime; }

private:
    void addMethods();
    void connectParts();
    Failure lockState();
    Failure openStore();
    void openMail();
    Failure listen();
    void onStoreReplaced(const QString& pDamagedFile);
    void reportDamage(const QString& pDamagedFile);
    void reportLoss(const QString& pText, const QString& pDetails, const process::JournalEvent& pEvent);
    void onRunEnded(const RunRecord& pRecord, bool pManual);
    void onPackagesChanged();
    void onMinute();

    process::ServiceApplication& mApp;
    QString mSocketPath;
    std::unique_ptr<vkcore::LockFile> mStateLock;

    // Each part uses those above it.
    store::StateStore mStore;
    store::Settings mSettings;
    store::ServerTable mServers;
    store::HoldTable mHolds;
    store::ConfigVariables mVariables;
    ipc::MethodTable mMethods;
    ipc::SocketServer mSockets;
    control::StoreCare mStoreCare;
    control::Configuration mConfiguration;
    update::UpdateThread mUpdateThread;
    packages::CheckRecordFile mChecks;
    control::UpdateControl mUpdates;
    control::VerifyControl mVerifications;
    control::ReleaseControl mReleases;
    control::ScheduledRuns mScheduledRuns;
    control::ScheduleControl mSchedule;
    control::MailControl mMail;
    control::OperatorView mView;
    control::RunNotes mRunNotes;
    control::MetricsControl mMetrics;
    control::Events mEvents;
    control::Lifetime mLifetime;
    QTimer mMinute;
};

} // namespace tarn::vkservice

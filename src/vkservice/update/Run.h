#pragma once

#include "trees/IndexStore.h"
#include "update/Downloads.h"
#include "update/Plan.h"
#include "update/PreparedPackages.h"
#include "update/RunRequest.h"
#include "update/ServerSession.h"
#include "update/Supply.h"
#include "update/supply/Budget.h"
#include "update/Trial.h"
#include "update/Workplace.h"

#include <memory>
#include <vector>

namespace tarn::os {
class AbortFlag;
class FileSystem;
class ProcessList;
} // namespace tarn::os

namespace tarn::vkservice::update {

class Reporter;

// The job of the worker thread: one update from start to end. The steps are in their own files; this class
// calls them in order.
class Run
{
public:
    Run(const RunRequest& pRequest, os::FileSystem& pFileSystem, os::ProcessList& pProcesses,
        Reporter& pReporter, const os::AbortFlag& pAbort, os::CheckRunner& pChecks = os::realCheckRunner());

    RunResult run();
    // After run().
    RunTraffic traffic() const { return {mDownloads.received(), mInstalledBytes}; }
    QStringList unusableServers() const;
    std::optional<QList<vkcore::protocol::PackageVersion>> pendingFixes() const { return mPendingFixes; }

private:
    // The result of one server for this machine.
    struct Attempt
    {
        std::unique_ptr<ServerSession> mSession;
        Plan mPlan;
        std::unique_ptr<Supply> mSupply;
        bool mIsPrepared = false;
        QDateTime mInstallFrom; // valid: the packages are prepared and wait for this time
    };
    struct ServerTrouble
    {
        QString mServer;
        Failure mFailure;
    };

    Failure loadRefusals();
    // Asks the servers that were not asked yet in order until one has everything; else selects the one that
    // has most. If *pBest has no value, mServerTroubles holds the reasons.
    Failure findPackages(std::unique_ptr<Attempt>* pBest);
    Failure askServer(const ServerAccess& pServer, std::unique_ptr<Attempt>* pAttempt);
    void findLostIndexes();
    Failure fetchPackages(Attempt* pAttempt, const Attempt* pEarlier);
    void serverFailed(const QString& pServer, const Failure& pFailure, bool pIsLast);

    Failure installPackages(std::unique_ptr<Attempt>* pAttempt);
    Failure prepareFromAny(std::unique_ptr<Attempt>* pAttempt);
    Failure prepare(Attempt* pAttempt);
    Failure waitAndSwitch(Attempt* pAttempt);
    Failure keepPrepared(Attempt* pAttempt);
    packages::Manifest nextGeneration(const Plan& pPlan);
    Failure switchToNew(const Plan& pPlan);
    void forgetOldIndexes();
    void removeObsolete();

    QByteArray state() const; // of this machine
    void warn(const QString& pText);
    Failure updateInstallLog();
    RunResult failed(const Failure& pFailure) const;
    RunResult allServersFailed() const;
    RunResult prepared(const Attempt& pAttempt) const;
    RunResult finish(Attempt* pAttempt);

    RunRequest mRequest;
    os::FileSystem& mFileSystem;
    os::ProcessList& mProcesses;
    Reporter& mReporter;
    const os::AbortFlag& mAbort;
    SwitchTime mSwitchTime;
    Workplace mWorkplace;
    Downloads mDownloads;
    trees::IndexStore mIndexes;
    Budget mBudget;
    qsizetype mNextServer = 0;
    PreparedPackages mPrepared;
    Trial mTrial;
    QList<packages::InstalledPackage> mLostIndexes; // of these the index is missing or damaged
    std::vector<ServerTrouble> mServerTroubles;
    std::optional<QList<vkcore::protocol::PackageVersion>> mPendingFixes;
    qint64 mInstalledBytes = 0; // of archives
};

} // namespace tarn::vkservice::update

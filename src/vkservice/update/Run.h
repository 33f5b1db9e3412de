#pragma once

#include "update/run/RunParts.h"
#include "update/run/ServerRound.h"

#include <memory>

namespace tarn::vkservice::update {

// The job of the worker thread: one update from start to end. The steps are in the folder run; this class
// calls them in order.
class Run
{
public:
    Run(const RunRequest& pRequest, os::FileSystem& pFileSystem, os::ProcessList& pProcesses,
        Reporter& pReporter, const os::AbortFlag& pAbort, os::CheckRunner& pChecks = os::realCheckRunner());

    RunResult run();
    // After run().
    RunTraffic traffic() const { return {mParts.mDownloads.received(), mInstalledBytes}; }
    QStringList unusableServers() const { return mServers.unusable(); }
    const QList<packages::Refusal>& refused() const { return mParts.mTrial.refused(); }
    std::optional<QList<vkcore::protocol::PackageVersion>> pendingFixes() const { return mPendingFixes; }

private:
    RunResult install(std::unique_ptr<Attempt>* pBest);

    RunParts mParts;
    ServerRound mServers;
    std::optional<QList<vkcore::protocol::PackageVersion>> mPendingFixes;
    qint64 mInstalledBytes = 0; // of archives
};

} // namespace tarn::vkservice::update

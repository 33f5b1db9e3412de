#include "update/Run.h"

#include "update/LeftOut.h"
#include "update/Reporter.h"
#include "update/run/Ending.h"
#include "update/run/FirstSteps.h"
#include "update/run/Installation.h"

using namespace Qt::StringLiterals;

namespace tarn::vkservice::update {

namespace {

using Step = Failure (*)(RunParts&);

// In their order; a failure ends the run.
constexpr Step sSettlingSteps[] = {&enterWorkplace, &settleEarlierRun};
constexpr Step sOpeningSteps[] = {&loadRefusals, &openStores, &checkRoom};

template <size_t Count>
Failure carryOut(const Step (&pSteps)[Count], RunParts& pParts)
{
    for (const Step tStep : pSteps) {
        if (Failure tFailure = tStep(pParts)) {
            return tFailure;
        }
    }
    return {};
}

} // namespace

Run::Run(const RunRequest& pRequest, os::FileSystem& pFileSystem, os::ProcessList& pProcesses,
         Reporter& pReporter, const os::AbortFlag& pAbort, os::CheckRunner& pChecks)
    : mParts(pRequest, pFileSystem, pProcesses, pReporter, pAbort, pChecks), mServers(mParts)
{
}

RunResult Run::run()
{
    mParts.mReporter.begin(vkcore::ActivityDownloading, true, 0, true);
    if (const Failure tFailure = carryOut(sSettlingSteps, mParts)) {
        return failed(tFailure);
    }
    if (mParts.mRequest.mOnlyTrial) {
        return {ResultSuccess, u"The installed packages have passed their checks."_s, 0};
    }
    if (const Failure tFailure = carryOut(sOpeningSteps, mParts)) {
        return failed(tFailure);
    }
    std::unique_ptr<Attempt> tBest;
    if (const Failure tFailure = mServers.find(&tBest)) {
        return failed(tFailure);
    }
    return tBest ? install(&tBest) : failed(mServers.allFailed());
}

RunResult Run::install(std::unique_ptr<Attempt>* pBest)
{
    mPendingFixes = update::pendingFixes((*pBest)->mPlan, mParts.mWorkplace.installed());
    if (!(*pBest)->mPlan.mPackages.isEmpty() || mParts.mWorkplace.needsNewGeneration()) {
        if (const Failure tFailure = Installation(mParts, mServers).install(pBest)) {
            RunResult tResult = failed(tFailure);
            if (tFailure.mKind == Failure::Kind::CheckFailed) {
                tResult.mLeftOut = (*pBest)->mPlan.mLeftOut;
            }
            return tResult;
        }
    }
    const Attempt& tAttempt = **pBest;
    mPendingFixes = update::pendingFixes(tAttempt.mPlan, mParts.mWorkplace.installed());
    mInstalledBytes = tAttempt.mInstallFrom.isValid() ? 0 : installedBytes(tAttempt.mPlan);
    return concluded(mParts, pBest->get());
}

} // namespace tarn::vkservice::update

#include "update/run/Switch.h"

#include "os/AbortFlag.h"
#include "update/Plan.h"
#include "update/Preparation.h"
#include "update/Reporter.h"
#include "update/run/RunParts.h"
#include "update/RunRecords.h"

#include <QtCore/QDateTime>
#include <QtCore/QUuid>

#include <algorithm>

namespace tarn::vkservice::update {

namespace {

bool onlyRepairs(const Plan& pPlan)
{
    return pPlan.failedCount() < pPlan.mPackages.size() &&
           std::all_of(pPlan.mPackages.begin(), pPlan.mPackages.end(), [](const PlannedPackage& pPackage) {
               return pPackage.mFailure || pPackage.mRepair > 0;
           });
}

} // namespace

packages::Manifest nextGeneration(Workplace& pWorkplace, const Plan& pPlan)
{
    const packages::Manifest& tInstalled = pWorkplace.installed();
    packages::Manifest tNext;
    tNext.mGeneration = pWorkplace.generations().nextNumber(tInstalled);
    // Nobody wants to go back to the damaged files of the same packages, so they take no place among those
    // kept.
    tNext.mPrevious = onlyRepairs(pPlan) ? tInstalled.mPrevious : tInstalled.mGeneration;
    tNext.mRunId = QUuid::createUuid().toString(QUuid::WithoutBraces);
    tNext.mRunDate = QDateTime::currentDateTime();
    tNext.mRecords = runRecords(pPlan);
    tNext.mPackages = packagesAfter(tInstalled, pPlan, pWorkplace.folders());
    return tNext;
}

Failure switchTo(RunParts& pParts, const Plan& pPlan)
{
    Workplace& tWorkplace = pParts.mWorkplace;
    const QList<packages::StagedPackage> tStaged = Preparation::staged(pPlan, tWorkplace.folders());
    pParts.mReporter.begin(vkcore::ActivityInstalling, false, tStaged.size(), false);
    const auto tHold = pParts.mRequest.mHoldMachine ? pParts.mRequest.mHoldMachine() : nullptr;
    // From here on until the checks of the packages the run cannot be aborted.
    if (pParts.mAbort.isSet()) {
        return Failure::canceled();
    }
    const packages::Manifest tNext = nextGeneration(tWorkplace, pPlan);
    if (const Failure tFailure = pParts.mTrial.announce(tNext)) {
        return tFailure;
    }
    // Before the sync, which then does not have to write them.
    pParts.mDownloads.remove(pPlan);
    if (const Failure tFailure = tWorkplace.generations().install(tNext, tStaged)) {
        pParts.mTrial.forget();
        return tFailure;
    }
    pParts.mReporter.advance(tStaged.size());
    tWorkplace.setInstalled(tNext);
    pParts.mPrepared.forget();
    if (const Failure tFailure = pParts.mTrial.prove()) {
        return tFailure;
    }
    pParts.findLostIndexes();
    (void)pParts.updateInstallLog(); // it has warned, and the next run tries again
    pParts.forgetOldIndexes();
    return {};
}

} // namespace tarn::vkservice::update

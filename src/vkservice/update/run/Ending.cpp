#include "update/run/Ending.h"

#include "update/FailurePolicy.h"
#include "update/FreeSpace.h"
#include "update/LeftOut.h"
#include "update/Reporter.h"
#include "update/run/Attempt.h"
#include "update/run/RunParts.h"
#include "update/RunTexts.h"

using namespace Qt::StringLiterals;

namespace tarn::vkservice::update {

namespace {

qint64 archiveBytes(const Plan& pPlan, bool pAlsoFailed)
{
    qint64 tBytes = 0;
    for (const PlannedPackage& tPackage : pPlan.mPackages) {
        if (pAlsoFailed || !tPackage.mFailure) {
            addBytes(&tBytes, tPackage.mOffer.mTarget.mLength);
        }
    }
    return tBytes;
}

// The run is not complete: the next one has to look at everything again.
RunResult prepared(const RunParts& pParts, const Attempt& pAttempt)
{
    const Plan& tPlan = pAttempt.mPlan;
    const int tFailed = tPlan.failedCount();
    const QString tText = preparedText(static_cast<int>(tPlan.mPackages.size()) - tFailed,
                                       pParts.mDownloads.received(), pAttempt.mInstallFrom);
    const QString tLeftOut = leftOutText(tPlan.mLeftOut);
    const QString tFailure = tFailed > 0 ? failedPackagesText(tPlan) + u' ' : QString();
    return {.mCode = tFailed > 0 ? failedPackagesCode(tPlan) : ResultSuccess,
            .mText = tFailure + tText + (tLeftOut.isEmpty() ? QString() : u' ' + tLeftOut),
            .mLeftOut = tPlan.mLeftOut,
            .mInstallFrom = pAttempt.mInstallFrom};
}

RunResult complete(RunParts& pParts, Attempt* pAttempt)
{
    const Plan& tPlan = pAttempt->mPlan;
    const int tInstalled = static_cast<int>(tPlan.mPackages.size());
    QString tText =
        successText(tInstalled, pParts.mDownloads.received(), archiveBytes(tPlan, true), tPlan.mLeftOut);
    pParts.mDownloads.clear();
    pParts.forgetOldIndexes(); // a run that was cut off behind its switch may have left some
    if (!tPlan.mBeyondRepair.isEmpty()) {
        const QString tLost = beyondRepairText(tPlan.mBeyondRepair);
        pParts.mReporter.error(tLost, {});
        tText += u' ' + tLost;
    } else {
        pAttempt->mSession->markComplete(pParts.machineState(), {.mPackages = tPlan.mLeftOut,
                                                                 .mWaits = tPlan.mNextTurn.isValid(),
                                                                 .mLookAgain = tPlan.mNextTurn});
    }
    return {
        .mCode = ResultSuccess, .mText = tText, .mInstalledCount = tInstalled, .mLeftOut = tPlan.mLeftOut};
}

} // namespace

RunResult failed(const Failure& pFailure)
{
    return {resultCode(pFailure), failureText(pFailure), 0};
}

RunResult concluded(RunParts& pParts, Attempt* pAttempt)
{
    const Plan& tPlan = pAttempt->mPlan;
    for (const PlannedPackage& tPackage : tPlan.mPackages) {
        if (tPackage.mFailure) {
            pParts.mReporter.error(u"The package %1 could not be updated."_s.arg(tPackage.name()),
                                   tPackage.mFailure.mText);
        }
    }
    if (pAttempt->mInstallFrom.isValid()) {
        return prepared(pParts, *pAttempt);
    }
    const int tFailed = tPlan.failedCount();
    if (tFailed > 0) {
        return {.mCode = failedPackagesCode(tPlan),
                .mText = failedPackagesText(tPlan),
                .mInstalledCount = static_cast<int>(tPlan.mPackages.size()) - tFailed,
                .mLeftOut = tPlan.mLeftOut};
    }
    return complete(pParts, pAttempt);
}

qint64 installedBytes(const Plan& pPlan)
{
    return archiveBytes(pPlan, false);
}

} // namespace tarn::vkservice::update

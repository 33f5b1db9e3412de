#include "update/run/Installation.h"

#include "update/AppWait.h"
#include "update/Reporter.h"
#include "update/run/RunParts.h"
#include "update/run/ServerRound.h"
#include "update/run/Switch.h"
#include "update/RunRecords.h"
#include "update/RunTexts.h"

#include <QtCore/QDateTime>

using namespace Qt::StringLiterals;

namespace tarn::vkservice::update {

Installation::Installation(RunParts& pParts, ServerRound& pServers)
    : mParts(pParts), mServers(pServers), mSwitchTime(pParts.mRequest.mOpeningAt)
{
}

Failure Installation::install(std::unique_ptr<Attempt>* pAttempt)
{
    mParts.mReporter.setFailedCount((*pAttempt)->mPlan.failedCount());
    if (const Failure tFailure = prepareFromAny(pAttempt)) {
        mParts.tidyUp(); // at once: unpacked packages may be what fills the disk
        return tFailure;
    }
    const Plan* tPlan = &(*pAttempt)->mPlan;
    if (!tPlan->mPackages.isEmpty() && tPlan->failedCount() == tPlan->mPackages.size()) {
        mParts.tidyUp();
        logFailedPackages(*tPlan);
        return {};
    }
    if (const Failure tFailure = waitAndSwitch(pAttempt->get())) {
        mParts.tidyUp();
        return tFailure;
    }
    if (!(*pAttempt)->mInstallFrom.isValid()) {
        removeObsolete();
    }
    return {};
}

// Files of this machine that are not as they were installed make a server send more. If it fails then, the
// next one may have it.
Failure Installation::prepareFromAny(std::unique_ptr<Attempt>* pAttempt)
{
    const auto tHasWork = [](const Attempt& pOf) {
        return !pOf.mIsPrepared && pOf.mPlan.failedCount() < pOf.mPlan.mPackages.size();
    };
    while (tHasWork(**pAttempt)) {
        if (const Failure tFailure = prepare(pAttempt->get())) {
            return tFailure;
        }
        const Failure tServersFault = serversFault((*pAttempt)->mPlan);
        if (!tServersFault || mServers.isOver()) {
            return {};
        }
        mServers.giveUp((*pAttempt)->mSession->label(), tServersFault);
        if (const Failure tFailure = mServers.find(pAttempt)) {
            return tFailure;
        }
    }
    return {};
}

Failure Installation::prepare(Attempt* pAttempt)
{
    Plan* tPlan = &pAttempt->mPlan;
    Workplace& tWorkplace = mParts.mWorkplace;
    pAttempt->mIsPrepared = true;
    QSet<QString> tStaged;
    for (const PlannedPackage& tPackage : std::as_const(tPlan->mPackages)) {
        if (tPackage.mIsStaged) {
            tStaged.insert(tPackage.folder(tWorkplace.folders()));
        }
    }
    if (const Failure tFailure =
            tWorkplace.generations().announce(newPackages(*tPlan, tWorkplace.folders()), tStaged)) {
        return tFailure;
    }
    Failure tFailure = pAttempt->mSupply->prepare();
    tPlan->spreadFailures();
    mParts.mReporter.setFailedCount(tPlan->failedCount());
    return tFailure;
}

void Installation::logFailedPackages(const Plan& pPlan)
{
    QString tWarning;
    const Failure tFailure = mParts.mWorkplace.logRun(nextGeneration(mParts.mWorkplace, pPlan), &tWarning);
    mParts.warn(tWarning);
    mParts.warn(tFailure.mText);
}

// The wait for applications ends with the window, which decides once more after it.
Failure Installation::waitAndSwitch(Attempt* pAttempt)
{
    const Plan& tPlan = pAttempt->mPlan;
    if (mSwitchTime.isNow(QDateTime::currentDateTime())) {
        AppWait tWait(mParts.mProcesses, mParts.mWorkplace.installed(), mParts.mWorkplace.folders(), tPlan,
                      mParts.mReporter, mParts.mAbort);
        const Failure tFailure = tWait.wait(
            mSwitchTime.boundedWait(QDateTime::currentDateTime(), mParts.mRequest.mWaitForAppsSeconds));
        const bool tInTime = mSwitchTime.isNow(QDateTime::currentDateTime());
        if (tFailure.mKind == Failure::Kind::Canceled || (tFailure && tInTime)) {
            return tFailure;
        }
        if (tInTime) {
            return switchTo(mParts, tPlan);
        }
    }
    return keepPrepared(pAttempt);
}

// Meanwhile somebody may have joined the run by hand.
Failure Installation::keepPrepared(Attempt* pAttempt)
{
    const Failure tFailure = mParts.mPrepared.keep(pAttempt->mPlan);
    if (!tFailure && mSwitchTime.isNow(QDateTime::currentDateTime())) {
        return waitAndSwitch(pAttempt);
    }
    pAttempt->mInstallFrom = mSwitchTime.next(QDateTime::currentDateTime());
    mParts.tidyUp();
    return tFailure;
}

void Installation::removeObsolete()
{
    Reporter& tReporter = mParts.mReporter;
    tReporter.begin(vkcore::ActivityRemovingObsolete, false, 0, false);
    const auto tProgress = [&tReporter](int pDone, int pTotal) {
        if (pDone == 0) {
            tReporter.begin(vkcore::ActivityRemovingObsolete, false, pTotal, false);
        } else {
            tReporter.advance(1);
        }
    };
    QStringList tInUse;
    mParts.warn(mParts.mWorkplace.removeLeftovers(tProgress, &tInUse).mText);
    if (!tInUse.isEmpty()) {
        tReporter.notify(
            MessageInformation,
            u"These old packages are still in use and will be removed later: %1"_s.arg(tInUse.join(u", "_s)));
    }
}

} // namespace tarn::vkservice::update

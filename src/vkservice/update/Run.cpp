#include "update/Run.h"

#include "os/AbortFlag.h"
#include "update/AppWait.h"
#include "update/FailurePolicy.h"
#include "update/FreeSpace.h"
#include "update/LeftOut.h"
#include "update/MachineState.h"
#include "update/Preparation.h"
#include "update/Reporter.h"
#include "update/RunConfinement.h"
#include "update/RunRecords.h"
#include "update/RunTexts.h"

#include <QtCore/QDateTime>
#include <QtCore/QUuid>

using namespace Qt::StringLiterals;

namespace tarn::vkservice::update {

namespace {

// Space for metadata and notes; the space for packages is only known after these were read.
constexpr qint64 sStateBytes = 4 * 1024 * 1024;

qint64 archiveBytes(const Plan& pPlan)
{
    qint64 tBytes = 0;
    for (const PlannedPackage& tPackage : pPlan.mPackages) {
        addBytes(&tBytes, tPackage.mOffer.mTarget.mLength);
    }
    return tBytes;
}

qint64 installedBytes(const Plan& pPlan)
{
    qint64 tBytes = 0;
    for (const PlannedPackage& tPackage : pPlan.mPackages) {
        if (!tPackage.mFailure) {
            addBytes(&tBytes, tPackage.mOffer.mTarget.mLength);
        }
    }
    return tBytes;
}

} // namespace

Run::Run(const RunRequest& pRequest, os::FileSystem& pFileSystem, os::ProcessList& pProcesses,
         Reporter& pReporter, const os::AbortFlag& pAbort, os::CheckRunner& pChecks)
    : mRequest(pRequest), mFileSystem(pFileSystem), mProcesses(pProcesses), mReporter(pReporter),
      mAbort(pAbort), mSwitchTime(pRequest.mOpeningAt), mWorkplace(pFileSystem, pProcesses, pRequest),
      mDownloads(pFileSystem, pRequest.mStateDir, pReporter, pAbort),
      mIndexes(pFileSystem, pRequest.mStateDir),
      mPrepared({mFileSystem, mWorkplace, mIndexes, mReporter, mAbort}),
      mTrial(pRequest, pFileSystem, pChecks, mWorkplace, pReporter, pAbort)
{
}

void Run::warn(const QString& pText)
{
    if (!pText.isEmpty()) {
        mReporter.notify(MessageWarning, pText);
    }
}

Failure Run::updateInstallLog()
{
    QString tWarning;
    Failure tFailure = mWorkplace.updateInstallLog(&tWarning);
    warn(tWarning);
    warn(tFailure.mText);
    return tFailure;
}

RunResult Run::run()
{
    mReporter.begin(vkcore::ActivityDownloading, true, 0, true);
    if (const Failure tFailure = mWorkplace.open(packages::NewRoots::Make)) {
        return failed(tFailure);
    }
    for (const QString& tWarning : mWorkplace.warnings()) {
        warn(tWarning + u'.');
    }
    if (const Failure tFailure = confineRun(mRequest, mWorkplace.writableFolders())) {
        return failed(tFailure);
    }
    const Failure tTrial = mTrial.resume(true);
    warn(mWorkplace.tidyUp());
    if (tTrial) {
        return failed(tTrial);
    }
    const Failure tUnlogged = updateInstallLog();
    if (mRequest.mOnlyTrial) {
        return {ResultSuccess, u"The installed packages have passed their checks."_s, 0};
    }
    if (const Failure tFailure = loadRefusals()) {
        return failed(tFailure);
    }
    if (const Failure tFailure = mDownloads.open()) {
        return failed(tFailure);
    }
    if (const Failure tFailure = mIndexes.open()) {
        return failed(tFailure);
    }
    findLostIndexes();
    if (const Failure tFailure = checkFreeSpace(mFileSystem, {{mRequest.mStateDir, sStateBytes}})) {
        return failed(tFailure);
    }
    // Only the current manifest records that run, and another generation would make its removal more likely.
    if (tUnlogged) {
        return failed(tUnlogged);
    }
    std::unique_ptr<Attempt> tBest;
    if (const Failure tFailure = findPackages(&tBest)) {
        return failed(tFailure);
    }
    if (!tBest) {
        return allServersFailed();
    }
    mPendingFixes = update::pendingFixes(tBest->mPlan, mWorkplace.installed());
    if (!tBest->mPlan.mPackages.isEmpty() || mWorkplace.needsNewGeneration()) {
        if (const Failure tFailure = installPackages(&tBest)) {
            return failed(tFailure);
        }
    }
    return finish(tBest.get());
}

// They are in a file, which this thread writes as well.
Failure Run::loadRefusals()
{
    const auto tLoaded = packages::Refusals::load(mFileSystem, mRequest.mStateDir);
    if (!tLoaded && tLoaded.failure().mKind != Failure::Kind::Content) {
        return tLoaded.failure();
    }
    warn(tLoaded ? QString() : tLoaded.failure().mText + u'.');
    const packages::Refusals tRefusals = tLoaded.valueOr({});
    for (const packages::Refusal& tRefusal : tRefusals.all()) {
        mRequest.mChoices.mRefused.insert(tRefusal.mHash.toHex());
    }
    return {};
}

Failure Run::findPackages(std::unique_ptr<Attempt>* pBest)
{
    while (mNextServer < mRequest.mServers.size()) {
        const ServerAccess& tServer = mRequest.mServers.at(mNextServer++);
        const bool tIsLast = mNextServer == mRequest.mServers.size();
        auto tAttempt = std::make_unique<Attempt>();
        Failure tFailure = askServer(tServer, &tAttempt);
        if (!tFailure) {
            tFailure = fetchPackages(tAttempt.get(), pBest->get());
        }
        if (tFailure && !mayAskAnotherServer(tFailure)) {
            return tFailure;
        }
        if (tFailure) {
            serverFailed(serverLabel(tServer), tFailure, tIsLast);
            continue;
        }
        const Failure tServersFault = serversFault(tAttempt->mPlan);
        // The results of an earlier server are outdated now.
        if (*pBest && (*pBest)->mSession->snapshotVersion() != tAttempt->mSession->snapshotVersion()) {
            pBest->reset();
        }
        if (!*pBest || tAttempt->mPlan.failedCount() < (*pBest)->mPlan.failedCount()) {
            *pBest = std::move(tAttempt);
        }
        if ((*pBest)->mPlan.failedCount() == 0 || !tServersFault) {
            return {};
        }
        serverFailed(serverLabel(tServer), tServersFault, tIsLast);
    }
    return {};
}

Failure Run::askServer(const ServerAccess& pServer, std::unique_ptr<Attempt>* pAttempt)
{
    mReporter.begin(vkcore::ActivityDownloading, true, 0, true);
    mReporter.setText(serverLabel(pServer));
    auto tSession = std::make_unique<ServerSession>(mRequest, pServer, state(), mFileSystem, mAbort);
    QStringList tWarnings;
    if (const Failure tFailure = tSession->open(&tWarnings)) {
        return tFailure;
    }
    for (const QString& tWarning : tWarnings) {
        warn(u"The server %1 offers an unusable package. %2"_s.arg(tSession->label(), tWarning));
    }
    (*pAttempt)->mPlan = makePlan(tSession->offers(), mWorkplace.installed(), mWorkplace.folders(),
                                  {mRequest.mAppLanguage, mRequest.mDataLanguage}, mRequest.mDamaged,
                                  mRequest.mChoices, tSession->now());
    if (tSession->hasNothingNew()) {
        (*pAttempt)->mPlan.mLeftOut = tSession->leftOutBefore();
    }
    (*pAttempt)->mSession = std::move(tSession);
    return {};
}

// Without its index a package can't be proven, and its next update costs more.
void Run::findLostIndexes()
{
    mLostIndexes.clear();
    for (const packages::InstalledPackage& tPackage : mWorkplace.installed().mPackages) {
        if (tPackage.mInfo.mIndex && !mIndexes.has(tPackage.mInfo.mIndex->mText)) {
            mLostIndexes.append(tPackage);
        }
    }
}

Failure Run::fetchPackages(Attempt* pAttempt, const Attempt* pEarlier)
{
    Plan& tPlan = pAttempt->mPlan;
    if (pEarlier != nullptr) {
        Preparation::takeOver(pEarlier->mPlan, mWorkplace.folders(), &tPlan);
    } else if (const Failure tFailure = mPrepared.adopt(&tPlan)) {
        return tFailure;
    }
    mDownloads.keep(tPlan);
    pAttempt->mSupply = std::make_unique<Supply>(SupplyParts{.mFileSystem = mFileSystem,
                                                             .mFolders = mWorkplace.folders(),
                                                             .mInstalled = mWorkplace.installed(),
                                                             .mDownloads = mDownloads,
                                                             .mBudget = mBudget,
                                                             .mIndexes = mIndexes,
                                                             .mReporter = mReporter,
                                                             .mAbort = mAbort},
                                                 pAttempt->mSession->source(), tPlan);
    if (const Failure tFailure = pAttempt->mSupply->fetchLostIndexes(&mLostIndexes)) {
        return tFailure;
    }
    if (tPlan.failedCount() == tPlan.mPackages.size()) {
        return {};
    }
    if (const Failure tFailure = pAttempt->mSupply->fetch()) {
        return tFailure;
    }
    tPlan.spreadFailures();
    return {};
}

void Run::serverFailed(const QString& pServer, const Failure& pFailure, bool pIsLast)
{
    mServerTroubles.push_back({pServer, pFailure});
    // The result of the run reports the failure of the last server, which may be the only one.
    if (!pIsLast) {
        mReporter.notify(MessageWarning, u"The server %1 can't be used, trying the next one."_s.arg(pServer),
                         pFailure.mText);
    }
}

Failure Run::installPackages(std::unique_ptr<Attempt>* pAttempt)
{
    mReporter.setFailedCount((*pAttempt)->mPlan.failedCount());
    if (const Failure tFailure = prepareFromAny(pAttempt)) {
        warn(mWorkplace.tidyUp()); // at once: unpacked packages may be what fills the disk
        return tFailure;
    }
    const Plan* tPlan = &(*pAttempt)->mPlan;
    if (!tPlan->mPackages.isEmpty() && tPlan->failedCount() == tPlan->mPackages.size()) {
        warn(mWorkplace.tidyUp());
        QString tWarning;
        const Failure tFailure = mWorkplace.logRun(nextGeneration(*tPlan), &tWarning);
        warn(tWarning);
        warn(tFailure.mText);
        return {};
    }
    if (const Failure tFailure = waitAndSwitch(pAttempt->get())) {
        warn(mWorkplace.tidyUp());
        return tFailure;
    }
    if (!(*pAttempt)->mInstallFrom.isValid()) {
        removeObsolete();
    }
    return {};
}

// The wait for applications ends with the window, which decides once more after it.
Failure Run::waitAndSwitch(Attempt* pAttempt)
{
    const Plan& tPlan = pAttempt->mPlan;
    if (mSwitchTime.isNow(QDateTime::currentDateTime())) {
        AppWait tWait(mProcesses, mWorkplace.installed(), mWorkplace.folders(), tPlan, mReporter, mAbort);
        const Failure tFailure =
            tWait.wait(mSwitchTime.boundedWait(QDateTime::currentDateTime(), mRequest.mWaitForAppsSeconds));
        const bool tInTime = mSwitchTime.isNow(QDateTime::currentDateTime());
        if (tFailure.mKind == Failure::Kind::Canceled || (tFailure && tInTime)) {
            return tFailure;
        }
        if (tInTime) {
            return switchToNew(tPlan);
        }
    }
    return keepPrepared(pAttempt);
}

// Meanwhile somebody may have joined the run by hand.
Failure Run::keepPrepared(Attempt* pAttempt)
{
    const Failure tFailure = mPrepared.keep(pAttempt->mPlan);
    if (!tFailure && mSwitchTime.isNow(QDateTime::currentDateTime())) {
        return waitAndSwitch(pAttempt);
    }
    pAttempt->mInstallFrom = mSwitchTime.next(QDateTime::currentDateTime());
    warn(mWorkplace.tidyUp());
    return tFailure;
}

// Files of this machine that are not as they were installed make a server send more. If it fails then, the
// next one may have it.
Failure Run::prepareFromAny(std::unique_ptr<Attempt>* pAttempt)
{
    const auto tHasWork = [](const Attempt& pOf) {
        return !pOf.mIsPrepared && pOf.mPlan.failedCount() < pOf.mPlan.mPackages.size();
    };
    while (tHasWork(**pAttempt)) {
        if (const Failure tFailure = prepare(pAttempt->get())) {
            return tFailure;
        }
        const Failure tServersFault = serversFault((*pAttempt)->mPlan);
        if (!tServersFault || mNextServer == mRequest.mServers.size()) {
            return {};
        }
        serverFailed((*pAttempt)->mSession->label(), tServersFault, false);
        if (const Failure tFailure = findPackages(pAttempt)) {
            return tFailure;
        }
    }
    return {};
}

Failure Run::prepare(Attempt* pAttempt)
{
    Plan* tPlan = &pAttempt->mPlan;
    pAttempt->mIsPrepared = true;
    QSet<QString> tStaged;
    for (const PlannedPackage& tPackage : std::as_const(tPlan->mPackages)) {
        if (tPackage.mIsStaged) {
            tStaged.insert(tPackage.folder(mWorkplace.folders()));
        }
    }
    if (const Failure tFailure =
            mWorkplace.generations().announce(newPackages(*tPlan, mWorkplace.folders()), tStaged)) {
        return tFailure;
    }
    Failure tFailure = pAttempt->mSupply->prepare();
    tPlan->spreadFailures();
    mReporter.setFailedCount(tPlan->failedCount());
    return tFailure;
}

packages::Manifest Run::nextGeneration(const Plan& pPlan)
{
    packages::Manifest tNext;
    tNext.mGeneration = mWorkplace.generations().nextNumber(mWorkplace.installed());
    tNext.mPrevious = mWorkplace.installed().mGeneration;
    tNext.mRunId = QUuid::createUuid().toString(QUuid::WithoutBraces);
    tNext.mRunDate = QDateTime::currentDateTime();
    tNext.mRecords = runRecords(pPlan);
    tNext.mPackages = packagesAfter(mWorkplace.installed(), pPlan, mWorkplace.folders());
    return tNext;
}

Failure Run::switchToNew(const Plan& pPlan)
{
    const QList<packages::StagedPackage> tStaged = Preparation::staged(pPlan, mWorkplace.folders());
    mReporter.begin(vkcore::ActivityInstalling, false, tStaged.size(), false);
    const auto tHold = mRequest.mHoldMachine ? mRequest.mHoldMachine() : nullptr;
    // From here on until the checks of the packages the run cannot be aborted.
    if (mAbort.isSet()) {
        return Failure::canceled();
    }
    const packages::Manifest tNext = nextGeneration(pPlan);
    if (const Failure tFailure = mTrial.announce(tNext)) {
        return tFailure;
    }
    // Before the sync, which then does not have to write them.
    mDownloads.remove(pPlan);
    if (const Failure tFailure = mWorkplace.generations().install(tNext, tStaged)) {
        mTrial.forget();
        return tFailure;
    }
    mReporter.advance(tStaged.size());
    mWorkplace.setInstalled(tNext);
    mPrepared.forget();
    if (const Failure tFailure = mTrial.prove()) {
        return tFailure;
    }
    findLostIndexes();
    (void)updateInstallLog(); // it has warned, and the next run tries again
    forgetOldIndexes();
    return {};
}

void Run::forgetOldIndexes()
{
    packages::GenerationReader& tReader = mWorkplace.generations().reader();
    QList<packages::InstalledPackage> tPackages = mWorkplace.installed().mPackages;
    for (const qint64 tNumber : tReader.before(mWorkplace.installed())) {
        packages::Manifest tBefore;
        (void)tReader.manifest(tNumber, &tBefore); // then it has none
        tPackages += tBefore.mPackages;
    }
    QSet<QByteArray> tTexts;
    for (const auto& tPackage : std::as_const(tPackages)) {
        if (tPackage.mInfo.mIndex) {
            tTexts.insert(tPackage.mInfo.mIndex->mText.mHash.toHex());
        }
    }
    mIndexes.keepOnly(tTexts);
}

void Run::removeObsolete()
{
    mReporter.begin(vkcore::ActivityRemovingObsolete, false, 0, false);
    const auto tProgress = [this](int pDone, int pTotal) {
        if (pDone == 0) {
            mReporter.begin(vkcore::ActivityRemovingObsolete, false, pTotal, false);
        } else {
            mReporter.advance(1);
        }
    };
    QStringList tInUse;
    warn(mWorkplace.removeLeftovers(tProgress, &tInUse).mText);
    if (!tInUse.isEmpty()) {
        mReporter.notify(
            MessageInformation,
            u"These old packages are still in use and will be removed later: %1"_s.arg(tInUse.join(u", "_s)));
    }
}

QByteArray Run::state() const
{
    return machineState(mRequest, mWorkplace, mLostIndexes);
}

RunResult Run::failed(const Failure& pFailure) const
{
    return {resultCode(pFailure), failureText(pFailure), 0};
}

QStringList Run::unusableServers() const
{
    QStringList tTexts;
    for (const ServerTrouble& tServer : mServerTroubles) {
        tTexts.append(u"%1: %2"_s.arg(tServer.mServer, tServer.mFailure.mText));
    }
    return tTexts;
}

RunResult Run::allServersFailed() const
{
    if (mRequest.mServers.isEmpty()) {
        return failed({Failure::Kind::NoServer, mRequest.mWhyNoServer});
    }
    // From the least to the most important for users.
    static const QList<ResultCode> sWeights{ResultNoServer, ResultUnreachable, ResultInstallFailed,
                                            ResultVerificationFailed};
    Failure tWorst{Failure::Kind::NoServer, QString()};
    for (const ServerTrouble& tServer : mServerTroubles) {
        const bool tIsAsBad = resultCode(tServer.mFailure) == resultCode(tWorst);
        if (sWeights.indexOf(resultCode(tServer.mFailure)) > sWeights.indexOf(resultCode(tWorst)) ||
            (tIsAsBad && tWorst.mKind == Failure::Kind::OutOfDate)) {
            tWorst = tServer.mFailure;
        }
    }
    // A server without any of the files of a repository counts as unreachable.
    if (tWorst.mKind == Failure::Kind::NotFound) {
        tWorst.mKind = Failure::Kind::Unreachable;
    }
    tWorst.mText = unusableServers().join(u"; "_s);
    return failed(tWorst);
}

// The run is not complete: the next one has to look at everything again.
RunResult Run::prepared(const Attempt& pAttempt) const
{
    const Plan& tPlan = pAttempt.mPlan;
    const int tFailed = tPlan.failedCount();
    const QString tText = preparedText(static_cast<int>(tPlan.mPackages.size()) - tFailed,
                                       mDownloads.received(), pAttempt.mInstallFrom);
    const QString tLeftOut = leftOutText(tPlan.mLeftOut);
    const QString tFailure = tFailed > 0 ? failedPackagesText(tPlan) + u' ' : QString();
    return {.mCode = tFailed > 0 ? failedPackagesCode(tPlan) : ResultSuccess,
            .mText = tFailure + tText + (tLeftOut.isEmpty() ? QString() : u' ' + tLeftOut),
            .mLeftOut = tPlan.mLeftOut,
            .mInstallFrom = pAttempt.mInstallFrom};
}

RunResult Run::finish(Attempt* pAttempt)
{
    const Plan& tPlan = pAttempt->mPlan;
    mPendingFixes = update::pendingFixes(tPlan, mWorkplace.installed());
    for (const PlannedPackage& tPackage : tPlan.mPackages) {
        if (tPackage.mFailure) {
            mReporter.error(u"The package %1 could not be updated."_s.arg(tPackage.name()),
                            tPackage.mFailure.mText);
        }
    }
    const int tFailed = tPlan.failedCount();
    const int tInstalled = static_cast<int>(tPlan.mPackages.size()) - tFailed;
    if (pAttempt->mInstallFrom.isValid()) {
        return prepared(*pAttempt);
    }
    mInstalledBytes = installedBytes(tPlan);
    if (tFailed > 0) {
        return {.mCode = failedPackagesCode(tPlan),
                .mText = failedPackagesText(tPlan),
                .mInstalledCount = tInstalled,
                .mLeftOut = tPlan.mLeftOut};
    }
    QString tText = successText(tInstalled, mDownloads.received(), archiveBytes(tPlan), tPlan.mLeftOut);
    mDownloads.clear();
    forgetOldIndexes(); // a run that was cut off behind its switch may have left some
    if (!tPlan.mBeyondRepair.isEmpty()) {
        const QString tLost = beyondRepairText(tPlan.mBeyondRepair);
        mReporter.error(tLost, {});
        tText += u' ' + tLost;
    } else {
        pAttempt->mSession->markComplete(state(), {.mPackages = tPlan.mLeftOut,
                                                   .mWaits = tPlan.mNextTurn.isValid(),
                                                   .mLookAgain = tPlan.mNextTurn});
    }
    return {
        .mCode = ResultSuccess, .mText = tText, .mInstalledCount = tInstalled, .mLeftOut = tPlan.mLeftOut};
}

} // namespace tarn::vkservice::update

#include "update/Run.h"

#include "os/AbortFlag.h"
#include "tuf/Hashes.h"
#include "update/AppWait.h"
#include "update/FailurePolicy.h"
#include "update/FreeSpace.h"
#include "update/Preparation.h"
#include "update/Reporter.h"
#include "update/RunConfinement.h"
#include "update/RunRecords.h"
#include "update/RunTexts.h"

#include <QtCore/QDateTime>
#include <QtCore/QUuid>

#include <algorithm>

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

} // namespace

Run::Run(const RunRequest& pRequest, os::FileSystem& pFileSystem, os::ProcessList& pProcesses,
         Reporter& pReporter, const os::AbortFlag& pAbort)
    : mRequest(pRequest), mFileSystem(pFileSystem), mProcesses(pProcesses), mReporter(pReporter),
      mAbort(pAbort), mSwitchTime(pRequest.mOpeningAt), mWorkplace(pFileSystem, pProcesses, pRequest),
      mDownloads(pFileSystem, pRequest.mStateDir, pReporter, pAbort),
      mIndexes(pFileSystem, pRequest.mStateDir),
      mPrepared({mFileSystem, mWorkplace, mIndexes, mReporter, mAbort})
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
    warn(mWorkplace.tidyUp());
    const Failure tUnlogged = updateInstallLog();
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
    if (!tBest->mPlan.mPackages.isEmpty() || mWorkplace.needsNewGeneration()) {
        if (const Failure tFailure = installPackages(tBest.get())) {
            return failed(tFailure);
        }
    }
    return finish(tBest.get());
}

Failure Run::findPackages(std::unique_ptr<Attempt>* pBest)
{
    for (qsizetype tIndex = 0; tIndex < mRequest.mServers.size(); ++tIndex) {
        const ServerAccess& tServer = mRequest.mServers.at(tIndex);
        const bool tIsLast = tIndex + 1 == mRequest.mServers.size();
        auto tAttempt = std::make_unique<Attempt>();
        Failure tFailure = askServer(tServer, &tAttempt);
        if (!tFailure) {
            tFailure = fetchPackages(tAttempt.get());
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
    auto tSession = std::make_unique<ServerSession>(mRequest, pServer, machineState(), mFileSystem, mAbort);
    QStringList tWarnings;
    if (const Failure tFailure = tSession->open(&tWarnings)) {
        return tFailure;
    }
    for (const QString& tWarning : tWarnings) {
        warn(u"The server %1 offers an unusable package. %2"_s.arg(tSession->label(), tWarning));
    }
    (*pAttempt)->mPlan = makePlan(tSession->offers(), mWorkplace.installed(), mWorkplace.folders(),
                                  {mRequest.mAppLanguage, mRequest.mDataLanguage}, mRequest.mDamaged);
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

Failure Run::fetchPackages(Attempt* pAttempt)
{
    Plan& tPlan = pAttempt->mPlan;
    mDownloads.keep(tPlan);
    if (const Failure tFailure = mPrepared.adopt(&tPlan)) {
        return tFailure;
    }
    pAttempt->mSupply = std::make_unique<Supply>(SupplyParts{.mFileSystem = mFileSystem,
                                                             .mFolders = mWorkplace.folders(),
                                                             .mInstalled = mWorkplace.installed(),
                                                             .mDownloads = mDownloads,
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

Failure Run::installPackages(Attempt* pAttempt)
{
    Plan* tPlan = &pAttempt->mPlan;
    mReporter.setFailedCount(tPlan->failedCount());
    if (tPlan->failedCount() < tPlan->mPackages.size()) {
        if (const Failure tFailure = prepare(pAttempt)) {
            warn(mWorkplace.tidyUp()); // at once: unpacked packages may be what fills the disk
            return tFailure;
        }
    }
    if (!tPlan->mPackages.isEmpty() && tPlan->failedCount() == tPlan->mPackages.size()) {
        warn(mWorkplace.tidyUp());
        QString tWarning;
        const Failure tFailure = mWorkplace.logRun(nextGeneration(*tPlan), &tWarning);
        warn(tWarning);
        warn(tFailure.mText);
        return {};
    }
    if (const Failure tFailure = waitAndSwitch(pAttempt)) {
        warn(mWorkplace.tidyUp());
        return tFailure;
    }
    if (!pAttempt->mInstallFrom.isValid()) {
        mPrepared.forget();
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

Failure Run::prepare(Attempt* pAttempt)
{
    Plan* tPlan = &pAttempt->mPlan;
    if (const Failure tFailure = mWorkplace.generations().announce(newPackages(*tPlan, mWorkplace.folders()),
                                                                   mPrepared.folders())) {
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
    // The last check: from here on the run cannot be aborted.
    if (mAbort.isSet()) {
        return Failure::canceled();
    }
    const packages::Manifest tNext = nextGeneration(pPlan);
    // Before the sync, which then does not have to write them.
    mDownloads.remove(pPlan);
    if (const Failure tFailure = mWorkplace.generations().install(tNext, tStaged)) {
        return tFailure;
    }
    mReporter.advance(tStaged.size());
    mWorkplace.setInstalled(tNext);
    findLostIndexes();
    (void)updateInstallLog(); // it has warned, and the next run tries again
    forgetOldIndexes();
    return {};
}

void Run::forgetOldIndexes()
{
    packages::Manifest tPrevious;
    (void)mWorkplace.generations().reader().manifest(mWorkplace.installed().mPrevious,
                                                     &tPrevious); // then it has none
    QSet<QByteArray> tTexts;
    for (const auto& tPackage : mWorkplace.installed().mPackages + tPrevious.mPackages) {
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

// The inputs of a plan besides the offers.
QByteArray Run::machineState() const
{
    QStringList tParts{mRequest.mAppLanguage,
                       mRequest.mDataLanguage,
                       mWorkplace.folders().installDir(),
                       mWorkplace.folders().root(packages::Kind::Data),
                       QString::number(mWorkplace.installed().mGeneration),
                       mWorkplace.installed().mRunId};
    for (const packages::InstalledPackage& tPackage : mLostIndexes) {
        tParts.append(u"no index "_s + tPackage.mFolder);
    }
    for (const packages::InstalledPackage& tPackage : mWorkplace.installed().mPackages) {
        tParts.append(tPackage.mFolder);
        if (mRequest.mDamaged.contains(tPackage.mFolder)) {
            tParts.append(u"damaged"_s);
        }
    }
    return tuf::sha256(tParts.join(u'\n').toUtf8());
}

RunResult Run::failed(const Failure& pFailure) const
{
    return {resultCode(pFailure), failureText(pFailure), 0};
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
    QStringList tTexts;
    for (const ServerTrouble& tServer : mServerTroubles) {
        tTexts.append(u"%1: %2"_s.arg(tServer.mServer, tServer.mFailure.mText));
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
    tWorst.mText = tTexts.join(u"; "_s);
    return failed(tWorst);
}

// The run is not complete: the next one has to look at everything again.
RunResult Run::prepared(const Attempt& pAttempt) const
{
    const Plan& tPlan = pAttempt.mPlan;
    const int tFailed = tPlan.failedCount();
    const QString tText = preparedText(static_cast<int>(tPlan.mPackages.size()) - tFailed,
                                       mDownloads.received(), pAttempt.mInstallFrom);
    const QString tFailure = tFailed > 0 ? failedPackagesText(tPlan) + u' ' : QString();
    return {.mCode = tFailed > 0 ? failedPackagesCode(tPlan) : ResultSuccess,
            .mText = tFailure + tText,
            .mInstallFrom = pAttempt.mInstallFrom};
}

RunResult Run::finish(Attempt* pAttempt)
{
    const Plan& tPlan = pAttempt->mPlan;
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
    if (tFailed > 0) {
        return {failedPackagesCode(tPlan), failedPackagesText(tPlan), tInstalled};
    }
    mDownloads.clear();
    if (!tPlan.mBeyondRepair.isEmpty()) {
        const QString tText = beyondRepairText(tPlan.mBeyondRepair);
        mReporter.error(tText, {});
        return {ResultSuccess,
                successText(tInstalled, mDownloads.received(), archiveBytes(tPlan)) + u' ' + tText,
                tInstalled};
    }
    pAttempt->mSession->markComplete(machineState());
    return {ResultSuccess, successText(tInstalled, mDownloads.received(), archiveBytes(tPlan)), tInstalled};
}

} // namespace tarn::vkservice::update

#include "update/Run.h"

#include "os/AbortFlag.h"
#include "tuf/Hashes.h"
#include "update/AppWait.h"
#include "update/FreeSpace.h"
#include "update/Preparation.h"
#include "update/RunConfinement.h"
#include "update/RunRecords.h"
#include "update/RunTexts.h"

#include <QtCore/QDateTime>
#include <QtCore/QUuid>

#include <algorithm>

using namespace Qt::StringLiterals;

namespace tarn::vkservice::update {

namespace {

// Room for metadata and notes; what the packages take is known only when these are read.
constexpr qint64 sStateBytes = 4 * 1024 * 1024;

} // namespace

Run::Run(const RunRequest& pRequest, os::FileSystem& pFileSystem, os::ProcessList& pProcesses,
         Reporter& pReporter, const os::AbortFlag& pAbort)
    : mRequest(pRequest), mFileSystem(pFileSystem), mProcesses(pProcesses), mReporter(pReporter),
      mAbort(pAbort), mWorkplace(pFileSystem, pProcesses, pRequest),
      mDownloads(pFileSystem, pRequest.mStateDir, pReporter, pAbort)
{
}

void Run::warn(const QString& pText)
{
    if (!pText.isEmpty()) {
        mReporter.notify(MessageWarning, pText);
    }
}

os::Failure Run::updateInstallLog()
{
    QString tWarning;
    os::Failure tFailure = mWorkplace.updateInstallLog(&tWarning);
    warn(tWarning);
    warn(tFailure.mText);
    return tFailure;
}

RunResult Run::run()
{
    mReporter.begin(vkcore::ActivityDownloading, true, 0, true);
    if (const Trouble tTrouble = mWorkplace.open(packages::NewRoots::Make)) {
        return failed(tTrouble);
    }
    for (const QString& tWarning : mWorkplace.warnings()) {
        warn(tWarning + u'.');
    }
    if (const os::Failure tFailure = confineRun(mRequest, mWorkplace.writableFolders())) {
        return failed(Trouble::from(tFailure));
    }
    warn(mWorkplace.tidyUp());
    const os::Failure tUnlogged = updateInstallLog();
    Trouble tTrouble = mDownloads.open();
    if (!tTrouble) {
        tTrouble = checkFreeSpace(mFileSystem, {{mRequest.mStateDir, sStateBytes}});
    }
    // Only the current manifest knows of that run, and another generation would bring its end nearer.
    if (!tTrouble) {
        tTrouble = Trouble::from(tUnlogged);
    }
    std::unique_ptr<Attempt> tBest;
    if (!tTrouble) {
        tTrouble = findPackages(&tBest);
    }
    if (tTrouble) {
        return failed(tTrouble);
    }
    if (!tBest) {
        return allServersFailed();
    }
    if (!tBest->mPlan.mPackages.isEmpty() || mWorkplace.needsNewGeneration()) {
        tTrouble = installPackages(&tBest->mPlan);
    }
    return tTrouble ? failed(tTrouble) : finish(tBest.get());
}

Trouble Run::findPackages(std::unique_ptr<Attempt>* pBest)
{
    for (qsizetype tIndex = 0; tIndex < mRequest.mServers.size(); ++tIndex) {
        const ServerAccess& tServer = mRequest.mServers.at(tIndex);
        const bool tIsLast = tIndex + 1 == mRequest.mServers.size();
        auto tAttempt = std::make_unique<Attempt>();
        Trouble tTrouble = askServer(tServer, &tAttempt);
        if (!tTrouble) {
            tTrouble = fetchPackages(tAttempt.get());
        }
        if (tTrouble && !tTrouble.mayAskAnotherServer()) {
            return tTrouble;
        }
        if (tTrouble) {
            serverFailed(serverLabel(tServer), tTrouble, tIsLast);
            continue;
        }
        const Trouble tServersFault = serversFault(tAttempt->mPlan);
        // What an earlier server had is out of date by now.
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

Trouble Run::askServer(const ServerAccess& pServer, std::unique_ptr<Attempt>* pAttempt)
{
    mReporter.begin(vkcore::ActivityDownloading, true, 0, true);
    mReporter.setText(serverLabel(pServer));
    auto tSession = std::make_unique<ServerSession>(mRequest, pServer, machineState(), mFileSystem, mAbort);
    QStringList tWarnings;
    if (const Trouble tTrouble = tSession->open(&tWarnings)) {
        return tTrouble;
    }
    for (const QString& tWarning : tWarnings) {
        warn(u"The server %1 offers what is not a usable package. %2"_s.arg(tSession->label(), tWarning));
    }
    (*pAttempt)->mPlan = makePlan(tSession->offers(), mWorkplace.installed(), mWorkplace.folders(),
                                  {mRequest.mAppLanguage, mRequest.mDataLanguage});
    (*pAttempt)->mSession = std::move(tSession);
    return {};
}

Trouble Run::fetchPackages(Attempt* pAttempt)
{
    Plan& tPlan = pAttempt->mPlan;
    mDownloads.keep(tPlan);
    if (tPlan.failedCount() == tPlan.mPackages.size()) {
        return {};
    }
    if (const Trouble tTrouble = checkSpace(tPlan)) {
        return tTrouble;
    }
    if (const Trouble tTrouble = mDownloads.fetch(pAttempt->mSession->source(), &tPlan)) {
        return tTrouble;
    }
    tPlan.spreadTroubles();
    return {};
}

Trouble Run::checkSpace(const Plan& pPlan)
{
    QList<SpaceNeed> tNeeds = unpackingNeeds(pPlan, mWorkplace.folders());
    tNeeds.append({mDownloads.folder(), mDownloads.bytesToCome(pPlan)});
    return checkFreeSpace(mFileSystem, tNeeds);
}

void Run::serverFailed(const QString& pServer, const Trouble& pTrouble, bool pIsLast)
{
    mServerTroubles.push_back({pServer, pTrouble});
    // That of the last one, and with it of the only one, stands in the result.
    if (!pIsLast) {
        mReporter.notify(MessageWarning, u"The server %1 can't be used, trying the next one."_s.arg(pServer),
                         pTrouble.mText);
    }
}

Trouble Run::installPackages(Plan* pPlan)
{
    mReporter.setFailedCount(pPlan->failedCount());
    if (pPlan->failedCount() < pPlan->mPackages.size()) {
        if (const Trouble tTrouble = prepare(pPlan)) {
            warn(mWorkplace.tidyUp()); // at once: unpacked packages may be what fills the disk
            return tTrouble;
        }
    }
    if (!pPlan->mPackages.isEmpty() && pPlan->failedCount() == pPlan->mPackages.size()) {
        warn(mWorkplace.tidyUp());
        QString tWarning;
        const os::Failure tFailure = mWorkplace.logRun(nextGeneration(*pPlan), &tWarning);
        warn(tWarning);
        warn(tFailure.mText);
        return {};
    }
    if (const Trouble tTrouble = waitAndSwitch(*pPlan)) {
        warn(mWorkplace.tidyUp());
        return tTrouble;
    }
    removeObsolete();
    return {};
}

Trouble Run::waitAndSwitch(const Plan& pPlan)
{
    AppWait tWait(mProcesses, mWorkplace.installed(), mWorkplace.folders(), pPlan, mReporter, mAbort);
    const Trouble tTrouble = tWait.wait(mRequest.mWaitForAppsSeconds);
    return tTrouble ? tTrouble : switchToNew(pPlan);
}

Trouble Run::prepare(Plan* pPlan)
{
    if (const os::Failure tFailure =
            mWorkplace.generations().announce(newPackages(*pPlan, mWorkplace.folders()))) {
        return Trouble::from(tFailure);
    }
    Preparation tPreparation(mFileSystem, mWorkplace.folders(), mReporter, mAbort);
    Trouble tTrouble =
        tPreparation.unpack(pPlan, [this](const Offer& pOffer) { return mDownloads.pathOf(pOffer); });
    pPlan->spreadTroubles();
    mReporter.setFailedCount(pPlan->failedCount());
    return tTrouble;
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

Trouble Run::switchToNew(const Plan& pPlan)
{
    const QList<packages::StagedPackage> tStaged = Preparation::staged(pPlan, mWorkplace.folders());
    mReporter.begin(vkcore::ActivityInstalling, false, tStaged.size(), false);
    // From here on the run goes to its end.
    if (mAbort.isSet()) {
        return Trouble::canceled();
    }
    const packages::Manifest tNext = nextGeneration(pPlan);
    // Before the sync, which then has them not to write.
    mDownloads.remove(pPlan);
    if (const os::Failure tFailure = mWorkplace.generations().install(tNext, tStaged)) {
        return Trouble::from(tFailure);
    }
    mReporter.advance(tStaged.size());
    mWorkplace.setInstalled(tNext);
    updateInstallLog();
    return {};
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

// What a plan depends on besides the offers.
QByteArray Run::machineState() const
{
    QStringList tParts{mRequest.mAppLanguage,
                       mRequest.mDataLanguage,
                       mWorkplace.folders().installDir(),
                       mWorkplace.folders().root(packages::Kind::Data),
                       QString::number(mWorkplace.installed().mGeneration),
                       mWorkplace.installed().mRunId};
    for (const packages::InstalledPackage& tPackage : mWorkplace.installed().mPackages) {
        tParts.append(tPackage.mFolder);
    }
    return tuf::sha256(tParts.join(u'\n').toUtf8());
}

RunResult Run::failed(const Trouble& pTrouble) const
{
    return {pTrouble.code(), troubleText(pTrouble), 0};
}

RunResult Run::allServersFailed() const
{
    if (mRequest.mServers.isEmpty()) {
        return failed({Trouble::Kind::NoServer, mRequest.mWhyNoServer});
    }
    // From what says least to what people should know of first.
    static const QList<ResultCode> sWeights{ResultNoServer, ResultUnreachable, ResultInstallFailed,
                                            ResultVerificationFailed};
    Trouble tWorst{Trouble::Kind::NoServer, QString()};
    QStringList tTexts;
    for (const ServerTrouble& tServer : mServerTroubles) {
        tTexts.append(u"%1: %2"_s.arg(tServer.mServer, tServer.mTrouble.mText));
        const bool tIsAsBad = tServer.mTrouble.code() == tWorst.code();
        if (sWeights.indexOf(tServer.mTrouble.code()) > sWeights.indexOf(tWorst.code()) ||
            (tIsAsBad && tWorst.mKind == Trouble::Kind::OutOfDate)) {
            tWorst = tServer.mTrouble;
        }
    }
    // A server that has none of the files that make a repository is as good as none.
    if (tWorst.mKind == Trouble::Kind::NotFound) {
        tWorst.mKind = Trouble::Kind::Unreachable;
    }
    tWorst.mText = tTexts.join(u"; "_s);
    return failed(tWorst);
}

RunResult Run::finish(Attempt* pAttempt)
{
    const Plan& tPlan = pAttempt->mPlan;
    for (const PlannedPackage& tPackage : tPlan.mPackages) {
        if (tPackage.mTrouble) {
            mReporter.error(u"The package %1 could not be updated."_s.arg(tPackage.name()),
                            tPackage.mTrouble.mText);
        }
    }
    const int tFailed = tPlan.failedCount();
    const int tInstalled = static_cast<int>(tPlan.mPackages.size()) - tFailed;
    if (tFailed > 0) {
        return {failedPackagesCode(tPlan), failedPackagesText(tPlan), tInstalled};
    }
    mDownloads.clear();
    pAttempt->mSession->markComplete(machineState());
    return {ResultSuccess, successText(tInstalled), tInstalled};
}

} // namespace tarn::vkservice::update

#include "update/Preparation.h"

#include "os/AbortFlag.h"
#include "os/FileTools.h"
#include "os/HelperThreads.h"
#include "packages/PackageFolders.h"
#include "packages/Unpacker.h"
#include "update/Plan.h"
#include "update/Reporter.h"

#include <QtCore/QHash>

#include <algorithm>
#include <atomic>
#include <vector>

namespace tarn::vkservice::update {

namespace {

// One thread inflates while the other writes; more than two do not help on a single disk.
constexpr size_t sThreads = 2;
constexpr mode_t sPrivateDir = 0700;

} // namespace

// The data that the threads share.
struct Preparation::Work
{
    std::vector<PlannedPackage*>
        mPackages; // the largest first, so that no thread works on it alone at the end
    std::atomic<size_t> mNext{0};
    std::atomic<bool> mStop{false};
};

Preparation::Preparation(os::FileSystem& pFileSystem, const packages::PackageFolders& pFolders,
                         Reporter& pReporter, const os::AbortFlag& pAbort)
    : mFileSystem(pFileSystem), mFolders(pFolders), mReporter(pReporter), mAbort(pAbort)
{
}

Failure Preparation::unpack(Plan* pPlan, const std::function<QString(const Offer&)>& pArchiveOf)
{
    Work tWork;
    qint64 tTotal = 0;
    for (PlannedPackage& tPackage : pPlan->mPackages) {
        if (!tPackage.mFailure && !tPackage.mIsStaged) {
            tTotal += tPackage.mOffer.mInfo.mInstalledSize;
            tWork.mPackages.push_back(&tPackage);
        }
    }
    std::stable_sort(tWork.mPackages.begin(), tWork.mPackages.end(), [](auto* pLeft, auto* pRight) {
        return pLeft->mOffer.mInfo.mInstalledSize > pRight->mOffer.mInfo.mInstalledSize;
    });
    if (tWork.mPackages.empty()) {
        return {};
    }
    mReporter.begin(vkcore::ActivityPreparing, true, tTotal, true);
    const QStringList tRoots = mFolders.roots();
    for (const QString& tRoot : tRoots) {
        if (const Failure tFailure = os::makePath(mFileSystem, mFolders.stagingDir(tRoot), sPrivateDir)) {
            return tFailure;
        }
    }
    const auto tLoop = [this, &tWork, &pArchiveOf] {
        for (size_t tIndex = tWork.mNext++; tIndex < tWork.mPackages.size() && !tWork.mStop;
             tIndex = tWork.mNext++) {
            PlannedPackage* tPackage = tWork.mPackages[tIndex];
            mReporter.atPackage(static_cast<int>(tIndex) + 1, static_cast<int>(tWork.mPackages.size()),
                                tPackage->name());
            unpackOne(tPackage, pArchiveOf(tPackage->mOffer), &tWork);
        }
    };
    os::HelperThreads tThreads(std::min(sThreads, tWork.mPackages.size()) - 1, tLoop);
    tLoop();
    tThreads.join();
    if (mAbort.isSet()) {
        return Failure::canceled();
    }
    for (const PlannedPackage* tPackage : tWork.mPackages) {
        if (tPackage->mFailure.mKind == Failure::Kind::NoSpace) {
            return tPackage->mFailure;
        }
    }
    return {};
}

void Preparation::unpackOne(PlannedPackage* pPackage, const QString& pArchive, Work* pWork)
{
    const packages::PackageInfo& tInfo = pPackage->mOffer.mInfo;
    packages::UnpackLimits tLimits;
    tLimits.mMaxBytes = tInfo.mInstalledSize;
    const QString tFolder = pPackage->stagingFolder(mFolders);
    packages::Unpacker tUnpacker(mFileSystem, &mAbort);
    pPackage->mFailure =
        (tUnpacker.unpack(pArchive, tFolder, tLimits, [this](qint64 pBytes) { mReporter.advance(pBytes); }));
    pPackage->mIsStaged = !pPackage->mFailure;
    if (pPackage->mFailure.mKind == Failure::Kind::NoSpace) {
        pWork->mStop = true;
    }
}

void Preparation::takeOver(const Plan& pEarlier, const packages::PackageFolders& pFolders, Plan* pPlan)
{
    QHash<QString, const PlannedPackage*> tStaged;
    for (const PlannedPackage& tPackage : pEarlier.mPackages) {
        if (tPackage.mIsStaged) {
            tStaged.insert(tPackage.folder(pFolders), &tPackage);
        }
    }
    for (PlannedPackage& tPackage : pPlan->mPackages) {
        const PlannedPackage* tEarlier = tStaged.value(tPackage.folder(pFolders));
        if (tEarlier == nullptr) {
            continue;
        }
        // It may have none, because it turned out to be wrong.
        const auto& tIndex = tEarlier->mOffer.mInfo.mIndex;
        if (!tIndex || tIndex == tPackage.mOffer.mInfo.mIndex) {
            tPackage.mOffer.mInfo.mIndex = tIndex;
            tPackage.mIsStaged = true;
        }
    }
}

QList<packages::StagedPackage> Preparation::staged(const Plan& pPlan,
                                                   const packages::PackageFolders& pFolders)
{
    QList<packages::StagedPackage> tStaged;
    for (const PlannedPackage& tPackage : pPlan.mPackages) {
        if (!tPackage.mFailure) {
            tStaged.append({tPackage.stagingFolder(pFolders), tPackage.folder(pFolders)});
        }
    }
    return tStaged;
}

} // namespace tarn::vkservice::update

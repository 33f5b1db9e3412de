#include "update/supply/Staging.h"

#include "os/FileTools.h"
#include "packages/PackageFolders.h"
#include "trees/TreeBuilder.h"
#include "update/Reporter.h"

#include <algorithm>
#include <utility>

using namespace Qt::StringLiterals;

namespace tarn::vkservice::update {

using trees::FrameRun;

namespace {

// A frame that was taken gave all files that are inside of it, or the index does not belong to the archive.
bool isInsideOf(const FrameRun& pRun, const trees::FrameRuns& pTaken)
{
    return std::any_of(pTaken.begin(), pTaken.end(), [&pRun](const FrameRun& pOther) {
        return pOther.mFirst <= pRun.mFirst && pRun.mFirst + pRun.mCount <= pOther.mFirst + pOther.mCount;
    });
}

} // namespace

Failure Staging::stage(Parcel* pParcel)
{
    Failure tFailure = build(pParcel);
    if (!tFailure && pParcel->mPackage->mIsStaged) {
        return {};
    }
    // A half-made folder would be in the way of the whole archive.
    const QString tFolder = pParcel->mPackage->stagingFolder(mParts.mFolders);
    const Failure tLeft = os::removeTree(mParts.mFileSystem, tFolder);
    tFailure = tFailure ? tFailure : tLeft;
    pParcel->comeWhole();
    const bool tEndsTheRun =
        tFailure.mKind == Failure::Kind::Canceled || tFailure.mKind == Failure::Kind::NoSpace;
    if (!tEndsTheRun) {
        pParcel->mPackage->mFailure = tFailure;
    }
    return tEndsTheRun ? tFailure : Failure();
}

// Leaves the package unstaged if the archive has to come whole.
Failure Staging::build(Parcel* pParcel)
{
    const std::function<void(qint64)> tProgress = [this](qint64 pBytes) { mParts.mReporter.advance(pBytes); };
    trees::TreeBuilder tBuilder(mParts.mFileSystem, &mParts.mAbort, *pParcel->mTree,
                                pParcel->mPackage->stagingFolder(mParts.mFolders), tProgress);
    Failure tFailure = putTogether(pParcel, &tBuilder);
    if (!tFailure && !tBuilder.isComplete()) {
        tFailure = fetchMissing(pParcel, &tBuilder);
    }
    if (tFailure || !tBuilder.isComplete()) {
        return tFailure;
    }
    pParcel->mPackage->mIsStaged = true;
    return tBuilder.finish();
}

// From what is here.
Failure Staging::putTogether(Parcel* pParcel, trees::TreeBuilder* pBuilder)
{
    const QString tStaging = mParts.mFolders.stagingDir(mParts.mFolders.root(pParcel->info().mKind));
    Failure tFailure = os::makePath(mParts.mFileSystem, tStaging, 0700);
    tFailure = tFailure ? tFailure : pBuilder->start();
    tFailure = tFailure ? tFailure : pBuilder->reuse(mFiles);
    if (!tFailure && pParcel->mWay == Way::Delta) {
        tFailure = pBuilder->applyDelta(mParts.mDownloads.pathOf(pParcel->delta()),
                                        pParcel->mDelta->mFile.mLength, *pParcel->mBase);
    }
    return !tFailure || tFailure.mKind == Failure::Kind::Content ? takeFrames(*pParcel, pBuilder) : tFailure;
}

Failure Staging::takeFrames(const Parcel& pParcel, trees::TreeBuilder* pBuilder)
{
    for (const FrameRun& tRun : pParcel.mRuns) {
        Failure tFailure = pBuilder->takeFrames(mParts.mDownloads.pathOf(pParcel.frames(tRun)), tRun);
        if (tFailure && tFailure.mKind != Failure::Kind::Content) {
            return tFailure;
        }
    }
    return {};
}

Failure Staging::fetchMissing(Parcel* pParcel, trees::TreeBuilder* pBuilder)
{
    const trees::FrameRuns tTaken = std::exchange(pParcel->mRuns, pBuilder->missingFrames());
    if (std::any_of(pParcel->mRuns.begin(), pParcel->mRuns.end(),
                    [&tTaken](const FrameRun& pRun) { return isInsideOf(pRun, tTaken); })) {
        distrustIndex(pParcel);
        return {};
    }
    const qint64 tBytes = trees::packedBytes(pParcel->mRuns);
    if (pParcel->mRuns.size() > sMostRequests || tBytes >= mOrders.rest(*pParcel) ||
        !mOrders.mayCost(*pParcel, tBytes)) {
        return {};
    }
    if (pParcel->mPackage->mRepair == 0) {
        pParcel->warn(mParts.mReporter,
                      Failure::content(u"Some installed files are not as they were installed"_s));
    }
    pParcel->mWay = Way::Ranges;
    Failure tFailure = mOrders.fetchRuns({pParcel});
    if (tFailure || pParcel->mWay != Way::Ranges) {
        return tFailure;
    }
    tFailure = takeFrames(*pParcel, pBuilder);
    if (!tFailure && !pBuilder->isComplete()) {
        distrustIndex(pParcel);
    }
    return tFailure;
}

// The package is then installed as one without an index: nothing can be proven by a wrong one.
void Staging::distrustIndex(Parcel* pParcel)
{
    pParcel->warn(mParts.mReporter, Failure::content(u"Its index is not that of its archive"_s));
    pParcel->mPackage->mOffer.mInfo.mIndex.reset();
}

} // namespace tarn::vkservice::update

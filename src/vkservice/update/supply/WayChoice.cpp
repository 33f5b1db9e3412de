#include "update/supply/WayChoice.h"

#include "packages/Manifest.h"
#include "packages/PackageFolders.h"
#include "trees/IndexStore.h"

#include <utility>

namespace tarn::vkservice::update {

WayChoice::WayChoice(const SupplyParts& pParts, const Orders& pOrders)
    : mParts(pParts), mOrders(pOrders), mFiles(pParts.mFileSystem)
{
}

void WayChoice::loadInstalled()
{
    for (const packages::InstalledPackage& tPackage : mParts.mInstalled.mPackages) {
        const QString tFolder = mParts.mFolders.absolute(tPackage.mFolder);
        const auto& tIndex = tPackage.mInfo.mIndex;
        const bool tIsRead =
            tIndex && !mFiles.add(tFolder, mParts.mIndexes.pathOf(tIndex->mText), tIndex->mText,
                                  {.mMaxBytes = tPackage.mInfo.mInstalledSize});
        if (!tIsRead) {
            mUnindexed.append(tFolder);
        }
    }
}

void WayChoice::chooseFirst(Parcel* pParcel)
{
    const packages::PackageInfo& tInfo = pParcel->info();
    // An earlier run may have left a part of the archive, or all of it.
    const qint64 tRest = mOrders.rest(*pParcel);
    if (!tInfo.mIndex || tRest <= tInfo.mIndex->mFile.mLength || mParts.mInstalled.mPackages.isEmpty()) {
        return;
    }
    pParcel->mWay = Way::Ranges;
    for (const packages::DeltaFile& tDelta : tInfo.mDeltas) {
        const auto* tBase = mFiles.withIndex(tDelta.mFrom);
        const qint64 tBest = pParcel->mDelta == nullptr ? tRest : pParcel->mDelta->mFile.mLength;
        if (tBase != nullptr && tDelta.mFile.mLength < tBest) {
            pParcel->mWay = Way::Delta;
            pParcel->mDelta = &tDelta;
            pParcel->mBase = tBase;
        }
    }
}

void WayChoice::choose(const Parcels& pParcels)
{
    addUnindexed(pParcels);
    for (Parcel* tParcel : pParcels) {
        chooseRanges(tParcel);
    }
}

// Packages that were installed without an index are read, as far as their files may be of use.
void WayChoice::addUnindexed(const Parcels& pParcels)
{
    QSet<qint64> tSizes;
    for (const Parcel* tParcel : pParcels) {
        if (!mUnindexed.isEmpty() && tParcel->mWay == Way::Ranges) {
            const QString& tRoot = mParts.mFolders.root(tParcel->info().mKind);
            for (const size_t tEntry : trees::needsOf(*tParcel->mTree, mFiles, tRoot).mMissing) {
                tSizes.insert(tParcel->mTree->at(tEntry).mSize);
            }
        }
    }
    if (!tSizes.isEmpty()) {
        for (const QString& tFolder : std::as_const(mUnindexed)) {
            mFiles.addUnindexed(tFolder, tSizes, &mParts.mAbort);
        }
    }
}

void WayChoice::chooseRanges(Parcel* pParcel)
{
    pParcel->mNeeds = trees::needsOf(*pParcel->mTree, mFiles, mParts.mFolders.root(pParcel->info().mKind));
    if (pParcel->mWay == Way::Delta) {
        return;
    }
    pParcel->mRuns = trees::framesOf(*pParcel->mTree, pParcel->mNeeds.mMissing);
    const qint64 tBytes = trees::packedBytes(pParcel->mRuns);
    if (pParcel->mRuns.size() > sMostRequests || tBytes >= mOrders.rest(*pParcel) ||
        !mOrders.mayCost(*pParcel, tBytes)) {
        pParcel->comeWhole();
    }
}

} // namespace tarn::vkservice::update

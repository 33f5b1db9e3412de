#include "update/supply/SideFiles.h"

#include "packages/Manifest.h"
#include "trees/DeltaApplication.h"
#include "trees/IndexStore.h"

#include <utility>

namespace tarn::vkservice::update {

Failure SideFiles::fetchLostIndexes(const Plan& pPlan, QList<packages::InstalledPackage>* pLost)
{
    std::vector<Download> tDownloads;
    QList<packages::InstalledPackage> tOffered;
    for (const packages::InstalledPackage& tPackage : std::as_const(*pLost)) {
        const packages::IndexFile& tIndex = *tPackage.mInfo.mIndex;
        if (pPlan.mChosen.value(tPackage.mInfo.mName).mIndex == tIndex) {
            tDownloads.push_back({.mWanted = Wanted::sideFile(tIndex.mFile, tIndex.name()),
                                  .mLabel = tPackage.mInfo.mName,
                                  .mFailure = {},
                                  .mHasNoParts = false});
            tOffered.append(tPackage);
        }
    }
    if (Failure tFailure = mOrders.fetch(&tDownloads)) {
        return tFailure;
    }
    for (size_t i = 0; i < tDownloads.size(); ++i) {
        const packages::InstalledPackage& tPackage = tOffered[static_cast<qsizetype>(i)];
        const Failure tFailure =
            takeIndex(tDownloads[i], *tPackage.mInfo.mIndex, {.mMaxBytes = tPackage.mInfo.mInstalledSize});
        if (tFailure && !isOfTheWay(tFailure)) {
            return tFailure;
        }
        if (!tFailure) {
            pLost->removeIf([&tPackage](const auto& pOther) { return pOther.mFolder == tPackage.mFolder; });
        }
    }
    return {};
}

Failure SideFiles::takeIndex(const Download& pDownload, const packages::IndexFile& pIndex,
                             const trees::IndexLimits& pLimits, trees::Tree* pTree)
{
    return pDownload.mFailure ? pDownload.mFailure
                              : mParts.mIndexes.takePacked(mParts.mDownloads.pathOf(pDownload.mWanted),
                                                           pIndex.mText, pLimits, pTree);
}

Failure SideFiles::fetchDeltas(const Parcels& pParcels)
{
    Order tOrder;
    for (Parcel* tParcel : pParcels) {
        tOrder.add(tParcel, tParcel->delta());
    }
    if (Failure tFailure = mOrders.fetch(&tOrder)) {
        return tFailure;
    }
    for (size_t i = 0; i < pParcels.size(); ++i) {
        Failure tFailure = tOrder.mDownloads[i].mFailure;
        tFailure = tFailure ? tFailure : makeIndex(pParcels[i]);
        if (tFailure && !isOfTheWay(tFailure)) {
            return tFailure;
        }
        if (tFailure) {
            pParcels[i]->warn(mParts.mReporter, tFailure);
            pParcels[i]->mWay = Way::Ranges;
        }
    }
    return {};
}

Failure SideFiles::makeIndex(Parcel* pParcel)
{
    trees::IndexStore& tIndexes = mParts.mIndexes;
    const packages::IndexName& tOld = pParcel->mDelta->mFrom;
    const packages::IndexName& tNew = pParcel->info().mIndex->mText;
    if (tIndexes.has(tNew)) {
        return readTree(pParcel);
    }
    tIndexes.discardText(tNew);
    Failure tFailure = tIndexes.unpack(tOld);
    if (!tFailure) {
        tFailure = trees::makeIndexText(mParts.mFileSystem, mParts.mDownloads.pathOf(pParcel->delta()),
                                        pParcel->mDelta->mFile.mLength, tOld, tIndexes.textPath(tOld),
                                        tIndexes.textPath(tNew));
    }
    trees::Tree tTree;
    if (!tFailure) {
        tFailure = tIndexes.takeText(tIndexes.textPath(tNew), tNew, pParcel->limits(), &tTree);
    }
    if (!tFailure) {
        pParcel->mTree = std::move(tTree);
    }
    tIndexes.discardText(tOld);
    tIndexes.discardText(tNew);
    return tFailure;
}

Failure SideFiles::fetchIndexes(const Parcels& pParcels)
{
    Order tOrder;
    for (Parcel* tParcel : pParcels) {
        if (!mParts.mIndexes.has(tParcel->info().mIndex->mText)) {
            tOrder.add(tParcel, tParcel->index());
        }
    }
    if (Failure tFailure = mOrders.fetch(&tOrder)) {
        return tFailure;
    }
    for (size_t i = 0; i < tOrder.mOwners.size(); ++i) {
        Parcel& tParcel = *tOrder.mOwners[i];
        const bool tIsWhole = tParcel.mWay == Way::Whole;
        trees::Tree tTree;
        const Failure tFailure = takeIndex(tOrder.mDownloads[i], *tParcel.info().mIndex, tParcel.limits(),
                                           tIsWhole ? nullptr : &tTree);
        if (tFailure && !isOfTheWay(tFailure)) {
            return tFailure;
        }
        if (tFailure) {
            tParcel.warn(mParts.mReporter, tFailure);
        } else if (!tIsWhole) {
            tParcel.mTree = std::move(tTree);
        }
    }
    for (Parcel* tParcel : pParcels) {
        if (tParcel->mWay != Way::Whole && !tParcel->mTree &&
            (!mParts.mIndexes.has(tParcel->info().mIndex->mText) || readTree(tParcel))) {
            tParcel->comeWhole();
        }
    }
    return {};
}

Failure SideFiles::readTree(Parcel* pParcel)
{
    trees::Tree tTree;
    if (Failure tFailure = tTree.read(
            mParts.mFileSystem, mParts.mIndexes.pathOf(pParcel->info().mIndex->mText), pParcel->limits())) {
        return tFailure;
    }
    pParcel->mTree = std::move(tTree);
    return {};
}

} // namespace tarn::vkservice::update

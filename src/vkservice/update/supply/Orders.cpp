#include "update/supply/Orders.h"

#include "update/FreeSpace.h"
#include "update/supply/Budget.h"

#include <algorithm>
#include <utility>

namespace tarn::vkservice::update {

void Order::add(Parcel* pOwner, Wanted pWanted)
{
    mOwners.push_back(pOwner);
    mDownloads.push_back(
        {.mWanted = std::move(pWanted), .mLabel = pOwner->label(), .mFailure = {}, .mHasNoParts = false});
}

Failure Orders::fetch(std::vector<Download>* pDownloads)
{
    if (pDownloads->empty()) {
        return {};
    }
    qint64 tBytes = 0;
    for (const Download& tDownload : *pDownloads) {
        addBytes(&tBytes, tDownload.mWanted.mLength - mParts.mDownloads.onDisk(tDownload.mWanted));
    }
    if (Failure tFailure = checkFreeSpace(mParts.mFileSystem, {{mParts.mDownloads.folder(), tBytes}})) {
        return tFailure;
    }
    return mParts.mDownloads.fetch(mSource, pDownloads);
}

Failure Orders::fetch(Order* pOrder)
{
    std::vector<qint64> tBefore;
    for (const Download& tDownload : pOrder->mDownloads) {
        tBefore.push_back(mParts.mDownloads.onDisk(tDownload.mWanted));
    }
    if (Failure tFailure = fetch(&pOrder->mDownloads)) {
        return tFailure;
    }
    for (size_t i = 0; i < tBefore.size(); ++i) {
        const Download& tDownload = pOrder->mDownloads[i];
        // What is not what was signed has come, and is not here any more.
        const qint64 tNow = tDownload.mFailure.mKind == Failure::Kind::Untrusted
                                ? tDownload.mWanted.mLength
                                : mParts.mDownloads.onDisk(tDownload.mWanted);
        mParts.mBudget.spend(pOrder->mOwners[i]->archive().mName, std::max<qint64>(tNow - tBefore[i], 0));
    }
    return {};
}

Failure Orders::fetchRuns(const Parcels& pParcels)
{
    Order tOrder;
    for (Parcel* tParcel : pParcels) {
        for (const trees::FrameRun& tRun : tParcel->mRuns) {
            tOrder.add(tParcel, tParcel->frames(tRun));
        }
    }
    if (Failure tFailure = fetch(&tOrder)) {
        return tFailure;
    }
    for (size_t i = 0; i < tOrder.mDownloads.size(); ++i) {
        const Download& tDownload = tOrder.mDownloads[i];
        if (tDownload.mFailure && !isOfTheWay(tDownload.mFailure)) {
            return tDownload.mFailure;
        }
        if (tDownload.mFailure || tDownload.mHasNoParts) {
            tOrder.mOwners[i]->comeWhole();
        }
    }
    return {};
}

Failure Orders::fetchArchives(const Parcels& pParcels)
{
    Order tOrder;
    for (Parcel* tParcel : pParcels) {
        tOrder.add(tParcel, tParcel->archive());
    }
    Failure tFailure = fetch(&tOrder);
    for (size_t i = 0; i < pParcels.size(); ++i) {
        pParcels[i]->mPackage->mFailure = tOrder.mDownloads[i].mFailure;
        pParcels[i]->mIsHere = !tOrder.mDownloads[i].mFailure;
    }
    return tFailure;
}

bool Orders::mayCost(const Parcel& pParcel, qint64 pBytes) const
{
    return mParts.mBudget.allows(pParcel.archive().mName, pParcel.archiveLength(), pBytes);
}

qint64 Orders::rest(const Parcel& pParcel) const
{
    return pParcel.archiveLength() - mParts.mDownloads.onDisk(pParcel.archive());
}

} // namespace tarn::vkservice::update

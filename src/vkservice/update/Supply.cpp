#include "update/Supply.h"

#include "os/AbortFlag.h"
#include "packages/Manifest.h"
#include "packages/PackageFolders.h"
#include "update/FreeSpace.h"
#include "update/Preparation.h"
#include "update/Reporter.h"
#include "update/supply/Advisories.h"
#include "update/supply/Staging.h"

namespace tarn::vkservice::update {

namespace {

bool comesWhole(const Parcel& pParcel)
{
    return pParcel.mWay == Way::Whole;
}

bool comesInParts(const Parcel& pParcel)
{
    return pParcel.mWay != Way::Whole;
}

} // namespace

Supply::Supply(const SupplyParts& pParts, Source& pSource, Plan& pPlan)
    : mParts(pParts), mPlan(pPlan), mOrders(pParts, pSource), mSideFiles(pParts, mOrders),
      mChoice(pParts, mOrders)
{
    for (PlannedPackage& tPackage : pPlan.mPackages) {
        if (!tPackage.mFailure && !tPackage.mIsStaged) {
            mParcels.push_back(std::make_unique<Parcel>(&tPackage));
        }
    }
}

Parcels Supply::parcels(bool (*pIsWanted)(const Parcel&))
{
    Parcels tParcels;
    for (const auto& tParcel : mParcels) {
        if (!tParcel->hasFailed() && pIsWanted(*tParcel)) {
            tParcels.push_back(tParcel.get());
        }
    }
    return tParcels;
}

Failure Supply::fetchLostIndexes(QList<packages::InstalledPackage>* pLost)
{
    return mSideFiles.fetchLostIndexes(mPlan, pLost);
}

Failure Supply::fetch()
{
    // The installed indexes are of use only for packages that have one.
    const auto tHasIndex = [](const Parcel& pParcel) { return pParcel.info().mIndex.has_value(); };
    if (!parcels(tHasIndex).empty()) {
        mChoice.loadInstalled();
    }
    for (const auto& tParcel : mParcels) {
        mChoice.chooseFirst(tParcel.get());
    }
    if (Failure tFailure = fetchSideFiles()) {
        return tFailure;
    }
    mChoice.choose(parcels(&comesInParts));
    if (Failure tFailure = checkSpace()) {
        return tFailure;
    }
    Failure tFailure = fetchParts();
    return tFailure ? tFailure : fetchAdvisories(mParts, mOrders, &mPlan);
}

Failure Supply::fetchSideFiles()
{
    if (Failure tFailure = mSideFiles.fetchDeltas(
            parcels([](const Parcel& pParcel) { return pParcel.mWay == Way::Delta; }))) {
        return tFailure;
    }
    return mSideFiles.fetchIndexes(parcels([](const Parcel& pParcel) {
        return pParcel.info().mIndex.has_value() && !pParcel.mTree.has_value();
    }));
}

Failure Supply::checkSpace() const
{
    QList<SpaceNeed> tNeeds;
    for (const auto& tParcel : mParcels) {
        if (tParcel->hasFailed()) {
            continue;
        }
        const QString tRoot = mParts.mFolders.root(tParcel->info().mKind);
        tNeeds.append(comesWhole(*tParcel) ? unpackingNeed(tRoot, tParcel->info().mInstalledSize)
                                           : unpackingNeed(tRoot, tParcel->mNeeds.mWrite));
        qint64 tBytes = comesWhole(*tParcel) ? mOrders.rest(*tParcel) : 0;
        for (const trees::FrameRun& tRun : tParcel->mRuns) {
            addBytes(&tBytes, tRun.mPacked.mLength - mParts.mDownloads.onDisk(tParcel->frames(tRun)));
        }
        tNeeds.append({mParts.mDownloads.folder(), tBytes});
    }
    return checkFreeSpace(mParts.mFileSystem, tNeeds);
}

Failure Supply::fetchParts()
{
    if (Failure tFailure =
            mOrders.fetchRuns(parcels([](const Parcel& pParcel) { return pParcel.mWay == Way::Ranges; }))) {
        return tFailure;
    }
    return mOrders.fetchArchives(parcels(&comesWhole));
}

Failure Supply::prepare()
{
    qint64 tTotal = 0;
    const Parcels tParcels = parcels(&comesInParts);
    for (const Parcel* tParcel : tParcels) {
        addBytes(&tTotal, tParcel->info().mInstalledSize);
    }
    if (!tParcels.empty()) {
        mParts.mReporter.begin(vkcore::ActivityPreparing, true, tTotal, true);
    }
    Staging tStaging(mParts, mOrders, mChoice.files());
    for (Parcel* tParcel : tParcels) {
        if (Failure tFailure = tStaging.stage(tParcel)) {
            return tFailure;
        }
    }
    if (Failure tFailure = mOrders.fetchArchives(
            parcels([](const Parcel& pParcel) { return comesWhole(pParcel) && !pParcel.mIsHere; }))) {
        return tFailure;
    }
    return unpackWhole();
}

Failure Supply::unpackWhole()
{
    Preparation tPreparation(mParts.mFileSystem, mParts.mFolders, mParts.mReporter, mParts.mAbort);
    return tPreparation.unpack(&mPlan, [this](const Offer& pOffer) {
        return mParts.mDownloads.pathOf(Wanted::archive(pOffer.mTarget));
    });
}

} // namespace tarn::vkservice::update

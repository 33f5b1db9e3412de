#pragma once

#include "update/supply/Parcel.h"
#include "update/supply/SupplyParts.h"

namespace tarn::vkservice::update {

// What a server is asked for at once, and who wants it.
struct Order
{
    Parcels mOwners;
    std::vector<Download> mDownloads;

    void add(Parcel* pOwner, Wanted pWanted);
};

// Downloads what parcels want, and keeps account of what they cost. A returned failure is one of this machine
// or an abort, and ends the run.
class Orders
{
public:
    Orders(const SupplyParts& pParts, Source& pSource) : mParts(pParts), mSource(pSource) {}

    Failure fetch(Order* pOrder);
    Failure fetch(std::vector<Download>* pDownloads);
    // A parcel whose runs do not all arrive comes whole.
    Failure fetchRuns(const Parcels& pParcels);
    // A parcel that the server does not have fails in the plan.
    Failure fetchArchives(const Parcels& pParcels);

    bool mayCost(const Parcel& pParcel, qint64 pBytes) const;
    // Bytes of the archive that are not here.
    qint64 rest(const Parcel& pParcel) const;

private:
    SupplyParts mParts;
    Source& mSource;
};

} // namespace tarn::vkservice::update

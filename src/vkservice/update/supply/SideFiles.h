#pragma once

#include "update/supply/Orders.h"

namespace tarn::packages {
struct InstalledPackage;
}

namespace tarn::vkservice::update {

// The indexes of packages, and the deltas that they are made from. A returned failure is one of this machine
// or an abort, and ends the run.
class SideFiles
{
public:
    SideFiles(const SupplyParts& pParts, Orders& pOrders) : mParts(pParts), mOrders(pOrders) {}

    // Of those installed packages that the server offers, whose indexes are lost. The ones that come are
    // taken off the list.
    Failure fetchLostIndexes(const Plan& pPlan, QList<packages::InstalledPackage>* pLost);
    // What a delta can't do is left to the ranges.
    Failure fetchDeltas(const Parcels& pParcels);
    // Of all these parcels, also of those that come whole: their files can be proven later. A parcel without
    // its index comes whole.
    Failure fetchIndexes(const Parcels& pParcels);

private:
    Failure takeIndex(const Download& pDownload, const packages::IndexFile& pIndex,
                      const trees::IndexLimits& pLimits, trees::Tree* pTree = nullptr);
    Failure makeIndex(Parcel* pParcel);
    Failure readTree(Parcel* pParcel);

    SupplyParts mParts;
    Orders& mOrders;
};

} // namespace tarn::vkservice::update

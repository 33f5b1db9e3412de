#pragma once

#include "update/supply/Orders.h"

namespace tarn::trees {
class TreeBuilder;
}

namespace tarn::vkservice::update {

// Puts a parcel that does not come whole together in its staging folder, which must be announced.
class Staging
{
public:
    Staging(const SupplyParts& pParts, Orders& pOrders, const trees::InstalledFiles& pFiles)
        : mParts(pParts), mOrders(pOrders), mFiles(pFiles)
    {
    }

    // May download more where a file of this machine is not what its index says. A parcel that can't be put
    // together comes whole. A returned failure ends the run.
    Failure stage(Parcel* pParcel);

private:
    Failure build(Parcel* pParcel);
    Failure putTogether(Parcel* pParcel, trees::TreeBuilder* pBuilder);
    Failure takeFrames(const Parcel& pParcel, trees::TreeBuilder* pBuilder);
    Failure fetchMissing(Parcel* pParcel, trees::TreeBuilder* pBuilder);
    void distrustIndex(Parcel* pParcel);

    SupplyParts mParts;
    Orders& mOrders;
    const trees::InstalledFiles& mFiles;
};

} // namespace tarn::vkservice::update

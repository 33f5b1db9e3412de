#pragma once

#include "update/supply/Orders.h"

namespace tarn::vkservice::update {

// Chooses the cheapest way of each parcel, by what is on this machine.
class WayChoice
{
public:
    WayChoice(const SupplyParts& pParts, const Orders& pOrders);

    // What the installed packages are made of, as far as that is known.
    const trees::InstalledFiles& files() const { return mFiles; }

    void loadInstalled();
    // Before anything was downloaded: what may be a way.
    void chooseFirst(Parcel* pParcel);
    // With the indexes: what is a way.
    void choose(const Parcels& pParcels);

private:
    void addUnindexed(const Parcels& pParcels);
    void chooseRanges(Parcel* pParcel);

    SupplyParts mParts;
    const Orders& mOrders;
    trees::InstalledFiles mFiles;
    QStringList mUnindexed; // folders of installed packages
};

} // namespace tarn::vkservice::update

#pragma once

#include "internal/Failure.h"
#include "update/supply/Orders.h"
#include "update/supply/SideFiles.h"
#include "update/supply/SupplyParts.h"
#include "update/supply/WayChoice.h"

#include <memory>
#include <vector>

namespace tarn::vkservice::update {

// Brings the packages of one plan from one server to this machine, for as few bytes as it can. There are
// three ways to a package, and each falls through to the next:
//
//   delta   one of the installed packages has the index that the delta starts from: the delta alone;
//   ranges  the index, then the frames of the archive with the files that no installed package has;
//   whole   the archive.
//
// The first two are tried only as long as a package costs at most 105 % of its archive, also with several
// servers; the last one is always left. A package that has no index can only come whole. What is staged
// already is left alone.
class Supply
{
public:
    Supply(const SupplyParts& pParts, Source& pSource, Plan& pPlan);

    // Downloads the indexes of these installed packages if the server offers just these packages, and takes
    // them off the list. What the server does not have stays on it.
    Failure fetchLostIndexes(QList<packages::InstalledPackage>* pLost);
    // Downloads what the chosen ways need. A package that the server does not have fails in the plan. The
    // return value is a failure of this machine or an abort, and ends the run; likewise below.
    Failure fetch();
    // Puts the packages together in their staging folders, which must be announced. May download more where a
    // file of this machine is not what its index says.
    Failure prepare();

private:
    Failure fetchSideFiles();
    Failure checkSpace() const;
    Failure fetchParts();
    Failure unpackWhole();
    Parcels parcels(bool (*pIsWanted)(const Parcel&));

    SupplyParts mParts;
    Plan& mPlan;
    std::vector<std::unique_ptr<Parcel>> mParcels;
    Orders mOrders;
    SideFiles mSideFiles;
    WayChoice mChoice;
};

} // namespace tarn::vkservice::update

#pragma once

#include "internal/Failure.h"
#include "trees/FrameRuns.h"
#include "trees/IndexStore.h"
#include "trees/InstalledFiles.h"
#include "update/Downloads.h"

#include <memory>
#include <vector>

namespace tarn::packages {
class PackageFolders;
struct InstalledPackage;
struct Manifest;
} // namespace tarn::packages

namespace tarn::vkservice::update {

struct Plan;
struct PlannedPackage;

// The parts of the machine that a supply works with. They outlive it.
struct SupplyParts
{
    os::FileSystem& mFileSystem;
    const packages::PackageFolders& mFolders;
    const packages::Manifest& mInstalled;
    Downloads& mDownloads;
    trees::IndexStore& mIndexes;
    Reporter& mReporter;
    const os::AbortFlag& mAbort;
};

// Brings the packages of one plan from one server to this machine, for as few bytes as it can. There are
// three ways to a package, and each falls through to the next:
//
//   delta   one of the installed packages has the index that the delta starts from: the delta alone;
//   ranges  the index, then the frames of the archive with the files that no installed package has;
//   whole   the archive.
//
// A package that stands in its staging folder already needs nothing. The first two ways are tried only as
// long as a package costs at most 105 % of its archive; the last one is always left. A package that has no
// index can only come whole.
class Supply
{
public:
    Supply(const SupplyParts& pParts, Source& pSource, Plan& pPlan);
    ~Supply();

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
    struct Parcel;
    using Parcels = std::vector<Parcel*>;

    void loadInstalled();
    void chooseWay(Parcel* pParcel);
    Failure fetchSideFiles();
    Failure fetchDeltas();
    Failure fetchIndexes();
    Failure takeIndex(const Download& pDownload, const packages::IndexFile& pIndex,
                      const trees::IndexLimits& pLimits);
    Failure readTree(Parcel* pParcel);
    Failure makeIndex(const Parcel& pParcel);
    const QString& rootOf(const Parcel& pParcel) const;
    void addUnindexed();
    void chooseRanges(Parcel* pParcel);
    Failure checkSpace() const;
    Failure fetchParts();
    Failure fetchArchives(const Parcels& pParcels);
    Failure fetchRuns(const Parcels& pParcels);
    Failure download(std::vector<Download>* pDownloads);

    Failure stage(Parcel* pParcel);
    Failure build(Parcel* pParcel);
    void distrustIndex(Parcel* pParcel);
    Failure unpackWhole();
    void warn(const Parcel& pParcel, const Failure& pFailure);
    bool mayCost(const Parcel& pParcel, qint64 pBytes) const;
    Parcels parcels(bool (*pIsWanted)(const Parcel&));

    SupplyParts mParts;
    Source& mSource;
    Plan& mPlan;
    std::vector<std::unique_ptr<Parcel>> mParcels;
    trees::InstalledFiles mFiles;
    QStringList mUnindexed; // folders of installed packages
};

} // namespace tarn::vkservice::update

#include "update/Supply.h"

#include "os/AbortFlag.h"
#include "os/FileTools.h"
#include "packages/PackageFolders.h"
#include "trees/DeltaApplication.h"
#include "trees/TreeBuilder.h"
#include "update/FailurePolicy.h"
#include "update/FreeSpace.h"
#include "update/Plan.h"
#include "update/Preparation.h"
#include "update/Reporter.h"

#include <algorithm>
#include <iterator>
#include <utility>

using namespace Qt::StringLiterals;

namespace tarn::vkservice::update {

using packages::DeltaFile;
using trees::FrameRun;

namespace {

constexpr size_t sMostRequests = 300; // of one package
constexpr qint64 sMostMore = 20;      // a package costs at most a 20th more than its archive

// Files of this machine, or of this server, that are not what was signed: another way may still work.
bool isOfTheWay(const Failure& pFailure)
{
    return pFailure.mKind == Failure::Kind::Content || isServersFault(pFailure);
}

// A frame that was taken gave all files that are inside of it, or the index does not belong to the archive.
bool isInsideOf(const FrameRun& pRun, const trees::FrameRuns& pTaken)
{
    return std::any_of(pTaken.begin(), pTaken.end(), [&pRun](const FrameRun& pOther) {
        return pOther.mFirst <= pRun.mFirst && pRun.mFirst + pRun.mCount <= pOther.mFirst + pOther.mCount;
    });
}

} // namespace

enum class Way
{
    Delta,
    Ranges,
    Whole,
};

struct Supply::Parcel
{
    explicit Parcel(PlannedPackage* pPackage) : mPackage(pPackage) {}

    PlannedPackage* mPackage;
    Way mWay = Way::Whole;
    bool mIsHere = false; // the whole archive
    const DeltaFile* mDelta = nullptr;
    const trees::InstalledFiles::Package* mBase = nullptr; // of the delta
    std::optional<trees::Tree> mTree;
    trees::TreeNeeds mNeeds;
    trees::FrameRuns mRuns;
    qint64 mSpent = 0; // bytes

    void comeWhole()
    {
        mWay = Way::Whole;
        mRuns.clear();
    }
    const Offer& offer() const { return mPackage->mOffer; }
    const packages::PackageInfo& info() const { return mPackage->mOffer.mInfo; }
    qint64 archiveLength() const { return offer().mTarget.mLength; }
    bool hasFailed() const { return static_cast<bool>(mPackage->mFailure); }
    trees::IndexLimits limits() const
    {
        return {.mMaxBytes = info().mInstalledSize, .mArchiveSize = archiveLength()};
    }
    QString label() const
    {
        return u"%1 %2"_s.arg(info().mName, info().mVersion.version().toTarnAppFormat());
    }

    Download ask(Wanted pWanted) const
    {
        return {.mWanted = std::move(pWanted), .mLabel = label(), .mFailure = {}, .mHasNoParts = false};
    }
    Wanted archive() const { return Wanted::archive(offer().mTarget); }
    Wanted index() const { return Wanted::sideFile(info().mIndex->mFile, info().mIndex->name()); }
    Wanted delta() const { return Wanted::sideFile(mDelta->mFile, mDelta->name()); }
    Wanted frames(const FrameRun& pRun) const
    {
        return Wanted::frames(offer().mTarget, mTree->frames(), pRun.mFirst, pRun.mCount);
    }
};

Supply::Supply(const SupplyParts& pParts, Source& pSource, Plan& pPlan)
    : mParts(pParts), mSource(pSource), mPlan(pPlan), mFiles(pParts.mFileSystem)
{
    for (PlannedPackage& tPackage : pPlan.mPackages) {
        if (!tPackage.mFailure && !tPackage.mIsStaged) {
            mParcels.push_back(std::make_unique<Parcel>(&tPackage));
        }
    }
}

Supply::~Supply() = default;

void Supply::warn(const Parcel& pParcel, const Failure& pFailure)
{
    mParts.mReporter.notify(
        MessageWarning, u"The package %1 costs more than it should."_s.arg(pParcel.label()), pFailure.mText);
}

bool Supply::mayCost(const Parcel& pParcel, qint64 pBytes) const
{
    return pParcel.mSpent + pBytes <= pParcel.archiveLength() + pParcel.archiveLength() / sMostMore;
}

Supply::Parcels Supply::parcels(bool (*pIsWanted)(const Parcel&))
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
    std::vector<Download> tDownloads;
    QList<packages::InstalledPackage> tOffered;
    for (const packages::InstalledPackage& tPackage : std::as_const(*pLost)) {
        const packages::IndexFile& tIndex = *tPackage.mInfo.mIndex;
        if (mPlan.mChosen.value(tPackage.mInfo.mName).mIndex == tIndex) {
            tDownloads.push_back({.mWanted = Wanted::sideFile(tIndex.mFile, tIndex.name()),
                                  .mLabel = tPackage.mInfo.mName,
                                  .mFailure = {},
                                  .mHasNoParts = false});
            tOffered.append(tPackage);
        }
    }
    if (Failure tFailure = download(&tDownloads)) {
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

Failure Supply::takeIndex(const Download& pDownload, const packages::IndexFile& pIndex,
                          const trees::IndexLimits& pLimits)
{
    return pDownload.mFailure ? pDownload.mFailure
                              : mParts.mIndexes.takePacked(mParts.mDownloads.pathOf(pDownload.mWanted),
                                                           pIndex.mText, pLimits);
}

Failure Supply::fetch()
{
    loadInstalled();
    for (const auto& tParcel : mParcels) {
        chooseWay(tParcel.get());
    }
    if (Failure tFailure = fetchSideFiles()) {
        return tFailure;
    }
    addUnindexed();
    for (Parcel* tParcel : parcels([](const Parcel& pParcel) { return pParcel.mWay != Way::Whole; })) {
        chooseRanges(tParcel);
    }
    if (Failure tFailure = checkSpace()) {
        return tFailure;
    }
    return fetchParts();
}

// The indexes are of use only for packages that have one.
void Supply::loadInstalled()
{
    if (std::none_of(mParcels.begin(), mParcels.end(),
                     [](const auto& pParcel) { return pParcel->info().mIndex.has_value(); })) {
        return;
    }
    for (const packages::InstalledPackage& tPackage : mParts.mInstalled.mPackages) {
        const QString tFolder = mParts.mFolders.absolute(tPackage.mFolder);
        const auto& tIndex = tPackage.mInfo.mIndex;
        const bool tIsRead = tIndex && mParts.mIndexes.has(tIndex->mText) &&
                             !mFiles.add(tFolder, mParts.mIndexes.pathOf(tIndex->mText), tIndex->mText,
                                         {.mMaxBytes = tPackage.mInfo.mInstalledSize});
        if (!tIsRead) {
            mUnindexed.append(tFolder);
        }
    }
}

void Supply::chooseWay(Parcel* pParcel)
{
    const packages::PackageInfo& tInfo = pParcel->info();
    // An earlier run may have left a part of the archive, or all of it.
    const qint64 tRest = pParcel->archiveLength() - mParts.mDownloads.onDisk(pParcel->archive());
    if (!tInfo.mIndex || tRest <= tInfo.mIndex->mFile.mLength || mParts.mInstalled.mPackages.isEmpty()) {
        return;
    }
    pParcel->mWay = Way::Ranges;
    for (const DeltaFile& tDelta : tInfo.mDeltas) {
        const auto* tBase = mFiles.withIndex(tDelta.mFrom);
        const qint64 tBest = pParcel->mDelta == nullptr ? tRest : pParcel->mDelta->mFile.mLength;
        if (tBase != nullptr && tDelta.mFile.mLength < tBest) {
            pParcel->mWay = Way::Delta;
            pParcel->mDelta = &tDelta;
            pParcel->mBase = tBase;
        }
    }
}

Failure Supply::download(std::vector<Download>* pDownloads)
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

Failure Supply::fetchSideFiles()
{
    if (Failure tFailure = fetchDeltas()) {
        return tFailure;
    }
    return fetchIndexes();
}

// What a delta cannot do is left to the ranges.
Failure Supply::fetchDeltas()
{
    const Parcels tParcels = parcels([](const Parcel& pParcel) { return pParcel.mWay == Way::Delta; });
    std::vector<Download> tDownloads;
    for (Parcel* tParcel : tParcels) {
        tDownloads.push_back(tParcel->ask(tParcel->delta()));
    }
    if (Failure tFailure = download(&tDownloads)) {
        return tFailure;
    }
    for (size_t i = 0; i < tParcels.size(); ++i) {
        tParcels[i]->mSpent += tParcels[i]->mDelta->mFile.mLength;
        Failure tFailure = tDownloads[i].mFailure;
        if (!tFailure) {
            tFailure = makeIndex(*tParcels[i]);
        }
        if (!tFailure) {
            tFailure = readTree(tParcels[i]);
        }
        if (tFailure && !isOfTheWay(tFailure)) {
            return tFailure;
        }
        if (tFailure) {
            warn(*tParcels[i], tFailure);
            tParcels[i]->mWay = Way::Ranges;
        }
    }
    return {};
}

Failure Supply::makeIndex(const Parcel& pParcel)
{
    trees::IndexStore& tIndexes = mParts.mIndexes;
    const packages::IndexName& tOld = pParcel.mDelta->mFrom;
    const packages::IndexName& tNew = pParcel.info().mIndex->mText;
    if (tIndexes.has(tNew)) {
        return {};
    }
    tIndexes.discardText(tNew);
    Failure tFailure = tIndexes.unpack(tOld);
    if (!tFailure) {
        tFailure = trees::makeIndexText(mParts.mFileSystem, mParts.mDownloads.pathOf(pParcel.delta()),
                                        pParcel.mDelta->mFile.mLength, tOld, tIndexes.textPath(tOld),
                                        tIndexes.textPath(tNew));
    }
    if (!tFailure) {
        tFailure = tIndexes.takeText(tIndexes.textPath(tNew), tNew, pParcel.limits());
    }
    tIndexes.discardText(tOld);
    tIndexes.discardText(tNew);
    return tFailure;
}

// Also of packages that come whole: their files can be proven later. What fails here leaves the whole
// archive.
Failure Supply::fetchIndexes()
{
    const Parcels tParcels = parcels([](const Parcel& pParcel) {
        return pParcel.info().mIndex.has_value() && !pParcel.mTree.has_value();
    });
    std::vector<Download> tDownloads;
    Parcels tOrdered;
    for (Parcel* tParcel : tParcels) {
        if (!mParts.mIndexes.has(tParcel->info().mIndex->mText)) {
            tDownloads.push_back(tParcel->ask(tParcel->index()));
            tOrdered.push_back(tParcel);
        }
    }
    if (Failure tFailure = download(&tDownloads)) {
        return tFailure;
    }
    for (size_t i = 0; i < tOrdered.size(); ++i) {
        const packages::IndexFile& tIndex = *tOrdered[i]->info().mIndex;
        tOrdered[i]->mSpent += tIndex.mFile.mLength;
        const Failure tFailure = takeIndex(tDownloads[i], tIndex, tOrdered[i]->limits());
        if (tFailure && !isOfTheWay(tFailure)) {
            return tFailure;
        }
        if (tFailure) {
            warn(*tOrdered[i], tFailure);
        }
    }
    for (Parcel* tParcel : tParcels) {
        const bool tHasIndex = mParts.mIndexes.has(tParcel->info().mIndex->mText);
        if (tParcel->mWay != Way::Whole && (!tHasIndex || readTree(tParcel))) {
            tParcel->comeWhole();
        }
    }
    return {};
}

Failure Supply::readTree(Parcel* pParcel)
{
    trees::Tree tTree;
    if (Failure tFailure = tTree.read(
            mParts.mFileSystem, mParts.mIndexes.pathOf(pParcel->info().mIndex->mText), pParcel->limits())) {
        return tFailure;
    }
    pParcel->mTree = std::move(tTree);
    return {};
}

// Packages that were installed without an index are read, as far as their files may be of use.
void Supply::addUnindexed()
{
    QSet<qint64> tSizes;
    for (const auto& tParcel : mParcels) {
        if (!mUnindexed.isEmpty() && tParcel->mWay == Way::Ranges) {
            for (const size_t tEntry : trees::needsOf(*tParcel->mTree, mFiles, rootOf(*tParcel)).mMissing) {
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

const QString& Supply::rootOf(const Parcel& pParcel) const
{
    return mParts.mFolders.root(pParcel.info().mKind);
}

void Supply::chooseRanges(Parcel* pParcel)
{
    pParcel->mNeeds = trees::needsOf(*pParcel->mTree, mFiles, rootOf(*pParcel));
    if (pParcel->mWay == Way::Delta) {
        return;
    }
    pParcel->mRuns = trees::framesOf(*pParcel->mTree, pParcel->mNeeds.mMissing);
    const qint64 tBytes = trees::packedBytes(pParcel->mRuns);
    const qint64 tRest = pParcel->archiveLength() - mParts.mDownloads.onDisk(pParcel->archive());
    if (pParcel->mRuns.size() > sMostRequests || tBytes >= tRest || !mayCost(*pParcel, tBytes)) {
        pParcel->comeWhole();
    }
}

Failure Supply::checkSpace() const
{
    QList<SpaceNeed> tNeeds;
    for (const auto& tParcel : mParcels) {
        if (tParcel->hasFailed()) {
            continue;
        }
        const bool tIsWhole = tParcel->mWay == Way::Whole;
        const QString tRoot = rootOf(*tParcel);
        tNeeds.append(tIsWhole ? unpackingNeed(tRoot, tParcel->info().mInstalledSize)
                               : unpackingNeed(tRoot, tParcel->mNeeds.mWrite));
        qint64 tBytes = 0;
        if (tIsWhole) {
            tBytes = tParcel->archiveLength() - mParts.mDownloads.onDisk(tParcel->archive());
        }
        for (const FrameRun& tRun : tParcel->mRuns) {
            addBytes(&tBytes, tRun.mPacked.mLength - mParts.mDownloads.onDisk(tParcel->frames(tRun)));
        }
        tNeeds.append({mParts.mDownloads.folder(), tBytes});
    }
    return checkFreeSpace(mParts.mFileSystem, tNeeds);
}

Failure Supply::fetchParts()
{
    if (Failure tFailure =
            fetchRuns(parcels([](const Parcel& pParcel) { return pParcel.mWay == Way::Ranges; }))) {
        return tFailure;
    }
    return fetchArchives(parcels([](const Parcel& pParcel) { return pParcel.mWay == Way::Whole; }));
}

// A parcel whose runs do not all arrive comes whole.
Failure Supply::fetchRuns(const Parcels& pParcels)
{
    std::vector<Download> tDownloads;
    Parcels tOwners;
    for (Parcel* tParcel : pParcels) {
        for (const FrameRun& tRun : tParcel->mRuns) {
            tDownloads.push_back(tParcel->ask(tParcel->frames(tRun)));
            tOwners.push_back(tParcel);
        }
    }
    if (Failure tFailure = download(&tDownloads)) {
        return tFailure;
    }
    for (size_t i = 0; i < tDownloads.size(); ++i) {
        tOwners[i]->mSpent += tDownloads[i].mWanted.mLength;
        if (tDownloads[i].mFailure && !isOfTheWay(tDownloads[i].mFailure)) {
            return tDownloads[i].mFailure;
        }
        if (tDownloads[i].mFailure || tDownloads[i].mHasNoParts) {
            tOwners[i]->comeWhole();
        }
    }
    return {};
}

Failure Supply::fetchArchives(const Parcels& pParcels)
{
    std::vector<Download> tDownloads;
    for (Parcel* tParcel : pParcels) {
        tDownloads.push_back(tParcel->ask(tParcel->archive()));
    }
    Failure tFailure = download(&tDownloads);
    for (size_t i = 0; i < tDownloads.size(); ++i) {
        pParcels[i]->mPackage->mFailure = tDownloads[i].mFailure;
        pParcels[i]->mIsHere = !tDownloads[i].mFailure;
    }
    return tFailure;
}

Failure Supply::prepare()
{
    qint64 tTotal = 0;
    const Parcels tParcels = parcels([](const Parcel& pParcel) { return pParcel.mWay != Way::Whole; });
    for (const Parcel* tParcel : tParcels) {
        addBytes(&tTotal, tParcel->info().mInstalledSize);
    }
    if (!tParcels.empty()) {
        mParts.mReporter.begin(vkcore::ActivityPreparing, true, tTotal, true);
    }
    for (Parcel* tParcel : tParcels) {
        if (Failure tFailure = stage(tParcel)) {
            return tFailure;
        }
    }
    if (Failure tFailure = fetchArchives(
            parcels([](const Parcel& pParcel) { return pParcel.mWay == Way::Whole && !pParcel.mIsHere; }))) {
        return tFailure;
    }
    return unpackWhole();
}

Failure Supply::stage(Parcel* pParcel)
{
    Failure tFailure = build(pParcel);
    if (!tFailure && pParcel->mPackage->mIsStaged) {
        return {};
    }
    // A half-made folder would be in the way of the whole archive.
    const QString tFolder = pParcel->mPackage->stagingFolder(mParts.mFolders);
    const Failure tLeft = os::removeTree(mParts.mFileSystem, tFolder);
    tFailure = tFailure ? tFailure : tLeft;
    pParcel->comeWhole();
    const bool tEndsTheRun =
        tFailure.mKind == Failure::Kind::Canceled || tFailure.mKind == Failure::Kind::NoSpace;
    if (!tEndsTheRun) {
        pParcel->mPackage->mFailure = tFailure;
    }
    return tEndsTheRun ? tFailure : Failure();
}

// Leaves the package unstaged if the archive has to come whole.
Failure Supply::build(Parcel* pParcel)
{
    const auto tAdvance = [this](qint64 pBytes) { mParts.mReporter.advance(pBytes); };
    const std::function<void(qint64)> tProgress = tAdvance;
    trees::TreeBuilder tBuilder(mParts.mFileSystem, &mParts.mAbort, *pParcel->mTree,
                                pParcel->mPackage->stagingFolder(mParts.mFolders), tProgress);
    const auto tTake = [this, pParcel, &tBuilder]() -> Failure {
        for (const FrameRun& tRun : pParcel->mRuns) {
            Failure tFailure = tBuilder.takeFrames(mParts.mDownloads.pathOf(pParcel->frames(tRun)), tRun);
            if (tFailure && tFailure.mKind != Failure::Kind::Content) {
                return tFailure;
            }
        }
        return {};
    };
    Failure tFailure = os::makePath(mParts.mFileSystem, mParts.mFolders.stagingDir(rootOf(*pParcel)), 0700);
    tFailure = tFailure ? tFailure : tBuilder.start();
    tFailure = tFailure ? tFailure : tBuilder.reuse(mFiles);
    if (!tFailure && pParcel->mWay == Way::Delta) {
        tFailure = tBuilder.applyDelta(mParts.mDownloads.pathOf(pParcel->delta()),
                                       pParcel->mDelta->mFile.mLength, *pParcel->mBase);
    }
    if (!tFailure || tFailure.mKind == Failure::Kind::Content) {
        tFailure = tTake();
    }
    if (tFailure) {
        return tFailure;
    }
    if (!tBuilder.isComplete()) {
        const trees::FrameRuns tTaken = std::exchange(pParcel->mRuns, tBuilder.missingFrames());
        if (std::any_of(pParcel->mRuns.begin(), pParcel->mRuns.end(),
                        [&tTaken](const FrameRun& pRun) { return isInsideOf(pRun, tTaken); })) {
            distrustIndex(pParcel);
            return {};
        }
        if (pParcel->mRuns.size() > sMostRequests || !mayCost(*pParcel, trees::packedBytes(pParcel->mRuns))) {
            return {};
        }
        if (pParcel->mPackage->mRepair == 0) {
            warn(*pParcel,
                 {Failure::Kind::Content, u"Some installed files are not as they were installed"_s});
        }
        pParcel->mWay = Way::Ranges;
        tFailure = fetchRuns({pParcel});
        if (!tFailure && pParcel->mWay == Way::Ranges) {
            tFailure = tTake();
            if (!tFailure && !tBuilder.isComplete()) {
                distrustIndex(pParcel);
            }
        }
    }
    if (tFailure || !tBuilder.isComplete()) {
        return tFailure;
    }
    pParcel->mPackage->mIsStaged = true;
    return tBuilder.finish();
}

// The package is then installed as one without an index: nothing can be proven by a wrong one.
void Supply::distrustIndex(Parcel* pParcel)
{
    warn(*pParcel, Failure::content(u"Its index is not that of its archive"_s));
    pParcel->mPackage->mOffer.mInfo.mIndex.reset();
}

Failure Supply::unpackWhole()
{
    Preparation tPreparation(mParts.mFileSystem, mParts.mFolders, mParts.mReporter, mParts.mAbort);
    return tPreparation.unpack(&mPlan, [this](const Offer& pOffer) {
        return mParts.mDownloads.pathOf(Wanted::archive(pOffer.mTarget));
    });
}

} // namespace tarn::vkservice::update

#include "update/Downloads.h"

#include "os/AbortFlag.h"
#include "update/ArchiveFile.h"
#include "update/FailurePolicy.h"
#include "update/FreeSpace.h"
#include "update/Plan.h"
#include "update/Reporter.h"
#include "update/Source.h"

#include <QtCore/QHash>

#include <memory>
#include <vector>

using namespace Qt::StringLiterals;

namespace tarn::vkservice::update {

namespace {

const QString sTargetsFolder = u"targets/"_s;

QString packageLabel(const Offer& pOffer)
{
    return u"%1 %2"_s.arg(pOffer.mInfo.mName, pOffer.mInfo.mVersion.version().toTarnAppFormat());
}

} // namespace

struct Downloads::Item
{
    PlannedPackage* mPackage;
    std::unique_ptr<ArchiveFile> mArchive;
    bool mHashed = false; // every byte of it went through the hash in this run
    bool mResumed = false;

    Failure& failure() { return mPackage->mFailure; }
};

Downloads::Downloads(os::FileSystem& pFileSystem, const QString& pStateDir, Reporter& pReporter,
                     const os::AbortFlag& pAbort)
    : mFileSystem(pFileSystem), mPath(pStateDir + u"/downloads"_s), mFolder(pFileSystem),
      mReporter(pReporter), mAbort(pAbort)
{
}

Failure Downloads::open()
{
    return mFolder.open(mPath);
}

QString Downloads::pathOf(const Offer& pOffer) const
{
    return mFolder.pathOf(ArchiveFile::nameOf(pOffer.mTarget));
}

qint64 Downloads::bytesToCome(const Plan& pPlan) const
{
    qint64 tBytes = 0;
    for (const PlannedPackage& tPackage : pPlan.mPackages) {
        if (!tPackage.mFailure) {
            const Offer& tOffer = tPackage.mOffer;
            const ArchiveFile tArchive(mFileSystem, mFolder, tOffer.mTarget);
            addBytes(&tBytes, qMax<qint64>(0, tOffer.mTarget.mLength - tArchive.onDisk()));
        }
    }
    return tBytes;
}

Failure Downloads::fetch(Source& pSource, Plan* pPlan)
{
    Items tItems;
    // Packages with the same contents share one archive, which is downloaded once.
    QHash<QByteArray, PlannedPackage*> tFirsts;
    QList<std::pair<PlannedPackage*, PlannedPackage*>> tTwins;
    for (PlannedPackage& tPackage : pPlan->mPackages) {
        if (tPackage.mFailure) {
            continue;
        }
        const tuf::TargetFile& tTarget = tPackage.mOffer.mTarget;
        PlannedPackage*& tFirst = tFirsts[ArchiveFile::nameOf(tTarget)];
        if (tFirst != nullptr) {
            tTwins.emplaceBack(&tPackage, tFirst);
            continue;
        }
        tFirst = &tPackage;
        tItems.push_back({&tPackage, std::make_unique<ArchiveFile>(mFileSystem, mFolder, tTarget)});
    }
    const Failure tFailure = fetch(pSource, &tItems);
    for (const auto& [tTwin, tFirst] : tTwins) {
        const bool tIsSame = tTwin->mOffer.mTarget.mLength == tFirst->mOffer.mTarget.mLength &&
                             tTwin->mOffer.mTarget.mHashes == tFirst->mOffer.mTarget.mHashes;
        tTwin->mFailure = tIsSame ? tFirst->mFailure : notTheSigned(tTwin->mOffer.mTarget);
    }
    return tFailure;
}

Failure Downloads::fetch(Source& pSource, Items* pItems)
{
    std::vector<Item*> tSpoiled;
    if (const Failure tFailure = download(pSource, pItems)) {
        return tFailure;
    }
    if (const Failure tFailure = verify(pItems, &tSpoiled)) {
        return tFailure;
    }
    if (tSpoiled.empty()) {
        return {};
    }
    // The old part may have been wrong: this server gets the chance to send the complete file.
    Items tAgain;
    for (Item* tItem : tSpoiled) {
        tItem->failure() = Failure();
        tAgain.push_back({tItem->mPackage, std::move(tItem->mArchive)});
    }
    if (const Failure tFailure = download(pSource, &tAgain)) {
        return tFailure;
    }
    return verify(&tAgain, &tSpoiled);
}

Failure Downloads::download(Source& pSource, Items* pItems)
{
    qint64 tTotal = 0;
    for (const Item& tItem : *pItems) {
        tTotal += tItem.mPackage->mOffer.mTarget.mLength;
    }
    mReporter.begin(vkcore::ActivityDownloading, true, tTotal, true);
    const auto tAdvance = [this](qint64 pBytes) { mReporter.advance(pBytes); };

    std::vector<std::pair<Item*, Transfer>> tTransfers;
    for (Item& tItem : *pItems) {
        if (tItem.mArchive->isComplete()) {
            tAdvance(tItem.mArchive->maxLength());
            continue;
        }
        if (const Failure tFailure = tItem.mArchive->open(mAbort, tAdvance)) {
            return tFailure;
        }
        tItem.mHashed = true;
        tItem.mResumed = tItem.mArchive->received() > 0;
        tItem.mArchive->setProgress(tAdvance);
        const QString tPath = sTargetsFolder + tItem.mPackage->mOffer.mTarget.mFetchPath;
        tTransfers.push_back({&tItem, {tPath, tItem.mArchive.get(), {}, {}, false, {}}});
    }
    QList<Transfer*> tToDo;
    for (auto& tPair : tTransfers) {
        tToDo.append(&tPair.second);
    }
    mReporter.atPackage(1, static_cast<int>(pItems->size()), QString());
    if (!tToDo.isEmpty()) {
        pSource.run(tToDo, mAbort);
    }
    Failure tFirst;
    for (auto& [tItem, tTransfer] : tTransfers) {
        Failure tFailure = tItem->mArchive->close();
        tFailure = tTransfer.mFailure ? tTransfer.mFailure : tFailure;
        if (tFailure && !isServersFault(tFailure)) {
            tFirst = tFirst ? tFirst : tFailure;
        }
        tItem->failure() = tFailure;
    }
    return mAbort.isSet() ? Failure::canceled() : tFirst;
}

Failure Downloads::verify(Items* pItems, std::vector<Item*>* pSpoiled)
{
    qint64 tTotal = 0;
    for (const Item& tItem : *pItems) {
        tTotal += tItem.mHashed ? 0 : tItem.mPackage->mOffer.mTarget.mLength;
    }
    mReporter.begin(vkcore::ActivityVerifying, true, tTotal, true);
    pSpoiled->clear();
    int tIndex = 0;
    for (Item& tItem : *pItems) {
        mReporter.atPackage(++tIndex, static_cast<int>(pItems->size()), packageLabel(tItem.mPackage->mOffer));
        if (tItem.failure()) {
            if (tItem.failure().mKind == Failure::Kind::Untrusted) {
                (void)tItem.mArchive->discard(); // it has already failed
            }
            continue;
        }
        if (!tItem.mHashed) {
            tItem.mResumed = true;
            const auto tAdvance = [this](qint64 pBytes) { mReporter.advance(pBytes); };
            if (const Failure tFailure = tItem.mArchive->open(mAbort, tAdvance)) {
                return tFailure;
            }
            (void)tItem.mArchive->close(); // nothing was written
        }
        tItem.failure() = tItem.mArchive->verify();
        if (tItem.failure() && !isServersFault(tItem.failure())) {
            return tItem.failure();
        }
        if (tItem.failure() && tItem.mResumed) {
            pSpoiled->push_back(&tItem);
        }
    }
    return mAbort.isSet() ? Failure::canceled() : Failure();
}

void Downloads::remove(const Plan& pPlan)
{
    for (const PlannedPackage& tPackage : pPlan.mPackages) {
        if (!tPackage.mFailure) {
            // A leftover file only takes space, and the next run tries again.
            (void)mFolder.remove(ArchiveFile::nameOf(tPackage.mOffer.mTarget));
        }
    }
}

void Downloads::clear()
{
    removeAllBut({});
}

void Downloads::keep(const Plan& pPlan)
{
    for (const PlannedPackage& tPackage : pPlan.mPackages) {
        mKept.insert(ArchiveFile::nameOf(tPackage.mOffer.mTarget));
    }
    removeAllBut(mKept);
}

// Files with other names were not created by this class.
void Downloads::removeAllBut(const QSet<QByteArray>& pKept)
{
    const QList<QByteArray> tNames = mFolder.names();
    for (const QByteArray& tName : tNames) {
        if (!pKept.contains(tName) && tuf::Hash::fromHex(QString::fromLatin1(tName))) {
            (void)mFolder.remove(tName); // it only takes space, and the next run tries again
        }
    }
}

} // namespace tarn::vkservice::update

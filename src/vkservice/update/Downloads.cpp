#include "update/Downloads.h"

#include "os/AbortFlag.h"
#include "update/DownloadFile.h"
#include "update/FailurePolicy.h"
#include "update/FreeSpace.h"
#include "update/Plan.h"
#include "update/Reporter.h"
#include "update/Source.h"

#include <QtCore/QHash>

#include <algorithm>
#include <memory>
#include <vector>

using namespace Qt::StringLiterals;

namespace tarn::vkservice::update {

namespace {

const QString sTargetsFolder = u"targets/"_s;
constexpr size_t sMostOpen = 100; // files at a time

} // namespace

struct Downloads::Item
{
    Download* mDownload;
    std::unique_ptr<DownloadFile> mFile;
    bool mHashed = false; // every byte of it went through the hash in this run
    bool mResumed = false;

    Failure& failure() { return mDownload->mFailure; }
    qint64 length() const { return mDownload->mWanted.mLength; }
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
    return mFolder.pathOf(Wanted::nameOf(pOffer.mTarget));
}

bool Downloads::isComplete(const Wanted& pWanted) const
{
    return mFolder.sizeOf(pWanted.mName) == pWanted.mLength;
}

Failure Downloads::fetch(Source& pSource, std::vector<Download>* pDownloads)
{
    Items tItems;
    // Packages with the same contents share their files.
    QHash<QByteArray, Download*> tFirsts;
    QList<std::pair<Download*, Download*>> tTwins;
    for (Download& tDownload : *pDownloads) {
        Download*& tFirst = tFirsts[tDownload.mWanted.mName];
        if (tFirst != nullptr) {
            tTwins.emplaceBack(&tDownload, tFirst);
            continue;
        }
        tFirst = &tDownload;
        tItems.push_back(
            {&tDownload, std::make_unique<DownloadFile>(mFileSystem, mFolder, tDownload.mWanted)});
    }
    Failure tFailure = fetch(pSource, &tItems);
    for (const auto& [tTwin, tFirst] : tTwins) {
        const bool tIsSame = tTwin->mWanted.mLength == tFirst->mWanted.mLength &&
                             tTwin->mWanted.mPieces == tFirst->mWanted.mPieces;
        tTwin->mFailure = tIsSame ? tFirst->mFailure : tTwin->mWanted.notTheSigned();
        tTwin->mHasNoParts = tIsSame && tFirst->mHasNoParts;
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
        tAgain.push_back({tItem->mDownload, std::move(tItem->mFile)});
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
        addBytes(&tTotal, tItem.length());
    }
    mReporter.begin(vkcore::ActivityDownloading, true, tTotal, true);
    mReporter.atPackage(1, static_cast<int>(pItems->size()), QString());
    std::vector<Item*> tToCome;
    for (Item& tItem : *pItems) {
        if (tItem.mFile->isComplete()) {
            mReporter.advance(tItem.length());
        } else {
            tToCome.push_back(&tItem);
        }
    }
    const std::span<Item*> tItems(tToCome);
    for (size_t tNext = 0; tNext < tItems.size(); tNext += sMostOpen) {
        if (const Failure tFailure =
                transfer(pSource, tItems.subspan(tNext, std::min(sMostOpen, tItems.size() - tNext)))) {
            return tFailure;
        }
    }
    return mAbort.isSet() ? Failure::canceled() : Failure();
}

// A failure is one of this machine.
Failure Downloads::transfer(Source& pSource, std::span<Item*> pItems)
{
    std::vector<Transfer> tTransfers;
    for (Item* tItem : pItems) {
        if (const Failure tFailure =
                tItem->mFile->open(mAbort, [this](qint64 pBytes) { mReporter.advance(pBytes); })) {
            return tFailure;
        }
        tItem->mHashed = true;
        tItem->mResumed = tItem->mFile->received() > 0;
        tItem->mFile->setProgress([this](qint64 pBytes) {
            mReceived += qMax<qint64>(pBytes, 0);
            mReporter.advance(pBytes);
        });
        const Wanted& tWanted = tItem->mDownload->mWanted;
        const QString tPath = sTargetsFolder + tWanted.mFetchPath;
        tTransfers.push_back({tPath, tItem->mFile.get(), {}, {}, false, {}, tWanted.mPart});
    }
    QList<Transfer*> tToDo;
    for (Transfer& tTransfer : tTransfers) {
        tToDo.append(&tTransfer);
    }
    pSource.run(tToDo, mAbort);
    Failure tFirst;
    for (size_t tIndex = 0; tIndex < pItems.size(); ++tIndex) {
        Item& tItem = *pItems[tIndex];
        const Transfer& tTransfer = tTransfers[tIndex];
        Failure tFailure = tItem.mFile->close();
        tFailure = tTransfer.mFailure ? tTransfer.mFailure : tFailure;
        if (tFailure && !isServersFault(tFailure)) {
            tFirst = tFirst ? tFirst : tFailure;
        }
        tItem.failure() = tFailure;
        tItem.mDownload->mHasNoParts = tTransfer.mHasNoParts;
    }
    return tFirst;
}

Failure Downloads::verify(Items* pItems, std::vector<Item*>* pSpoiled)
{
    qint64 tTotal = 0;
    for (const Item& tItem : *pItems) {
        tTotal += tItem.mHashed ? 0 : tItem.length();
    }
    mReporter.begin(vkcore::ActivityVerifying, true, tTotal, true);
    pSpoiled->clear();
    int tIndex = 0;
    for (Item& tItem : *pItems) {
        mReporter.atPackage(++tIndex, static_cast<int>(pItems->size()), tItem.mDownload->mLabel);
        if (tItem.failure()) {
            if (tItem.failure().mKind == Failure::Kind::Untrusted) {
                (void)tItem.mFile->discard(); // it has already failed
            }
            continue;
        }
        if (!tItem.mHashed) {
            tItem.mResumed = true;
            const auto tAdvance = [this](qint64 pBytes) { mReporter.advance(pBytes); };
            if (const Failure tFailure = tItem.mFile->open(mAbort, tAdvance)) {
                return tFailure;
            }
            (void)tItem.mFile->close(); // nothing was written
        }
        tItem.failure() = tItem.mFile->verify();
        if (tItem.failure() && !isServersFault(tItem.failure())) {
            return tItem.failure();
        }
        if (tItem.failure() && tItem.mResumed) {
            pSpoiled->push_back(&tItem);
        }
    }
    return mAbort.isSet() ? Failure::canceled() : Failure();
}

namespace {

// The names of all files that a package may be downloaded as, without those of their parts.
QSet<QByteArray> namesFor(const Offer& pOffer)
{
    QSet<QByteArray> tNames{Wanted::nameOf(pOffer.mTarget)};
    if (pOffer.mInfo.mIndex) {
        tNames.insert(pOffer.mInfo.mIndex->mFile.mHash.toHex());
    }
    for (const packages::DeltaFile& tDelta : pOffer.mInfo.mDeltas) {
        tNames.insert(tDelta.mFile.mHash.toHex());
    }
    for (const packages::Attachment& tAttachment : pOffer.mInfo.mAttachments) {
        tNames.insert(tAttachment.mFile.mHash.toHex());
    }
    return tNames;
}

} // namespace

void Downloads::remove(const Plan& pPlan)
{
    QSet<QByteArray> tDone;
    for (const PlannedPackage& tPackage : pPlan.mPackages) {
        if (!tPackage.mFailure) {
            tDone += namesFor(tPackage.mOffer);
        }
    }
    removeIf([&tDone](const QByteArray& pWhole) { return tDone.contains(pWhole); });
}

void Downloads::clear()
{
    removeIf([](const QByteArray&) { return true; });
}

void Downloads::keep(const Plan& pPlan)
{
    for (const PlannedPackage& tPackage : pPlan.mPackages) {
        mKept += namesFor(tPackage.mOffer);
    }
    removeIf([this](const QByteArray& pWhole) { return !mKept.contains(pWhole); });
}

// Files with other names were not created by this class. What is left only takes space, and the next run
// tries again.
void Downloads::removeIf(const std::function<bool(const QByteArray&)>& pCondition)
{
    const QList<QByteArray> tNames = mFolder.names();
    for (const QByteArray& tName : tNames) {
        const QByteArray tWhole = Wanted::wholeOf(tName);
        if (!tWhole.isEmpty() && pCondition(tWhole)) {
            (void)mFolder.remove(tName);
        }
    }
}

} // namespace tarn::vkservice::update

#include "publication/SideFileCheck.h"

#include "publication/FileMatch.h"

#include "os/FileSystem.h"
#include "packages/ArchiveReader.h"
#include "trees/DeltaReader.h"
#include "trees/FrameStream.h"
#include "trees/IndexReader.h"
#include "trees/ZstdLines.h"
#include "tuf/Hashes.h"

#include <archive.h>
#include <archive_entry.h>

using namespace Qt::StringLiterals;

namespace tarn::vkpublish {

using trees::EntryKind;
using trees::IndexEntry;

namespace {

// The entries of an archive, in their order.
class ArchiveEntries
{
public:
    explicit ArchiveEntries(const QString& pArchive) : mPath(pArchive), mReader(os::realFileSystem()) {}

    Failure open() { return mReader.open(mPath); }

    Failure next(IndexEntry* pTo)
    {
        archive_entry* tEntry = nullptr;
        const int tResult = archive_read_next_header(mReader.handle(), &tEntry);
        if (tResult == ARCHIVE_EOF) {
            return Failure::content(u"%1 has fewer entries than its index"_s.arg(mPath));
        }
        if (tResult != ARCHIVE_OK) {
            return mReader.failure();
        }
        *pTo = IndexEntry();
        pTo->mPath = packages::ArchiveReader::pathOf(tEntry);
        if (pTo->mPath.endsWith('/')) {
            pTo->mPath.chop(1);
        }
        if (archive_entry_filetype(tEntry) == AE_IFLNK) {
            pTo->mKind = EntryKind::Link;
            pTo->mTarget = packages::ArchiveReader::linkTargetOf(tEntry);
        } else if (archive_entry_filetype(tEntry) == AE_IFREG) {
            pTo->mKind = EntryKind::File;
            pTo->mIsExecutable = (archive_entry_perm(tEntry) & 0111) != 0;
            pTo->mTime = archive_entry_mtime(tEntry);
            return content(pTo);
        }
        return {};
    }

    Failure atEnd()
    {
        archive_entry* tEntry = nullptr;
        return archive_read_next_header(mReader.handle(), &tEntry) == ARCHIVE_EOF
                   ? Failure()
                   : Failure::content(u"%1 has more entries than its index"_s.arg(mPath));
    }

private:
    Failure content(IndexEntry* pTo)
    {
        tuf::Hasher tHasher(tuf::HashAlgorithm::Sha256);
        const void* tBlock = nullptr;
        size_t tLength = 0;
        la_int64_t tAt = 0;
        int tResult = ARCHIVE_OK;
        while ((tResult = archive_read_data_block(mReader.handle(), &tBlock, &tLength, &tAt)) == ARCHIVE_OK) {
            tHasher.add(QByteArrayView(static_cast<const char*>(tBlock), static_cast<qsizetype>(tLength)));
            pTo->mSize += static_cast<qint64>(tLength);
        }
        pTo->mHash = tHasher.result().front();
        return tResult == ARCHIVE_EOF ? Failure() : mReader.failure();
    }

    QString mPath;
    packages::ArchiveReader mReader;
};

Failure checkText(const QString& pIndex, const packages::IndexName& pText)
{
    trees::ZstdLines tLines(os::realFileSystem());
    tuf::Hasher tHasher(tuf::HashAlgorithm::Sha256);
    Failure tFailure = tLines.open(pIndex);
    qint64 tLength = 0;
    QByteArray tLine;
    while (!tFailure && !(tFailure = tLines.next(&tLine)) && !tLine.isNull()) {
        tLine += '\n';
        tHasher.add(tLine);
        tLength += tLine.size();
    }
    if (tFailure || (tLength == pText.mLength && tHasher.result().front() == pText.mHash)) {
        return tFailure;
    }
    return Failure::content(u"%1 does not have the text that was signed for it"_s.arg(pIndex));
}

// Whether the bytes at the place that the index names are the file.
Failure checkPlace(const IndexEntry& pEntry, trees::FrameStream* pStream, const QString& pIndex)
{
    tuf::Hasher tHasher(tuf::HashAlgorithm::Sha256);
    qint64 tLeft = pEntry.mKind == EntryKind::File ? pEntry.mSize : 0;
    if (tLeft > 0) {
        if (Failure tFailure = pStream->skipTo(pEntry.mAt)) {
            return tFailure;
        }
    }
    while (tLeft > 0) {
        QByteArrayView tPart;
        if (Failure tFailure = pStream->read(tLeft, &tPart)) {
            return tFailure;
        }
        tHasher.add(tPart);
        tLeft -= tPart.size();
    }
    return pEntry.mKind != EntryKind::File || tHasher.result().front() == pEntry.mHash
               ? Failure()
               : Failure::content(
                     u"%1 has a wrong place for %2"_s.arg(pIndex, QString::fromUtf8(pEntry.mPath)));
}

bool areSame(const IndexEntry& pListed, IndexEntry pPacked)
{
    pPacked.mAt = pListed.mAt; // which checkPlace() proves
    return pListed == pPacked;
}

Failure compare(trees::IndexReader* pIndex, const QString& pIndexPath, const QString& pArchive)
{
    const trees::FrameTable& tFrames = pIndex->frames();
    const trees::FrameRun tAll{0, tFrames.count(), {0, tFrames.packedSize()}};
    if (Failure tFailure = trees::checkFrames(os::realFileSystem(), pArchive, tFrames, tAll)) {
        return tFailure;
    }
    trees::FrameStream tStream(os::realFileSystem(), tFrames, tAll);
    if (Failure tFailure = tStream.open(pArchive)) {
        return tFailure;
    }
    ArchiveEntries tPacked(pArchive);
    Failure tFailure = tPacked.open();
    IndexEntry tEntry;
    IndexEntry tOther;
    while (!tFailure && pIndex->next(&tEntry, &tFailure)) {
        tFailure = tPacked.next(&tOther);
        if (!tFailure && !areSame(tEntry, tOther)) {
            tFailure = Failure::content(
                u"%1 differs from the archive in %2"_s.arg(pIndexPath, QString::fromUtf8(tEntry.mPath)));
        }
        tFailure = tFailure ? tFailure : checkPlace(tEntry, &tStream, pIndexPath);
    }
    return tFailure ? tFailure : tPacked.atEnd();
}

} // namespace

Failure checkIndex(const QString& pTargets, const packages::PackageInfo& pInfo, const QString& pArchive,
                   qint64 pArchiveSize)
{
    const QString tPath = pTargets + u'/' + pInfo.mIndex->name();
    const packages::SideFile& tFile = pInfo.mIndex->mFile;
    if (Failure tFailure = fileMatches(tPath, tFile.mLength, {tFile.mHash})) {
        return tFailure;
    }
    if (Failure tFailure = checkText(tPath, pInfo.mIndex->mText)) {
        return tFailure;
    }
    trees::IndexReader tReader(os::realFileSystem());
    if (Failure tFailure =
            tReader.open(tPath, {.mMaxBytes = pInfo.mInstalledSize, .mArchiveSize = pArchiveSize})) {
        return tFailure;
    }
    return compare(&tReader, tPath, pArchive);
}

Failure checkDelta(const QString& pTargets, const packages::PackageInfo& pInfo,
                   const packages::DeltaFile& pDelta)
{
    const QString tPath = pTargets + u'/' + pDelta.name();
    if (Failure tFailure = fileMatches(tPath, pDelta.mFile.mLength, {pDelta.mFile.mHash})) {
        return tFailure;
    }
    trees::DeltaReader tReader(os::realFileSystem());
    if (Failure tFailure = tReader.open(tPath, pDelta.mFile.mLength)) {
        return tFailure;
    }
    return tReader.header().mOld == pDelta.mFrom && pInfo.mIndex &&
                   tReader.header().mNew == pInfo.mIndex->mText
               ? Failure()
               : Failure::content(u"%1 is not between the versions that are named for it"_s.arg(tPath));
}

} // namespace tarn::vkpublish

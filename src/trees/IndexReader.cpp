#include "trees/IndexReader.h"

#include "packages/EntryPath.h"

#include <algorithm>

using namespace Qt::StringLiterals;

namespace tarn::trees {

Failure IndexReader::refuse(const QString& pWhy) const
{
    return Failure::content(u"The index %1 is refused: %2"_s.arg(mPath, pWhy));
}

Failure IndexReader::refuseEntry(const IndexEntry& pEntry, const QString& pWhy) const
{
    return refuse(u"\"%1\" %2"_s.arg(QString::fromUtf8(pEntry.mPath), pWhy));
}

Failure IndexReader::open(const QString& pPath, const IndexLimits& pLimits)
{
    mPath = pPath;
    mLimits = pLimits;
    if (Failure tFailure = mLines.open(pPath)) {
        return tFailure;
    }
    QByteArray tLine;
    if (Failure tFailure = mLines.next(&tLine)) {
        return tFailure;
    }
    const std::optional<IndexHeader> tHeader = headerFromLine(tLine);
    if (!tHeader || tHeader->mEntries > pLimits.mMaxEntries || tHeader->mFrames > pLimits.mMaxEntries ||
        tHeader->mBytes > pLimits.mMaxBytes) {
        return refuse(u"its first line is not valid"_s);
    }
    mHeader = *tHeader;
    return readFrames();
}

Failure IndexReader::readFrames()
{
    for (qint64 tIndex = 0; tIndex < mHeader.mFrames; ++tIndex) {
        QByteArray tLine;
        if (Failure tFailure = mLines.next(&tLine)) {
            return tFailure;
        }
        const std::optional<Frame> tFrame = frameFromLine(tLine);
        if (!tFrame || !mFrames.append(*tFrame)) {
            return refuse(u"frame %1 is not valid"_s.arg(tIndex + 1));
        }
    }
    // What a tar file adds to an entry is far below this; more would let a small index promise endless bytes.
    constexpr qint64 sMostAround = 64 * 1024;
    if (mFrames.unpackedSize() > mHeader.mBytes + (mHeader.mEntries + 1) * sMostAround) {
        return refuse(u"its frames are much larger than its files"_s);
    }
    return mLimits.mArchiveSize == IndexLimits::sUnknown || mFrames.packedSize() == mLimits.mArchiveSize
               ? Failure()
               : refuse(u"its frames are not those of the archive"_s);
}

bool IndexReader::next(IndexEntry* pTo, Failure* pFailure)
{
    if (mCount == mHeader.mEntries) {
        QByteArray tLine;
        *pFailure = mLines.next(&tLine);
        if (!*pFailure && !tLine.isNull()) {
            *pFailure = refuse(u"it goes on behind its last entry"_s);
        }
        if (!*pFailure && mBytes != mHeader.mBytes) {
            *pFailure = refuse(u"its sizes do not add up"_s);
        }
        return false;
    }
    *pFailure = readEntry(pTo);
    return !*pFailure;
}

Failure IndexReader::readEntry(IndexEntry* pTo)
{
    QByteArray tLine;
    if (Failure tFailure = mLines.next(&tLine)) {
        return tFailure;
    }
    ++mCount;
    std::optional<IndexEntry> tEntry = entryFromLine(tLine, mArchiveEnd);
    if (!tEntry) {
        return refuse(u"entry %1 is not valid"_s.arg(mCount));
    }
    *pTo = std::move(*tEntry);
    return check(*pTo);
}

Failure IndexReader::check(const IndexEntry& pEntry)
{
    const std::optional<QByteArrayList> tNames = packages::entryPath(pEntry.mPath, mLimits.mMaxDepth);
    if (!tNames || tNames->isEmpty() || tNames->join('/') != pEntry.mPath) {
        return refuseEntry(pEntry, u"is not a path inside a package"_s);
    }
    if (!comesBefore(mNames, *tNames)) {
        return refuseEntry(pEntry, u"is listed twice or not in order"_s);
    }
    const auto tCommon =
        std::mismatch(mNames.begin(), mNames.end(), tNames->begin(), tNames->end()).first - mNames.begin();
    if (tNames->size() > std::min<qsizetype>(tCommon, mFolderDepth) + 1) {
        return refuseEntry(pEntry, u"is in a folder that is not listed"_s);
    }
    mNames = *tNames;
    mFolderDepth = tNames->size() - (pEntry.mKind == EntryKind::Folder ? 0 : 1);
    if (pEntry.mKind == EntryKind::Link &&
        !packages::linkStaysInside(pEntry.mTarget, static_cast<int>(tNames->size()) - 1)) {
        return refuseEntry(pEntry, u"is a link that leads out of the package"_s);
    }
    if (pEntry.mKind != EntryKind::File) {
        return {};
    }
    if (pEntry.mSize > mHeader.mBytes - mBytes || pEntry.mAt > mFrames.unpackedSize() ||
        pEntry.mSize > mFrames.unpackedSize() - pEntry.mAt) {
        return refuseEntry(pEntry, u"lies outside of the archive"_s);
    }
    mBytes += pEntry.mSize;
    mArchiveEnd = pEntry.mAt + pEntry.mSize;
    return {};
}

} // namespace tarn::trees

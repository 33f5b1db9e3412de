#include "record/SortedLines.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

using namespace Qt::StringLiterals;

namespace tarn::vkpublish {

namespace {

constexpr qint64 sPiece = 4096; // a few lines

} // namespace

Failure SortedLines::damaged() const
{
    return Failure::content(u"%1 is damaged: restore the key folder from a backup"_s.arg(mPath));
}

Result<QByteArray> SortedLines::bytes(qint64 pFrom, qint64 pMost) const
{
    QByteArray tBytes(pMost, Qt::Uninitialized);
    ssize_t tSize = -1;
    do {
        tSize = ::pread(mFd, tBytes.data(), static_cast<size_t>(pMost), pFrom);
    } while (tSize < 0 && errno == EINTR);
    if (tSize < 0) {
        return Failure::fromErrno(errno, u"read %1"_s.arg(mPath)).as(Failure::Kind::Io);
    }
    tBytes.truncate(tSize);
    return tBytes;
}

Result<qint64> SortedLines::beginOf(qint64 pOffset) const
{
    for (qint64 tTo = pOffset; tTo > 0;) {
        const qint64 tFrom = std::max<qint64>(tTo - sPiece, 0);
        const Result<QByteArray> tPiece = bytes(tFrom, tTo - tFrom);
        if (!tPiece) {
            return tPiece.failure();
        }
        if (const qsizetype tEnd = tPiece->lastIndexOf('\n'); tEnd >= 0) {
            return tFrom + tEnd + 1;
        }
        tTo = tFrom;
    }
    return qint64(0);
}

// The line that has this byte.
Result<SortedLines::Place> SortedLines::lineAt(qint64 pOffset) const
{
    const Result<qint64> tBegin = beginOf(pOffset);
    if (!tBegin) {
        return tBegin.failure();
    }
    QByteArray tText;
    qsizetype tEnd = -1;
    while (tEnd < 0) {
        const Result<QByteArray> tPiece = bytes(*tBegin + tText.size(), sPiece);
        if (!tPiece || tPiece->isEmpty()) {
            return tPiece ? damaged() : tPiece.failure();
        }
        const qsizetype tFound = tPiece->indexOf('\n');
        tEnd = tFound < 0 ? -1 : tText.size() + tFound;
        tText += *tPiece;
    }
    const std::optional<PackageLine> tLine = PackageLine::parse(QByteArrayView(tText).first(tEnd));
    return tLine ? Result(Place{*tBegin, *tBegin + tEnd + 1, *tLine}) : damaged();
}

// Where the first line begins whose name does not come before the prefix.
Result<qint64> SortedLines::firstNotBefore(const QByteArray& pPrefix, qint64 pSize) const
{
    qint64 tFrom = 0; // both are where lines begin
    qint64 tTo = pSize;
    while (tFrom < tTo) {
        const Result<Place> tPlace = lineAt(tFrom + (tTo - tFrom) / 2);
        if (!tPlace) {
            return tPlace.failure();
        }
        if (tPlace->mLine.mName < pPrefix) {
            tFrom = tPlace->mEnd;
        } else {
            tTo = tPlace->mBegin;
        }
    }
    return tFrom;
}

Failure SortedLines::read(const QByteArray& pPrefix, bool pHasLines, const Take& pTake) const
{
    struct stat tStat = {};
    if (::fstat(mFd, &tStat) != 0) {
        return Failure::fromErrno(errno, u"read %1"_s.arg(mPath)).as(Failure::Kind::Io);
    }
    if ((tStat.st_size > 0) != pHasLines) {
        return damaged();
    }
    const Result<qint64> tFirst = firstNotBefore(pPrefix, tStat.st_size);
    if (!tFirst) {
        return tFirst.failure();
    }
    for (qint64 tAt = *tFirst; tAt < tStat.st_size;) {
        const Result<Place> tPlace = lineAt(tAt);
        if (!tPlace) {
            return tPlace.failure();
        }
        if (!tPlace->mLine.mName.startsWith(pPrefix)) {
            break;
        }
        pTake(tPlace->mLine);
        tAt = tPlace->mEnd;
    }
    return {};
}

} // namespace tarn::vkpublish

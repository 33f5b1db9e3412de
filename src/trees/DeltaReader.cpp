#include "trees/DeltaReader.h"

using namespace Qt::StringLiterals;

namespace tarn::trees {

Failure DeltaReader::refuse(const QString& pWhy) const
{
    return Failure::content(u"The delta %1 is refused: %2"_s.arg(mPath, pWhy));
}

Failure DeltaReader::open(const QString& pPath, qint64 pLength)
{
    mPath = pPath;
    if (Failure tFailure = mLines.open(pPath, ZstdLines::Extent::FirstFrame)) {
        return tFailure;
    }
    QByteArray tLine;
    if (Failure tFailure = mLines.next(&tLine)) {
        return tFailure;
    }
    const std::optional<DeltaHeader> tHeader = deltaHeaderFromLine(tLine);
    if (!tHeader || tHeader->mPacked >= pLength) {
        return refuse(u"its first line is not valid"_s);
    }
    mHeader = *tHeader;
    mHeaderLength = pLength - mHeader.mPacked;
    mOld = {mHeader.mOld.mLength};
    mNew = {mHeader.mNew.mLength};
    return {};
}

void DeltaReader::setEntries(EntrySizes pOld, EntrySizes pNew)
{
    mOld = std::move(pOld);
    mNew = std::move(pNew);
    mOld.front() = mHeader.mOld.mLength;
    mNew.front() = mHeader.mNew.mLength;
}

bool DeltaReader::next(Segment* pTo, Failure* pFailure)
{
    const bool tIsThere = mCount < mHeader.mSegments;
    *pFailure = tIsThere ? readSegment(pTo) : checkEnd();
    return tIsThere && !*pFailure;
}

Failure DeltaReader::readSegment(Segment* pTo)
{
    QByteArray tLine;
    if (Failure tFailure = mLines.next(&tLine)) {
        return tFailure;
    }
    ++mCount;
    std::optional<Segment> tSegment = segmentFromLine(tLine, mOld, mNew);
    if (!tSegment || tSegment->mPacked.mLength > mHeader.mPacked - mPackedEnd) {
        return refuse(u"segment %1 is not valid"_s.arg(mCount));
    }
    tSegment->mPacked.mFirst = mHeaderLength + mPackedEnd;
    mPackedEnd += tSegment->mPacked.mLength;
    for (const Piece& tPiece : tSegment->mMakes) {
        if (!follows(tPiece)) {
            return refuse(u"segment %1 does not go on where the one before it ended"_s.arg(mCount));
        }
        mLast = tPiece;
    }
    *pTo = std::move(*tSegment);
    return {};
}

bool DeltaReader::isComplete() const
{
    return mLast.mEntry >= 0 && mLast.mBytes.end() == mNew[static_cast<size_t>(mLast.mEntry)];
}

// The text of the index comes first, then the files upwards, each from its begin to its end.
bool DeltaReader::follows(const Piece& pPiece) const
{
    if (mLast.mEntry < 0) {
        return pPiece.mEntry == 0 && pPiece.mBytes.mFirst == 0;
    }
    if (isComplete()) {
        return pPiece.mEntry > mLast.mEntry && pPiece.mBytes.mFirst == 0;
    }
    return pPiece.mEntry == mLast.mEntry && pPiece.mBytes.mFirst == mLast.mBytes.end();
}

Failure DeltaReader::checkEnd()
{
    QByteArray tLine;
    if (Failure tFailure = mLines.next(&tLine)) {
        return tFailure;
    }
    if (!tLine.isNull() || mPackedEnd != mHeader.mPacked || mLines.packedEnd() != mHeaderLength) {
        return refuse(u"its lengths do not add up"_s);
    }
    return isComplete() ? Failure() : refuse(u"its last file is not complete"_s);
}

} // namespace tarn::trees

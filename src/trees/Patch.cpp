#include "trees/Patch.h"

#include <zstd.h>

#include <algorithm>
#include <memory>

using namespace Qt::StringLiterals;

namespace tarn::trees {

namespace {

void appendNumber(quint64 pValue, QByteArray* pTo)
{
    for (; pValue > 0x7f; pValue >>= 7) {
        pTo->append(static_cast<char>(pValue | 0x80));
    }
    pTo->append(static_cast<char>(pValue));
}

bool takeNumber(QByteArrayView* pFrom, quint64* pTo)
{
    *pTo = 0;
    for (int tShift = 0; tShift < 63 && !pFrom->isEmpty(); tShift += 7) {
        const auto tByte = static_cast<quint64>(static_cast<uchar>(pFrom->front()));
        *pFrom = pFrom->sliced(1);
        *pTo |= (tByte & 0x7f) << tShift;
        if (tByte < 0x80) {
            return true;
        }
    }
    return false;
}

// The frames of a segment's packed bytes, one after the other.
class Frames
{
public:
    explicit Frames(QByteArrayView pPacked) : mDecoder(ZSTD_createDCtx(), ZSTD_freeDCtx), mRest(pPacked) {}

    // The content of the next one; false where it is damaged or longer than pMaxLength. It is unpacked in
    // one go, so a frame can take no memory but for its content.
    bool next(QByteArrayView pPrefix, qint64 pMaxLength, QByteArray* pTo)
    {
        const size_t tPacked = ZSTD_findFrameCompressedSize(mRest.data(), static_cast<size_t>(mRest.size()));
        const unsigned long long tLength =
            ZSTD_getFrameContentSize(mRest.data(), static_cast<size_t>(mRest.size()));
        if (ZSTD_isError(tPacked) != 0 || tLength > static_cast<unsigned long long>(pMaxLength)) {
            return false;
        }
        pTo->resize(static_cast<qsizetype>(tLength));
        ZSTD_DCtx_refPrefix(mDecoder.get(), pPrefix.data(), static_cast<size_t>(pPrefix.size()));
        const size_t tGot = ZSTD_decompressDCtx(mDecoder.get(), pTo->data(), tLength, mRest.data(), tPacked);
        mRest = mRest.sliced(static_cast<qsizetype>(tPacked));
        return tGot == tLength;
    }
    bool atEnd() const { return mRest.isEmpty(); }

private:
    std::unique_ptr<ZSTD_DCtx, size_t (*)(ZSTD_DCtx*)> mDecoder;
    QByteArrayView mRest;
};

// Follows the steps. All that is taken must be there, and must be used up at the end.
class Steps
{
public:
    Steps(QByteArrayView pBase, QByteArrayView pControl, QByteArrayView pExtra)
        : mBase(pBase), mControl(pControl), mExtra(pExtra)
    {
    }

    bool run(QByteArrayView pDifference, qint64 pLength, QByteArray* pTo)
    {
        pTo->clear();
        pTo->reserve(pLength);
        while (!mControl.isEmpty()) {
            PatchStep tStep;
            if (!takeStep(&mControl, &tStep) || !goTo(tStep) || tStep.mAdd > pDifference.size() ||
                tStep.mCopy > mExtra.size()) {
                return false;
            }
            add(pDifference.first(tStep.mAdd), pTo);
            pDifference = pDifference.sliced(tStep.mAdd);
            pTo->append(mExtra.first(tStep.mCopy));
            mExtra = mExtra.sliced(tStep.mCopy);
        }
        return pDifference.isEmpty() && mExtra.isEmpty() && pTo->size() == pLength;
    }

private:
    bool goTo(const PatchStep& pStep)
    {
        if (pStep.mSeek < -mPosition || pStep.mSeek > mBase.size() - mPosition) {
            return false;
        }
        mPosition += pStep.mSeek;
        return pStep.mAdd <= mBase.size() - mPosition;
    }

    void add(QByteArrayView pDifference, QByteArray* pTo)
    {
        const qsizetype tBegin = pTo->size();
        pTo->append(pDifference);
        std::transform(pDifference.begin(), pDifference.end(), mBase.begin() + mPosition,
                       pTo->begin() + tBegin, [](char pPlus, char pFrom) {
                           return static_cast<char>(static_cast<uchar>(pPlus) + static_cast<uchar>(pFrom));
                       });
        mPosition += pDifference.size();
    }

    QByteArrayView mBase;
    QByteArrayView mControl;
    QByteArrayView mExtra;
    qint64 mPosition = 0; // in the base
};

bool applySteps(QByteArrayView pBase, Frames* pFrames, qint64 pLength, QByteArray* pTo)
{
    QByteArray tControl;
    QByteArray tDifference;
    QByteArray tExtra;
    return pFrames->next({}, DeltaLimits::maxControl(pLength), &tControl) &&
           pFrames->next({}, pLength, &tDifference) &&
           pFrames->next({}, pLength - tDifference.size(), &tExtra) &&
           Steps(pBase, tControl, tExtra).run(tDifference, pLength, pTo);
}

} // namespace

void appendStep(const PatchStep& pStep, QByteArray* pControl)
{
    const quint64 tSign = pStep.mSeek < 0 ? ~quint64(0) : 0;
    appendNumber(static_cast<quint64>(pStep.mSeek) << 1 ^ tSign, pControl);
    appendNumber(static_cast<quint64>(pStep.mAdd), pControl);
    appendNumber(static_cast<quint64>(pStep.mCopy), pControl);
}

bool takeStep(QByteArrayView* pControl, PatchStep* pTo)
{
    quint64 tSeek = 0;
    quint64 tAdd = 0;
    quint64 tCopy = 0;
    if (!takeNumber(pControl, &tSeek) || !takeNumber(pControl, &tAdd) || !takeNumber(pControl, &tCopy)) {
        return false;
    }
    *pTo = {static_cast<qint64>(tSeek >> 1) ^ -static_cast<qint64>(tSeek & 1), static_cast<qint64>(tAdd),
            static_cast<qint64>(tCopy)};
    return true;
}

Failure applySegment(const Segment& pSegment, QByteArrayView pBase, QByteArrayView pPacked, QByteArray* pTo)
{
    const qint64 tLength = totalLength(pSegment.mMakes);
    const bool tLengthsFit = pBase.size() == totalLength(pSegment.mFrom);
    Frames tFrames(pPacked);
    const bool tIsMade =
        pSegment.mMethod == PatchMethod::Bsdiff
            ? applySteps(pBase, &tFrames, tLength, pTo)
            : tFrames.next(pSegment.mMethod == PatchMethod::Zstd ? pBase : QByteArrayView(), tLength, pTo);
    return tLengthsFit && tIsMade && tFrames.atEnd() && pTo->size() == tLength
               ? Failure()
               : Failure::content(u"A segment of the delta does not make what it should"_s);
}

} // namespace tarn::trees

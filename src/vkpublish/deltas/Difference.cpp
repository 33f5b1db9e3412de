#include "deltas/Difference.h"

#include "deltas/SuffixMatcher.h"

#include "trees/Patch.h"

#include <algorithm>
#include <optional>

namespace tarn::vkpublish {

namespace {

// A match must fit so many bytes better than what goes on anyway, for a step of its own to pay.
constexpr qsizetype sGain = 8;

// Where the new bytes from a place on are taken from the base.
struct Alignment
{
    qsizetype mNew = 0;
    qsizetype mBase = 0;
};

class Differ
{
public:
    Differ(QByteArrayView pBase, QByteArrayView pNew) : mBase(pBase), mNew(pNew), mMatcher(pBase) {}

    Difference run()
    {
        for (bool tMore = !mNew.isEmpty(); tMore;) {
            const std::optional<Alignment> tNext = findBetter();
            close(tNext);
            tMore = tNext.has_value();
        }
        return std::move(mResult);
    }

private:
    bool fits(qsizetype pNew) const
    {
        const qsizetype tBase = pNew - mOpen.mNew + mOpen.mBase;
        return tBase >= 0 && tBase < mBase.size() && mBase[tBase] == mNew[pNew];
    }

    // The next place with a match that is clearly better than the open alignment is there.
    std::optional<Alignment> findBetter()
    {
        qsizetype tCounted = mScan; // up to here it is known how many bytes behind mScan fit
        qsizetype tFitting = 0;
        while (mScan < mNew.size()) {
            const Match tMatch = mMatcher.longest(mNew.sliced(mScan));
            for (tCounted = std::max(tCounted, mScan); tCounted < mScan + tMatch.mLength; ++tCounted) {
                tFitting += fits(tCounted) ? 1 : 0;
            }
            if (tMatch.mLength > tFitting + sGain) {
                const Alignment tBetter{mScan, tMatch.mAt};
                mScan += tMatch.mLength;
                return tBetter;
            }
            if (tMatch.mLength > 0 && tMatch.mLength == tFitting) {
                mScan += tMatch.mLength;
                tFitting = 0;
            } else {
                tFitting -= mScan < tCounted && fits(mScan) ? 1 : 0;
                ++mScan;
            }
        }
        return std::nullopt;
    }

    // How far the open alignment goes forwards: where more than half of the bytes fit.
    qsizetype forwards(qsizetype pEnd) const
    {
        const qsizetype tMost = std::min(pEnd - mOpen.mNew, mBase.size() - mOpen.mBase);
        qsizetype tScore = 0;
        qsizetype tBestScore = 0;
        qsizetype tBest = 0;
        for (qsizetype i = 0; i < tMost; ++i) {
            tScore += mBase[mOpen.mBase + i] == mNew[mOpen.mNew + i] ? 1 : -1;
            if (tScore > tBestScore) {
                tBestScore = tScore;
                tBest = i + 1;
            }
        }
        return tBest;
    }

    // The same from the next one backwards.
    qsizetype backwards(const Alignment& pNext) const
    {
        const qsizetype tMost = std::min(pNext.mNew - mOpen.mNew, pNext.mBase);
        qsizetype tScore = 0;
        qsizetype tBestScore = 0;
        qsizetype tBest = 0;
        for (qsizetype i = 1; i <= tMost; ++i) {
            tScore += mBase[pNext.mBase - i] == mNew[pNext.mNew - i] ? 1 : -1;
            if (tScore > tBestScore) {
                tBestScore = tScore;
                tBest = i;
            }
        }
        return tBest;
    }

    // Of bytes that both could take: how many the open alignment shall have.
    qsizetype split(const Alignment& pNext, qsizetype pBegin, qsizetype pEnd) const
    {
        qsizetype tScore = 0;
        qsizetype tBestScore = 0;
        qsizetype tBest = 0;
        for (qsizetype i = pBegin; i < pEnd; ++i) {
            tScore += fits(i) ? 1 : 0;
            tScore -= mBase[pNext.mBase - (pNext.mNew - i)] == mNew[i] ? 1 : 0;
            if (tScore > tBestScore) {
                tBestScore = tScore;
                tBest = i - pBegin + 1;
            }
        }
        return tBest;
    }

    // Ends the open alignment, and opens the next.
    void close(const std::optional<Alignment>& pNext)
    {
        const qsizetype tLimit = pNext ? pNext->mNew : mNew.size();
        qsizetype tAdd = forwards(tLimit);
        qsizetype tBack = pNext ? backwards(*pNext) : 0;
        const qsizetype tOverlap = mOpen.mNew + tAdd - (tLimit - tBack);
        if (tOverlap > 0) {
            const qsizetype tBegin = tLimit - tBack;
            const qsizetype tKept = split(*pNext, tBegin, tBegin + tOverlap);
            tAdd -= tOverlap - tKept;
            tBack -= tKept;
        }
        append(tAdd, tLimit - tBack);
        if (pNext) {
            mOpen = {pNext->mNew - tBack, pNext->mBase - tBack};
        }
    }

    void append(qsizetype pAdd, qsizetype pEnd)
    {
        if (pEnd == mOpen.mNew) {
            return; // makes nothing
        }
        const qsizetype tCopy = pEnd - mOpen.mNew - pAdd;
        trees::appendStep({mOpen.mBase - mPosition, pAdd, tCopy}, &mResult.mControl);
        for (qsizetype i = 0; i < pAdd; ++i) {
            mResult.mDifference.append(static_cast<char>(static_cast<uchar>(mNew[mOpen.mNew + i]) -
                                                         static_cast<uchar>(mBase[mOpen.mBase + i])));
        }
        mResult.mExtra.append(mNew.sliced(mOpen.mNew + pAdd, tCopy));
        mPosition = mOpen.mBase + pAdd;
    }

    QByteArrayView mBase;
    QByteArrayView mNew;
    SuffixMatcher mMatcher;
    Difference mResult;
    Alignment mOpen;
    qsizetype mScan = 0;
    qsizetype mPosition = 0; // in the base, behind the last step
};

} // namespace

Difference difference(QByteArrayView pBase, QByteArrayView pNew)
{
    return Differ(pBase, pNew).run();
}

} // namespace tarn::vkpublish

#include "deltas/SuffixMatcher.h"

#include <divsufsort.h>

#include <algorithm>
#include <cstring>

namespace tarn::vkpublish {

namespace {

constexpr qsizetype sLongest =
    4096; // so that long runs of the same bytes cost no more than this at each byte
constexpr size_t sPairCount = 256 * 256;

size_t pairAt(QByteArrayView pText)
{
    return static_cast<size_t>(static_cast<uchar>(pText[0])) << 8 | static_cast<uchar>(pText[1]);
}

} // namespace

qsizetype commonLength(QByteArrayView pOne, QByteArrayView pOther)
{
    const qsizetype tMost = std::min(pOne.size(), pOther.size());
    qsizetype tLength = 0;
    quint64 tWord = 0;
    quint64 tOther = 0;
    constexpr auto sWord = static_cast<qsizetype>(sizeof tWord);
    while (tLength + sWord <= tMost) {
        std::memcpy(&tWord, pOne.data() + tLength, sizeof tWord);
        std::memcpy(&tOther, pOther.data() + tLength, sizeof tOther);
        if (tWord != tOther) {
            break;
        }
        tLength += sWord;
    }
    while (tLength < tMost && pOne[tLength] == pOther[tLength]) {
        ++tLength;
    }
    return tLength;
}

SuffixMatcher::SuffixMatcher(QByteArrayView pBase)
    : mBase(pBase), mSuffixes(static_cast<size_t>(pBase.size())), mPairs(sPairCount + 1)
{
    if (!mSuffixes.empty()) {
        divsufsort(reinterpret_cast<const sauchar_t*>(pBase.data()), mSuffixes.data(),
                   static_cast<saidx_t>(pBase.size()));
        countPairs();
    }
}

void SuffixMatcher::countPairs()
{
    for (qsizetype i = 0; i + 1 < mBase.size(); ++i) {
        ++mPairs[pairAt(mBase.sliced(i)) + 1];
    }
    // The suffix of one byte stands before all pairs that begin with it, at the end of the pair before.
    ++mPairs[static_cast<size_t>(static_cast<uchar>(mBase.back())) << 8];
    for (size_t i = 1; i <= sPairCount; ++i) {
        mPairs[i] += mPairs[i - 1];
    }
}

Match SuffixMatcher::longest(QByteArrayView pText) const
{
    if (pText.size() < 2) {
        return {};
    }
    const QByteArrayView tText = pText.first(std::min(pText.size(), sLongest));
    const size_t tPair = pairAt(tText);
    auto tLow = mPairs[tPair];
    auto tHigh = mPairs[tPair + 1];
    // All between two suffixes begins with what these two have in common.
    qsizetype tLowCommon = 0;
    qsizetype tHighCommon = 0;
    Match tBest;
    while (tLow < tHigh) {
        const auto tMiddle = tLow + (tHigh - tLow) / 2;
        const qsizetype tAt = mSuffixes[static_cast<size_t>(tMiddle)];
        const QByteArrayView tSuffix = mBase.sliced(tAt);
        qsizetype tCommon = std::min(tLowCommon, tHighCommon);
        tCommon += commonLength(tSuffix.sliced(tCommon), tText.sliced(tCommon));
        if (tCommon > tBest.mLength) {
            tBest = {tAt, tCommon};
        }
        if (tCommon == tText.size()) {
            break;
        }
        if (tCommon == tSuffix.size() ||
            static_cast<uchar>(tSuffix[tCommon]) < static_cast<uchar>(tText[tCommon])) {
            tLow = tMiddle + 1;
            tLowCommon = tCommon;
        } else {
            tHigh = tMiddle;
            tHighCommon = tCommon;
        }
    }
    return tBest;
}

} // namespace tarn::vkpublish

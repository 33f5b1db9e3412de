#include "deltas/Relation.h"

#include <QtCore/QtGlobal>

#include <algorithm>
#include <bit>
#include <cstddef>
#include <vector>

namespace tarn::vkpublish {

namespace {

constexpr qsizetype sRun = 16;                   // bytes
constexpr qsizetype sUnrelated = 65536;          // in so many bytes one common run is nothing
constexpr qsizetype sSmall = 4096;               // a patch is tried as quickly
constexpr quint64 sFactor = 0x9e3779b97f4a7c15U; // odd, its bits are spread evenly

quint64 power(quint64 pBase, qsizetype pExponent)
{
    quint64 tPower = 1;
    for (qsizetype i = 0; i < pExponent; ++i) {
        tPower *= pBase;
    }
    return tPower;
}

// The hash of a run of bytes that moves on byte by byte.
class RollingHash
{
public:
    explicit RollingHash(QByteArrayView pText) : mText(pText)
    {
        for (qsizetype i = 0; i < sRun; ++i) {
            mValue = mValue * sFactor + byteAt(i);
        }
    }
    void next()
    {
        mValue = (mValue - byteAt(mAt) * mFirst) * sFactor + byteAt(mAt + sRun);
        ++mAt;
    }
    quint64 value() const { return mValue; }

private:
    quint64 byteAt(qsizetype pAt) const { return static_cast<uchar>(mText[pAt]) + 1U; }

    QByteArrayView mText;
    quint64 mFirst = power(sFactor, sRun - 1);
    quint64 mValue = 0;
    qsizetype mAt = 0;
};

// A set of hashes in one stretch of memory, which goes back to the system at once.
class HashSet
{
public:
    explicit HashSet(qsizetype pMost) : mPlaces(std::bit_ceil(static_cast<size_t>(pMost + pMost / 2 + 1))) {}

    void insert(quint64 pHash)
    {
        mHasZero = mHasZero || pHash == 0;
        *placeOf(pHash) = pHash;
    }
    bool contains(quint64 pHash) { return pHash == 0 ? mHasZero : *placeOf(pHash) == pHash; }

private:
    // Where it is, or an empty place.
    quint64* placeOf(quint64 pHash)
    {
        const size_t tMask = mPlaces.size() - 1;
        size_t tAt = static_cast<size_t>(pHash * sFactor >> 32) & tMask;
        while (mPlaces[tAt] != 0 && mPlaces[tAt] != pHash) {
            tAt = (tAt + 1) & tMask;
        }
        return &mPlaces[tAt];
    }

    std::vector<quint64> mPlaces; // 0 is empty
    bool mHasZero = false;
};

} // namespace

bool areRelated(QByteArrayView pBase, QByteArrayView pMade)
{
    if (pBase.size() < sSmall || pMade.size() < sSmall) {
        return true;
    }
    HashSet tRuns(pBase.size() / sRun);
    for (qsizetype i = 0; i + sRun <= pBase.size(); i += sRun) {
        tRuns.insert(RollingHash(pBase.sliced(i)).value());
    }
    RollingHash tHash(pMade);
    qsizetype tCommon = tRuns.contains(tHash.value()) ? 1 : 0;
    for (qsizetype i = 1; i + sRun <= pMade.size() && tCommon <= pMade.size() / sUnrelated; ++i) {
        tHash.next();
        tCommon += tRuns.contains(tHash.value()) ? 1 : 0;
    }
    return tCommon > pMade.size() / sUnrelated;
}

} // namespace tarn::vkpublish

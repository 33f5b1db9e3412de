#include "deltas/Counterparts.h"

#include <QtCore/QSet>

#include <algorithm>
#include <tuple>

namespace tarn::vkpublish {

using trees::EntryKind;
using trees::IndexEntry;

namespace {

QByteArray fileName(const QByteArray& pPath)
{
    return pPath.sliced(pPath.lastIndexOf('/') + 1);
}

QByteArray pathItself(const QByteArray& pPath)
{
    return pPath;
}

QByteArray withoutDigits(const QByteArray& pText)
{
    QByteArray tResult;
    for (const char tChar : pText) {
        if (tChar < '0' || tChar > '9') {
            tResult += tChar;
        } else if (!tResult.endsWith('0')) {
            tResult += '0';
        }
    }
    return tResult;
}

QByteArray nameWithoutDigits(const QByteArray& pPath)
{
    return withoutDigits(fileName(pPath));
}

QByteArray suffix(const QByteArray& pPath)
{
    const QByteArray tName = fileName(pPath);
    const qsizetype tDot = tName.lastIndexOf('.');
    return tDot < 0 ? QByteArray() : tName.sliced(tDot);
}

struct Level
{
    QByteArray (*mKey)(const QByteArray& pPath);
    qint64 mMaxPercent; // that the larger of the two has of the smaller; 0 for any
    bool mGoneOnly;     // files whose path is not in the new version
};

constexpr Level sLevels[] = {
    {pathItself, 0, false},
    {withoutDigits, 0, false},
    {nameWithoutDigits, 400, false},
    {suffix, 125, true},
};

bool isAlike(qint64 pSize, qint64 pOther, qint64 pMaxPercent)
{
    return pMaxPercent == 0 ||
           std::max(pSize, pOther) / 100 <= std::min(pSize, pOther) / 100 * pMaxPercent / 100;
}

} // namespace

Counterparts::Counterparts(const Entries& pOld, const Entries& pNew) : mOld(pOld), mLevels(std::size(sLevels))
{
    QSet<QByteArray> tNewPaths;
    for (const IndexEntry& tEntry : pNew) {
        tNewPaths.insert(tEntry.mPath);
    }
    for (size_t i = 0; i < pOld.size(); ++i) {
        if (pOld[i].mKind != EntryKind::File || pOld[i].mSize == 0) {
            continue;
        }
        for (size_t tLevel = 0; tLevel < mLevels.size(); ++tLevel) {
            if (!sLevels[tLevel].mGoneOnly || !tNewPaths.contains(pOld[i].mPath)) {
                mLevels[tLevel][sLevels[tLevel].mKey(pOld[i].mPath)].push_back(static_cast<qint64>(i));
            }
        }
    }
    for (Groups& tGroups : mLevels) {
        for (std::vector<qint64>& tGroup : tGroups) {
            std::stable_sort(tGroup.begin(), tGroup.end(), [&pOld](qint64 pOne, qint64 pOther) {
                return pOld[static_cast<size_t>(pOne)].mSize < pOld[static_cast<size_t>(pOther)].mSize;
            });
        }
    }
}

qint64 Counterparts::nearest(const std::vector<qint64>& pGroup, qint64 pSize) const
{
    const auto tSizeOf = [this](qint64 pEntry) { return mOld[static_cast<size_t>(pEntry)].mSize; };
    const auto tAbove =
        std::lower_bound(pGroup.begin(), pGroup.end(), pSize,
                         [&tSizeOf](qint64 pEntry, qint64 pThan) { return tSizeOf(pEntry) < pThan; });
    if (tAbove == pGroup.begin()) {
        return *tAbove;
    }
    const qint64 tBelow = *std::prev(tAbove);
    return tAbove != pGroup.end() && tSizeOf(*tAbove) - pSize < pSize - tSizeOf(tBelow) ? *tAbove : tBelow;
}

qint64 Counterparts::of(const IndexEntry& pNew) const
{
    for (size_t i = 0; i < mLevels.size(); ++i) {
        const auto tGroup = mLevels[i].constFind(sLevels[i].mKey(pNew.mPath));
        if (tGroup != mLevels[i].constEnd()) {
            const qint64 tFound = nearest(*tGroup, pNew.mSize);
            if (isAlike(mOld[static_cast<size_t>(tFound)].mSize, pNew.mSize, sLevels[i].mMaxPercent)) {
                return tFound;
            }
        }
    }
    return -1;
}

} // namespace tarn::vkpublish

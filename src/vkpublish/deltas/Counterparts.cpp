#include "deltas/Counterparts.h"

#include <QtCore/QHash>
#include <QtCore/QSet>

#include <algorithm>
#include <numeric>

namespace tarn::vkpublish {

using trees::EntryKind;
using trees::Tree;

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

// One level: the old files that have something in common with a new one, by what that is.
class Candidates
{
public:
    Candidates(const Tree& pOld, const Level& pLevel) : mOld(pOld), mLevel(pLevel) {}

    void ask(const QByteArray& pPath) { mGroups[mLevel.mKey(pPath)]; }

    // Only what was asked for.
    void collect(const Tree& pNew)
    {
        for (size_t i = 0; i < mOld.count(); ++i) {
            const Tree::Node& tNode = mOld.at(i);
            if (tNode.mKind != EntryKind::File || tNode.mSize == 0) {
                continue;
            }
            const auto tGroup = mGroups.find(mLevel.mKey(mOld.path(tNode)));
            if (tGroup != mGroups.end()) {
                tGroup->push_back(i);
            }
        }
        if (mLevel.mGoneOnly) {
            dropWhatIsIn(pNew);
        }
        for (std::vector<size_t>& tGroup : mGroups) {
            std::stable_sort(tGroup.begin(), tGroup.end(), [this](size_t pOne, size_t pOther) {
                return mOld.at(pOne).mSize < mOld.at(pOther).mSize;
            });
        }
    }

    // -1 for none.
    qint64 find(const QByteArray& pPath, qint64 pSize) const
    {
        const auto tGroup = mGroups.constFind(mLevel.mKey(pPath));
        if (tGroup == mGroups.constEnd() || tGroup->empty()) {
            return -1;
        }
        const size_t tFound = nearest(*tGroup, pSize);
        return isAlike(mOld.at(tFound).mSize, pSize, mLevel.mMaxPercent) ? static_cast<qint64>(tFound) : -1;
    }

private:
    void dropWhatIsIn(const Tree& pNew)
    {
        QSet<QByteArray> tGone;
        for (const std::vector<size_t>& tGroup : std::as_const(mGroups)) {
            for (const size_t tEntry : tGroup) {
                tGone.insert(mOld.path(mOld.at(tEntry)));
            }
        }
        for (size_t i = 0; i < pNew.count(); ++i) {
            tGone.remove(pNew.path(pNew.at(i)));
        }
        for (std::vector<size_t>& tGroup : mGroups) {
            std::erase_if(tGroup, [&](size_t pEntry) { return !tGone.contains(mOld.path(mOld.at(pEntry))); });
        }
    }

    size_t nearest(const std::vector<size_t>& pGroup, qint64 pSize) const
    {
        const auto tSizeOf = [this](size_t pEntry) { return mOld.at(pEntry).mSize; };
        const auto tAbove =
            std::lower_bound(pGroup.begin(), pGroup.end(), pSize,
                             [&tSizeOf](size_t pEntry, qint64 pThan) { return tSizeOf(pEntry) < pThan; });
        if (tAbove == pGroup.begin()) {
            return *tAbove;
        }
        const size_t tBelow = *std::prev(tAbove);
        return tAbove != pGroup.end() && tSizeOf(*tAbove) - pSize < pSize - tSizeOf(tBelow) ? *tAbove
                                                                                            : tBelow;
    }

    const Tree& mOld;
    const Level& mLevel;
    QHash<QByteArray, std::vector<size_t>> mGroups; // each in the order of sizes
};

} // namespace

std::vector<qint64> counterparts(const Tree& pOld, const Tree& pNew, const std::vector<size_t>& pFiles)
{
    std::vector<qint64> tFound(pFiles.size(), -1);
    std::vector<size_t> tLeft(pFiles.size());
    std::iota(tLeft.begin(), tLeft.end(), size_t(0));
    const auto tNode = [&](size_t pFile) -> const Tree::Node& { return pNew.at(pFiles[pFile]); };
    for (const Level& tLevel : sLevels) {
        Candidates tCandidates(pOld, tLevel);
        for (const size_t tFile : tLeft) {
            tCandidates.ask(pNew.path(tNode(tFile)));
        }
        if (!tLeft.empty()) {
            tCandidates.collect(pNew);
        }
        std::erase_if(tLeft, [&](size_t pFile) {
            tFound[pFile] = tCandidates.find(pNew.path(tNode(pFile)), tNode(pFile).mSize);
            return tFound[pFile] >= 0;
        });
    }
    return tFound;
}

} // namespace tarn::vkpublish

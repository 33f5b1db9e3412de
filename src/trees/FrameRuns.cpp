#include "trees/FrameRuns.h"

#include "trees/InstalledFiles.h"

#include <algorithm>

namespace tarn::trees {

namespace {

constexpr qint64 sWorthARequest = 32 * 1024; // bytes

void append(const FrameTable& pFrames, qsizetype pFirst, qsizetype pLast, FrameRuns* pTo)
{
    if (!pTo->empty()) {
        FrameRun& tRun = pTo->back();
        pFirst = std::max(pFirst, tRun.mFirst + tRun.mCount);
        if (pFirst > pLast) {
            return;
        }
        if (pFrames.packed(pFirst).mFirst - tRun.mPacked.end() < sWorthARequest) {
            tRun.mCount = pLast + 1 - tRun.mFirst;
            tRun.mPacked.mLength = pFrames.packed(pLast).end() - tRun.mPacked.mFirst;
            return;
        }
    }
    const qint64 tBegin = pFrames.packed(pFirst).mFirst;
    pTo->push_back({pFirst, pLast + 1 - pFirst, {tBegin, pFrames.packed(pLast).end() - tBegin}});
}

bool canBeLinked(const Tree::Node& pNew, const Tree::Node& pOld)
{
    return pNew.mTime == pOld.mTime && pNew.mIsExecutable == pOld.mIsExecutable;
}

} // namespace

FrameRuns framesOf(const Tree& pTree, const std::vector<size_t>& pEntries)
{
    FrameRuns tRuns;
    for (const size_t tEntry : pEntries) {
        const Tree::Node& tNode = pTree.at(tEntry);
        if (tNode.mSize > 0) {
            append(pTree.frames(), pTree.frames().frameAt(tNode.mAt),
                   pTree.frames().frameAt(tNode.mAt + tNode.mSize - 1), &tRuns);
        }
    }
    return tRuns;
}

qint64 packedBytes(const FrameRuns& pRuns)
{
    qint64 tBytes = 0;
    for (const FrameRun& tRun : pRuns) {
        tBytes += tRun.mPacked.mLength;
    }
    return tBytes;
}

TreeNeeds needsOf(const Tree& pTree, const InstalledFiles& pInstalled)
{
    TreeNeeds tNeeds;
    for (size_t tEntry = 0; tEntry < pTree.count(); ++tEntry) {
        const Tree::Node& tNode = pTree.at(tEntry);
        if (tNode.mKind != EntryKind::File || tNode.mSize == 0) {
            continue;
        }
        const auto tPlaces = pInstalled.find(tNode);
        if (tPlaces.empty()) {
            tNeeds.mMissing.push_back(tEntry);
            tNeeds.mMissingBytes += tNode.mSize;
        }
        if (std::none_of(tPlaces.begin(), tPlaces.end(), [&tNode](const InstalledFiles::Place& pPlace) {
                return canBeLinked(tNode, *pPlace.mNode);
            })) {
            tNeeds.mWrite += tNode.mSize;
        }
    }
    return tNeeds;
}

} // namespace tarn::trees

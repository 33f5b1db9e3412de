#include "trees/FrameRuns.h"

#include "os/FileId.h"
#include "trees/InstalledFiles.h"

#include <algorithm>
#include <tuple>

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

std::vector<size_t> oneOfEach(const Tree& pTree, std::vector<size_t> pEntries)
{
    std::sort(pEntries.begin(), pEntries.end(), [&pTree](size_t pLeft, size_t pRight) {
        return std::tie(pTree.at(pLeft).mHash, pLeft) < std::tie(pTree.at(pRight).mHash, pRight);
    });
    const auto tEnd = std::unique(pEntries.begin(), pEntries.end(), [&pTree](size_t pLeft, size_t pRight) {
        return pTree.at(pLeft).mHash == pTree.at(pRight).mHash;
    });
    pEntries.erase(tEnd, pEntries.end());
    std::sort(pEntries.begin(), pEntries.end());
    return pEntries;
}

} // namespace

FrameRuns framesOf(const Tree& pTree, const std::vector<size_t>& pEntries)
{
    FrameRuns tRuns;
    for (const size_t tEntry : oneOfEach(pTree, pEntries)) {
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

TreeNeeds needsOf(const Tree& pTree, const InstalledFiles& pInstalled, const QString& pRoot)
{
    TreeNeeds tNeeds;
    const auto tRoot = os::fileIdAt(QFile::encodeName(pRoot));
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
        if (std::none_of(tPlaces.begin(), tPlaces.end(), [&](const InstalledFiles::Place& pPlace) {
                return pPlace.canBeLinked(tNode) && tRoot && pPlace.mPackage->mDevice == tRoot->mDevice;
            })) {
            tNeeds.mWrite += tNode.mSize;
        }
    }
    return tNeeds;
}

} // namespace tarn::trees

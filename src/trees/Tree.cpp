#include "trees/Tree.h"

#include <algorithm>

namespace tarn::trees {

Failure Tree::read(os::FileSystem& pFileSystem, const QString& pIndexFile, const IndexLimits& pLimits)
{
    IndexReader tReader(pFileSystem);
    if (Failure tFailure = tReader.open(pIndexFile, pLimits)) {
        return tFailure;
    }
    IndexEntry tEntry;
    Failure tFailure;
    while (tReader.next(&tEntry, &tFailure)) {
        append(tEntry);
    }
    mHeader = tReader.header();
    mFrames = tReader.frames();
    return tFailure;
}

void Tree::append(const IndexEntry& pEntry)
{
    mNodes.push_back({.mHash = digestOf(pEntry.mHash),
                      .mSize = pEntry.mSize,
                      .mAt = pEntry.mAt,
                      .mTime = pEntry.mTime,
                      .mPath = static_cast<quint64>(mTexts.size()),
                      .mPathLength = static_cast<quint32>(pEntry.mPath.size()),
                      .mTargetLength = static_cast<quint32>(pEntry.mTarget.size()),
                      .mKind = pEntry.mKind,
                      .mIsExecutable = pEntry.mIsExecutable});
    mTexts += pEntry.mPath;
    mTexts += pEntry.mTarget;
}

QByteArray Tree::path(const Node& pNode) const
{
    return mTexts.mid(static_cast<qsizetype>(pNode.mPath), pNode.mPathLength);
}

QByteArray Tree::target(const Node& pNode) const
{
    return mTexts.mid(static_cast<qsizetype>(pNode.mPath) + pNode.mPathLength, pNode.mTargetLength);
}

EntrySizes Tree::sizes() const
{
    EntrySizes tSizes{-1};
    tSizes.reserve(mNodes.size() + 1);
    for (const Node& tNode : mNodes) {
        tSizes.push_back(tNode.mKind == EntryKind::File ? tNode.mSize : -1);
    }
    return tSizes;
}

Tree::Digest digestOf(const tuf::Hash& pHash)
{
    Tree::Digest tDigest{};
    std::copy_n(pHash.bytes().begin(), tDigest.size(), tDigest.begin()); // no algorithm has less
    return tDigest;
}

} // namespace tarn::trees

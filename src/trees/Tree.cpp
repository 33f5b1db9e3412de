#include "trees/Tree.h"

#include <algorithm>

namespace tarn::trees {

Failure Tree::read(os::FileSystem& pFileSystem, const QString& pIndexFile, const IndexLimits& pLimits)
{
    IndexReader tReader(pFileSystem);
    if (Failure tFailure = tReader.open(pIndexFile, pLimits)) {
        return tFailure;
    }
    mHeader = tReader.header();
    mFrames = tReader.frames();
    mNodes.reserve(static_cast<size_t>(mHeader.mEntries));
    std::vector<quint32> tFolders; // the last one at each depth
    IndexEntry tEntry;
    Failure tFailure;
    while (tReader.next(&tEntry, &tFailure)) {
        const auto tDepth = static_cast<size_t>(tEntry.mPath.count('/'));
        append(tEntry, tDepth == 0 ? 0 : tFolders[tDepth - 1],
               QByteArrayView(tEntry.mPath).sliced(tEntry.mPath.lastIndexOf('/') + 1));
        if (tEntry.mKind == EntryKind::Folder) {
            tFolders.resize(tDepth);
            tFolders.push_back(static_cast<quint32>(mNodes.size()));
        }
    }
    mName = tReader.name();
    return tFailure;
}

void Tree::append(const IndexEntry& pEntry, quint32 pFolder, QByteArrayView pName)
{
    mNodes.push_back({.mHash = digestOf(pEntry.mHash),
                      .mSize = pEntry.mSize,
                      .mAt = pEntry.mAt,
                      .mTime = pEntry.mTime,
                      .mFolder = pFolder,
                      .mName = static_cast<quint32>(mTexts.size()),
                      .mKind = pEntry.mKind,
                      .mIsExecutable = pEntry.mIsExecutable});
    mTexts.append(pName).append('\0');
    if (pEntry.mKind == EntryKind::Link) {
        mTexts.append(pEntry.mTarget).append('\0');
    }
}

QByteArray Tree::path(const Node& pNode) const
{
    const QByteArray tName(mTexts.constData() + pNode.mName);
    return pNode.mFolder == 0 ? tName : path(mNodes[pNode.mFolder - 1]) + '/' + tName;
}

QByteArray Tree::target(const Node& pNode) const
{
    return mTexts.constData() + mTexts.indexOf('\0', pNode.mName) + 1;
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

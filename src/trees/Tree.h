#pragma once

#include "trees/Delta.h"
#include "trees/IndexReader.h"

#include <array>
#include <vector>

namespace tarn::trees {

// The index of one package in memory: 100 bytes for each entry and its path, so some 150 MB for a million
// files.
class Tree
{
public:
    using Digest = std::array<uchar, 32>; // SHA-256

    struct Node
    {
        Digest mHash{};
        qint64 mSize = 0;
        qint64 mAt = 0; // in the unpacked archive
        qint64 mTime = 0;
        quint64 mPath = 0; // where path and link target begin in the texts
        quint32 mPathLength = 0;
        quint32 mTargetLength = 0;
        EntryKind mKind = EntryKind::Folder;
        bool mIsExecutable = false;
    };

    Failure read(os::FileSystem& pFileSystem, const QString& pIndexFile, const IndexLimits& pLimits);

    void append(const IndexEntry& pEntry);

    const IndexHeader& header() const { return mHeader; }
    const FrameTable& frames() const { return mFrames; }
    size_t count() const { return mNodes.size(); }
    const Node& at(size_t pEntry) const { return mNodes[pEntry]; }
    QByteArray path(const Node& pNode) const;
    QByteArray target(const Node& pNode) const;
    // Numbered as in a delta; at 0 there is nothing of use.
    EntrySizes sizes() const;

private:
    IndexHeader mHeader;
    FrameTable mFrames;
    std::vector<Node> mNodes;
    QByteArray mTexts;
};

Tree::Digest digestOf(const tuf::Hash& pHash);

} // namespace tarn::trees

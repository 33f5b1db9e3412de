#pragma once

#include "trees/Delta.h"
#include "trees/IndexReader.h"

#include <array>
#include <vector>

namespace tarn::trees {

// The index of one package in memory: 72 bytes for each entry and its name, so 90 MB for a million files with
// names of 15 letters.
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
        quint32 mFolder = 0; // its place plus 1; 0 for the package itself
        quint32 mName = 0;   // where the name, and behind it the target of a link, begin; a zero ends each
        EntryKind mKind = EntryKind::Folder;
        bool mIsExecutable = false;
    };

    Failure read(os::FileSystem& pFileSystem, const QString& pIndexFile, const IndexLimits& pLimits);

    // A file that is in no index, with its whole path.
    void append(const IndexEntry& pEntry) { append(pEntry, 0, pEntry.mPath); }

    // Of the text that it was read from.
    const packages::IndexName& name() const { return mName; }
    const IndexHeader& header() const { return mHeader; }
    const FrameTable& frames() const { return mFrames; }
    size_t count() const { return mNodes.size(); }
    const Node& at(size_t pEntry) const { return mNodes[pEntry]; }
    QByteArray path(const Node& pNode) const;
    QByteArray target(const Node& pNode) const;
    // Numbered as in a delta; at 0 there is nothing of use.
    EntrySizes sizes() const;

private:
    void append(const IndexEntry& pEntry, quint32 pFolder, QByteArrayView pName);

    packages::IndexName mName;
    IndexHeader mHeader;
    FrameTable mFrames;
    std::vector<Node> mNodes;
    QByteArray mTexts; // shorter than the text of the index, which has at most 4 GiB
};

Tree::Digest digestOf(const tuf::Hash& pHash);

} // namespace tarn::trees

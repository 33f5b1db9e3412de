#pragma once

#include "trees/FrameTable.h"

#include <QtCore/QString>

#include <vector>

namespace tarn::trees {

class InstalledFiles;
class Tree;

// Neighbouring frames of an archive, which are fetched together.
struct FrameRun
{
    qsizetype mFirst = 0;
    qsizetype mCount = 0;
    ByteRange mPacked; // in the archive

    bool operator==(const FrameRun&) const = default;
};
using FrameRuns = std::vector<FrameRun>;

// The frames that hold the bytes of these entries, which are files in their order. Frames between them are
// included if they are smaller than a request would cost. Of files with the same content only the first
// counts.
FrameRuns framesOf(const Tree& pTree, const std::vector<size_t>& pEntries);
qint64 packedBytes(const FrameRuns& pRuns);

// What a package needs that no installed package has, if these are as their indexes say.
struct TreeNeeds
{
    std::vector<size_t> mMissing; // files
    qint64 mMissingBytes = 0;
    // Bytes to write at most: missing files, and those that can't be linked. Clones may make it less.
    qint64 mWrite = 0;
};
// pRoot: an existing folder on the file system where the package will be.
TreeNeeds needsOf(const Tree& pTree, const InstalledFiles& pInstalled, const QString& pRoot);

} // namespace tarn::trees

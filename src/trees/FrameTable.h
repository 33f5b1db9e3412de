#pragma once

#include "trees/IndexEntry.h"

#include <vector>

namespace tarn::trees {

// The largest window that the zstd frames of an archive, an index or a delta's header may ask for, as a power
// of two: 8 MiB, which is what level 19 uses. A reader needs that much memory.
inline constexpr int sMaxWindowLog = 23;

// A stretch of bytes.
struct ByteRange
{
    qint64 mFirst = 0;
    qint64 mLength = 0;

    qint64 end() const { return mFirst + mLength; }
    bool operator==(const ByteRange&) const = default;
};

// The frames of an archive, which follow each other without gaps.
class FrameTable
{
public:
    // False where the sums do not fit into an archive.
    bool append(const Frame& pFrame);

    qsizetype count() const { return static_cast<qsizetype>(mFrames.size()); }
    const Frame& at(qsizetype pFrame) const { return mFrames[static_cast<size_t>(pFrame)]; }
    ByteRange packed(qsizetype pFrame) const;   // in the archive
    ByteRange unpacked(qsizetype pFrame) const; // in the unpacked archive
    qint64 packedSize() const { return mPackedEnd; }
    qint64 unpackedSize() const { return mUnpackedEnd; }
    // The frame that holds this byte of the unpacked archive, which must be below unpackedSize().
    qsizetype frameAt(qint64 pUnpacked) const;

private:
    std::vector<Frame> mFrames;
    std::vector<qint64> mPackedStarts;
    std::vector<qint64> mUnpackedStarts;
    qint64 mPackedEnd = 0;
    qint64 mUnpackedEnd = 0;
};

} // namespace tarn::trees

#pragma once

#include "packages/TreeFiles.h"
#include "trees/FrameTable.h"

#include <optional>
#include <vector>

namespace tarn::trees {

// A delta makes the changed files of a new version of a package out of those of an old version. The same
// numbers name the files on both sides: the entries of an index count from 1, and 0 is the text of the index
// itself, so that a machine that has the old index needs nothing else.
//
// The file is a zstd frame, the header, and behind it the packed bytes of the segments, one after the other
// without gaps up to the end of the file. The header is a text of JSON lines. The first describes the whole:
//
//   {"format":1,"new":"35a9...","newBytes":3021,"old":"c0de...","oldBytes":2990,"packed":5260,"segments":2}
//
// "old" and "new" are the SHA-256 of the texts of the two indexes, with their lengths; "packed" is the length
// of all segments together. Then comes a line for each segment:
//
//   {"from":[[0]],"makes":[[0]],"method":"zstd","packed":140}
//   {"from":[[4],[9,1048576,4194304]],"makes":[[4],[9,2097152,2097152]],"method":"bsdiff","packed":5120}
//
// A piece is [entry], the whole file, or [entry, offset, length]. The pieces of "from", of old files, follow
// each other as the base of the segment; those of "makes" cut up what it makes. These go through the new
// entries upwards, and through each file from its first byte to its last: what is listed is complete and
// nothing comes twice. The text of the index stands in segments of its own, before all others.
//
// Methods:
//   plain   one zstd frame;
//   zstd    one zstd frame, with the base as its prefix;
//   bsdiff  three zstd frames: control, difference, extra. The control is a list of steps of three numbers,
//           each LEB128: how far to go in the base from where the last step ended (zigzag, forwards or
//           backwards), how many bytes to take from there, each plus the next byte of the difference, and
//           how many bytes of the extra to put behind these. All bytes of the difference and the extra are
//           used.
//
// Every frame tells the length of its content. A line has at most 64 KiB.
enum class PatchMethod
{
    Plain,
    Zstd,
    Bsdiff,
};

struct DeltaLimits
{
    static constexpr qint64 sMakes = 8 * 1024 * 1024;   // bytes that a segment may make
    static constexpr qint64 sBase = 16 * 1024 * 1024;   // bytes of its base
    static constexpr qint64 sPacked = 18 * 1024 * 1024; // its packed bytes
    static constexpr qsizetype sPieces = 1000;          // of what it makes, and of its base
    // Bytes of the control of a segment that makes so many.
    static constexpr qint64 maxControl(qint64 pMakes) { return pMakes + 64; }
    static constexpr qint64 sIndexText = qint64(4) * 1024 * 1024 * 1024;
};

// A part of a file.
struct Piece
{
    qint64 mEntry = 0;
    ByteRange mBytes;

    bool operator==(const Piece&) const = default;
};

using Pieces = std::vector<Piece>;
qint64 totalLength(const Pieces& pPieces);

struct Segment
{
    PatchMethod mMethod = PatchMethod::Plain;
    ByteRange mPacked; // in the file of the delta
    Pieces mMakes;
    Pieces mFrom;

    bool makesIndex() const { return !mMakes.empty() && mMakes.front().mEntry == 0; }
    bool operator==(const Segment&) const = default;
};

using packages::IndexName;

struct DeltaHeader
{
    IndexName mOld;
    IndexName mNew;
    qint64 mPacked = 0; // bytes of all segments
    qint64 mSegments = 0;

    bool operator==(const DeltaHeader&) const = default;
};

// How long the files of a package are: at 0 the text of the index, at N entry N; -1 for folders and links.
using EntrySizes = std::vector<qint64>;

QByteArray toLine(const DeltaHeader& pHeader); // without the end of the line
QByteArray toLine(const Segment& pSegment, const EntrySizes& pOld, const EntrySizes& pNew);

// None for a line that breaks one of the rules above. A segment's pieces are inside of their files, and its
// lengths are within the limits; what is left to check is that segments fit to each other. mPacked has its
// length only.
std::optional<DeltaHeader> deltaHeaderFromLine(const QByteArray& pLine);
std::optional<Segment> segmentFromLine(const QByteArray& pLine, const EntrySizes& pOld,
                                       const EntrySizes& pNew);

} // namespace tarn::trees

#pragma once

#include "trees/Delta.h"
#include "trees/ZstdLines.h"

namespace tarn::trees {

// Goes through the header of a delta, segment by segment. What it gives out is sound whoever wrote it: all
// pieces are inside of their files, what is made is complete and made once, and the packed bytes of the
// segments fill the file. Needs some MiB, however long the delta is. What a segment then makes is proven
// by the hashes of the new index, and nothing else.
//
//   open(), next() as long as segments make the index's text, setEntries(), next() to the end.
class DeltaReader
{
public:
    explicit DeltaReader(os::FileSystem& pFileSystem) : mLines(pFileSystem) {}

    // pLength: bytes of the file.
    Failure open(const QString& pPath, qint64 pLength);
    const DeltaHeader& header() const { return mHeader; }

    // The sizes that the entries of the two indexes have; at 0 whatever stands there. Before this is called,
    // segments may make the text of the index only.
    void setEntries(EntrySizes pOld, EntrySizes pNew);

    // False behind the last segment; *pFailure says whether all of them were there.
    bool next(Segment* pTo, Failure* pFailure);

private:
    Failure refuse(const QString& pWhy) const;
    Failure readSegment(Segment* pTo);
    Failure checkEnd();
    bool isComplete() const;
    bool follows(const Piece& pPiece) const;

    ZstdLines mLines;
    QString mPath;
    qint64 mHeaderLength = 0; // bytes in the file
    DeltaHeader mHeader;
    EntrySizes mOld;
    EntrySizes mNew;
    qint64 mCount = 0;     // of segments
    qint64 mPackedEnd = 0; // of the last segment, from the end of the header
    Piece mLast{-1, {}};   // the last one that is made
};

} // namespace tarn::trees

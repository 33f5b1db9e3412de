#pragma once

#include "trees/FrameTable.h"
#include "trees/ZstdLines.h"

namespace tarn::trees {

struct IndexLimits
{
    qint64 mMaxBytes = 0;           // of all files together
    qint64 mArchiveSize = sUnknown; // which the frames add up to
    static constexpr qint64 sUnknown = -1;
    qint64 mMaxEntries = 1000 * 1000;
    int mMaxDepth = 64; // folders above a file
};

// Goes through the index of a package, entry by entry. What it gives out is sound whoever wrote it: paths
// stay inside, none comes twice, every folder stands before its content, links lead nowhere else, and each
// file lies in a stretch of the archive of its own. The frames are kept in memory, the entries are not.
class IndexReader
{
public:
    explicit IndexReader(os::FileSystem& pFileSystem) : mLines(pFileSystem) {}

    // Reads the header and the frames.
    Failure open(const QString& pPath, const IndexLimits& pLimits);
    const IndexHeader& header() const { return mHeader; }
    const FrameTable& frames() const { return mFrames; }

    // False behind the last entry; *pFailure says whether all of them were there.
    bool next(IndexEntry* pTo, Failure* pFailure);
    // Of the text, once its last entry was read. May be called once.
    packages::IndexName name() { return mLines.name(); }

private:
    Failure refuse(const QString& pWhy) const;
    Failure refuseEntry(const IndexEntry& pEntry, const QString& pWhy) const;
    Failure readFrames();
    Failure readEntry(IndexEntry* pTo);
    Failure check(const IndexEntry& pEntry);

    ZstdLines mLines;
    QString mPath;
    IndexLimits mLimits;
    IndexHeader mHeader;
    FrameTable mFrames;
    qint64 mCount = 0;          // of entries
    qint64 mBytes = 0;          // of files
    qint64 mArchiveEnd = 0;     // of the last file, in the unpacked archive
    QByteArrayList mNames;      // of the last entry
    qsizetype mFolderDepth = 0; // how many of mNames are folders
};

} // namespace tarn::trees

#pragma once

#include "os/FileSystem.h"
#include "trees/Delta.h"
#include "trees/Tree.h"

#include <QtCore/QString>

#include <vector>

namespace tarn::os {
class Descriptor;
}

namespace tarn::vkpublish {

// One version of a package: its entries, and the bytes of those that are needed. Takes 16 bytes of memory for
// each entry, and some 90 more while the entries are read.
class PackageVersion
{
public:
    explicit PackageVersion(os::FileSystem& pFileSystem) : mFileSystem(pFileSystem) {}
    ~PackageVersion(); // removes the scratch folder
    PackageVersion(const PackageVersion&) = delete;
    PackageVersion& operator=(const PackageVersion&) = delete;

    // The two files as they are published; pScratch a folder for the files of this object, which must not be
    // there and whose parent only this user may write to.
    Failure open(const QString& pIndex, const QString& pArchive, const trees::IndexLimits& pLimits,
                 const QString& pScratch);
    // tree() and sizes() have the entries after it.
    Failure readEntries();
    void dropTree() { mTree = {}; }

    const trees::IndexName& index() const { return mIndex; }
    const trees::Tree& tree() const { return mTree; }
    const trees::EntrySizes& sizes() const { return mSizes; } // numbered as in a delta
    qint64 archiveSize() const { return mLimits.mArchiveSize; }
    // Takes these files, numbered as in a delta, out of the archive to be read. Reads only the frames that
    // they are in. Each frame and each file must have the hash that the index names; Content if one does not.
    // Follows readEntries().
    Failure layOpen(std::vector<qint64> pFiles);
    // Adds the bytes of a piece of a file that is laid open. May be called by several threads at a time.
    Failure read(const trees::Piece& pPiece, QByteArray* pTo) const;

private:
    class Extraction;

    QString textPath() const;
    QString contentPath() const;

    os::FileSystem& mFileSystem;
    QString mScratch;
    QString mPath; // of the index
    QString mArchive;
    trees::IndexLimits mLimits;
    trees::IndexName mIndex;
    trees::Tree mTree;
    trees::EntrySizes mSizes;
    // Where the files begin in contentPath(), numbered as in a delta; -1 for those that are not there.
    std::vector<qint64> mPlaces;
    qint64 mContentSize = 0;
};

} // namespace tarn::vkpublish

#pragma once

#include "os/FileSystem.h"
#include "trees/Delta.h"
#include "trees/IndexReader.h"

#include <QtCore/QString>

#include <vector>

namespace tarn::vkpublish {

// One version of a package, laid open: its entries, and the bytes of each.
class PackageVersion
{
public:
    explicit PackageVersion(os::FileSystem& pFileSystem) : mFileSystem(pFileSystem) {}
    ~PackageVersion(); // removes the scratch folder
    PackageVersion(const PackageVersion&) = delete;
    PackageVersion& operator=(const PackageVersion&) = delete;

    // pIndex as it is published; pScratch a folder for the files of this object, which must not be there and
    // whose parent only this user may write to.
    Failure open(const QString& pIndex, const trees::IndexLimits& pLimits, const QString& pScratch);
    // Where the files of the entries are: unpacked from the archive into the scratch folder, or in a folder
    // that has them. One of the two follows open().
    Failure unpack(const QString& pArchive);
    void useFolder(const QString& pFolder) { mFolder = pFolder; }

    const trees::IndexName& index() const { return mIndex; }
    const std::vector<trees::IndexEntry>& entries() const { return mEntries; }
    const trees::EntrySizes& sizes() const { return mSizes; } // numbered as in a delta
    // Adds the bytes of a piece. May be called by several threads at a time.
    Failure read(const trees::Piece& pPiece, QByteArray* pTo) const;

private:
    Failure readEntries(const QString& pIndex, const trees::IndexLimits& pLimits);
    QString textPath() const;

    os::FileSystem& mFileSystem;
    QString mScratch;
    QString mFolder;
    qint64 mMaxBytes = 0;
    trees::IndexName mIndex;
    std::vector<trees::IndexEntry> mEntries;
    trees::EntrySizes mSizes;
};

} // namespace tarn::vkpublish

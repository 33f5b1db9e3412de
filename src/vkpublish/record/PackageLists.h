#pragma once

#include "record/Packages.h"

#include "internal/Failure.h"

#include <functional>

namespace tarn::os {
class FileSystem;
}

namespace tarn::vkpublish {

// The lists of packages beside the record, in files of their own: most commands change a few lines of them.
// A file counts from when the record names it, and changes only at its end. So the lists and the record
// change together, by the rename that replaces the record.
//
// Each line is a PackageLine. Those of what is published and withdrawn are sorted by their names.
class PackageLists
{
public:
    PackageLists(os::FileSystem& pFileSystem, const QString& pKeyFolder);

    // Reads the files that *pTo names; with pPrefix, the names that begin with it. NotFound if one of the
    // files does not exist.
    Failure read(Packages* pTo, const QString& pPrefix = QString()) const;

    // Writes files for what differs from pSaved, and names them in *pNew. The caller writes the record, or
    // nothing has changed. The files that pSaved names stay until the next call, for readers and backups.
    Failure write(const Packages& pSaved, Packages* pNew) const;
    // Adds a change to the file of changes, which must exist: it counts at once. pText is null to remove the
    // package.
    Failure append(const ListFile& pChanges, const QString& pName, const QByteArray& pText) const;

private:
    enum class End
    {
        Whole,
        MayBeTorn, // an addition was interrupted, or goes on just now
    };
    using Take = std::function<void(const QByteArray& pName, const QByteArray& pText)>;

    QString path(const char* pList, const ListFile& pFile) const;
    Failure readList(const char* pList, const ListFile& pFile, End pEnd, const QByteArray& pPrefix,
                     const Take& pTake) const;
    Failure readSome(const char* pList, const ListFile& pFile, const QByteArray& pPrefix,
                     const Take& pTake) const;
    // Of a file that is written at once.
    Failure readSorted(const char* pList, const ListFile& pFile, const QByteArray& pPrefix,
                       const Take& pTake) const;
    Failure writeList(const char* pList, const QMap<QByteArray, QByteArray>& pTexts, qint64 pNumber,
                      ListFile* pTo) const;
    Failure makeFolder() const;
    Failure removeOthers(const Packages& pSaved) const;

    os::FileSystem& mFileSystem;
    QString mFolder;
};

} // namespace tarn::vkpublish

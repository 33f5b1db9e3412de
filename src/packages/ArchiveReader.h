#pragma once

#include "internal/Failure.h"
#include "os/Descriptor.h"

#include <QtCore/QByteArray>
#include <QtCore/QString>

#include <memory>
#include <sys/types.h>

struct archive;
struct archive_entry;

namespace tarn::packages {

// A .tar.zst opened for libarchive, which gets its bytes through the FileSystem.
class ArchiveReader
{
public:
    explicit ArchiveReader(os::FileSystem& pFileSystem);
    ~ArchiveReader();
    ArchiveReader(const ArchiveReader&) = delete;
    ArchiveReader& operator=(const ArchiveReader&) = delete;

    Failure open(const QString& pPath);
    archive* handle() const { return mArchive; }
    // Why the last call on handle() failed: a read error, or bytes that are not an archive.
    Failure failure() const;

    // Names as bytes, independent of the locale, whether the archive marks them as UTF-8 or not.
    static QByteArray pathOf(archive_entry* pEntry);
    static QByteArray linkTargetOf(archive_entry* pEntry);

private:
    static ssize_t readBlock(archive* pArchive, void* pSelf, const void** pBlock);

    os::FileSystem& mFileSystem;
    os::Descriptor mFile;
    QString mPath;
    int mReadErrno = 0;
    std::unique_ptr<char[]> mBuffer;
    archive* mArchive;
};

} // namespace tarn::packages

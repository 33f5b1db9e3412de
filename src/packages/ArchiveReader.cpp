#include "packages/ArchiveReader.h"

#include <QtCore/QFile>

#include <archive.h>
#include <archive_entry.h>
#include <fcntl.h>

#include <cerrno>

using namespace Qt::StringLiterals;

namespace tarn::packages {

namespace {

constexpr size_t sBlockSize = 256 * 1024;

} // namespace

ArchiveReader::ArchiveReader(os::FileSystem& pFileSystem)
    : mFileSystem(pFileSystem), mBuffer(new char[sBlockSize]), mArchive(archive_read_new())
{
    archive_read_support_format_tar(mArchive);
    archive_read_support_filter_zstd(mArchive);
}

ArchiveReader::~ArchiveReader()
{
    archive_read_free(mArchive);
}

Failure ArchiveReader::open(const QString& pPath)
{
    mPath = pPath;
    mFile = os::Descriptor(mFileSystem, mFileSystem.open(QFile::encodeName(pPath), O_RDONLY));
    if (!mFile.isOpen()) {
        return Failure::fromErrno(errno, u"open %1"_s.arg(pPath));
    }
    return archive_read_open(mArchive, this, nullptr, &ArchiveReader::readBlock, nullptr) == ARCHIVE_OK
               ? Failure()
               : failure();
}

ssize_t ArchiveReader::readBlock(archive* pArchive, void* pSelf, const void** pBlock)
{
    auto* tSelf = static_cast<ArchiveReader*>(pSelf);
    ssize_t tGot = 0;
    do {
        tGot = tSelf->mFileSystem.read(tSelf->mFile.fd(), tSelf->mBuffer.get(), sBlockSize);
    } while (tGot < 0 && errno == EINTR);
    if (tGot < 0) {
        tSelf->mReadErrno = errno;
        archive_set_error(pArchive, errno, "read failed");
    }
    *pBlock = tSelf->mBuffer.get();
    return tGot;
}

Failure ArchiveReader::failure() const
{
    if (mReadErrno != 0) {
        return Failure::fromErrno(mReadErrno, u"read %1"_s.arg(mPath));
    }
    const char* tText = archive_error_string(mArchive);
    return Failure::content(u"The package %1 is not a readable archive: %2"_s.arg(
        mPath, QString::fromUtf8(tText == nullptr ? "unknown format" : tText)));
}

QByteArray ArchiveReader::pathOf(archive_entry* pEntry)
{
    const char* tName = archive_entry_pathname(pEntry);
    return tName == nullptr ? archive_entry_pathname_utf8(pEntry) : tName;
}

QByteArray ArchiveReader::linkTargetOf(archive_entry* pEntry)
{
    const char* tName = archive_entry_symlink(pEntry);
    return tName == nullptr ? archive_entry_symlink_utf8(pEntry) : tName;
}

} // namespace tarn::packages

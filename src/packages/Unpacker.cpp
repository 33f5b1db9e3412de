#include "packages/Unpacker.h"

#include "os/AbortFlag.h"
#include "os/FileTools.h"
#include "packages/ArchiveReader.h"
#include "packages/EntryPath.h"
#include "packages/FolderChain.h"
#include "packages/PackageModes.h"

#include <QtCore/QFile>

#include <archive.h>
#include <archive_entry.h>
#include <fcntl.h>

#include <algorithm>
#include <cerrno>

using namespace Qt::StringLiterals;

namespace tarn::packages {

namespace {

// The work on one archive.
class Unpacking
{
public:
    Unpacking(os::FileSystem& pFileSystem, const os::AbortFlag* pAbort, const QString& pArchive,
              const QString& pFolder, const UnpackLimits& pLimits,
              const std::function<void(qint64)>& pProgress)
        : mFileSystem(pFileSystem), mAbort(pAbort), mArchiveName(pArchive), mReader(pFileSystem),
          mFolder(pFolder), mChain(pFileSystem), mLimits(pLimits), mProgress(pProgress),
          mRoom(pLimits.mMaxBytes)
    {
    }

    Failure run()
    {
        if (const Failure tFailure = mReader.open(mArchiveName)) {
            return tFailure;
        }
        if (const Failure tFailure = mChain.start(mFolder)) {
            return tFailure;
        }
        archive_entry* tEntry = nullptr;
        for (int tCount = 0;; ++tCount) {
            const int tResult = archive_read_next_header(mReader.handle(), &tEntry);
            if (tResult == ARCHIVE_EOF) {
                return mChain.finish() != 0 ? systemFailure({}) : Failure();
            }
            if (tResult != ARCHIVE_OK && tResult != ARCHIVE_WARN) {
                return mReader.failure();
            }
            if (tCount >= mLimits.mMaxEntries) {
                return refuse(u"it has too many entries"_s);
            }
            if (const Failure tFailure = takeEntry(tEntry)) {
                return tFailure;
            }
        }
    }

private:
    Failure refuse(const QString& pWhy) const
    {
        return Failure::content(u"The package %1 is refused: %2"_s.arg(mArchiveName, pWhy));
    }
    Failure refuseEntry(const QByteArray& pPath, const char* pWhy) const
    {
        return refuse(u"\"%1\" %2"_s.arg(QString::fromUtf8(pPath), QLatin1String(pWhy)));
    }
    Failure systemFailure(const QByteArray& pPath) const
    {
        // The folder is new and only this archive writes to it, so what exists is from the same archive.
        if (errno == EEXIST) {
            return refuseEntry(pPath, "occurs twice");
        }
        if (errno == ELOOP || errno == ENOTDIR) {
            return refuseEntry(pPath, "goes through something that is not a folder");
        }
        return Failure::fromErrno(errno, u"write %1/%2"_s.arg(mFolder, QString::fromUtf8(pPath)));
    }

    Failure takeEntry(archive_entry* pEntry);
    Failure takeFile(archive_entry* pEntry, const QByteArray& pPath, int pDirFd, const QByteArray& pName);
    Failure takeLink(archive_entry* pEntry, const QByteArray& pPath, int pDirFd,
                     const QByteArrayList& pNames);
    Failure takeData(int pFd, const QByteArray& pPath, qint64 pSize);
    Failure write(int pFd, const QByteArray& pPath, const char* pData, qint64 pSize);
    Failure writeZeros(int pFd, const QByteArray& pPath, qint64 pSize);

    os::FileSystem& mFileSystem;
    const os::AbortFlag* mAbort;
    QString mArchiveName;
    ArchiveReader mReader;
    QString mFolder;
    FolderChain mChain;
    UnpackLimits mLimits;
    const std::function<void(qint64)>& mProgress;
    qint64 mRoom; // bytes that are still allowed
};

Failure Unpacking::takeEntry(archive_entry* pEntry)
{
    if (mAbort != nullptr && mAbort->isSet()) {
        return Failure::canceled();
    }
    const QByteArray tPath = ArchiveReader::pathOf(pEntry);
    const std::optional<QByteArrayList> tNames = entryPath(tPath, mLimits.mMaxDepth);
    if (!tNames) {
        return refuseEntry(tPath, "is not a path inside a package");
    }
    if (archive_entry_hardlink(pEntry) != nullptr) {
        return refuseEntry(tPath, "is a hard link");
    }
    const auto tType = archive_entry_filetype(pEntry);
    if (tType == AE_IFDIR) {
        return mChain.enter(*tNames) < 0 ? systemFailure(tPath) : Failure();
    }
    if (tNames->isEmpty() || (tType != AE_IFREG && tType != AE_IFLNK)) {
        return refuseEntry(tPath, "is not a file, folder or link");
    }
    const int tDirFd = mChain.enter(tNames->first(tNames->size() - 1));
    if (tDirFd < 0) {
        return systemFailure(tPath);
    }
    return tType == AE_IFREG ? takeFile(pEntry, tPath, tDirFd, tNames->last())
                             : takeLink(pEntry, tPath, tDirFd, *tNames);
}

Failure Unpacking::takeLink(archive_entry* pEntry, const QByteArray& pPath, int pDirFd,
                            const QByteArrayList& pNames)
{
    const QByteArray tTarget = ArchiveReader::linkTargetOf(pEntry);
    if (!linkStaysInside(tTarget, static_cast<int>(pNames.size()) - 1)) {
        return refuseEntry(pPath, "is a link that points outside the package");
    }
    return mFileSystem.symlinkAt(tTarget, pDirFd, pNames.last()) != 0 ? systemFailure(pPath) : Failure();
}

Failure Unpacking::takeFile(archive_entry* pEntry, const QByteArray& pPath, int pDirFd,
                            const QByteArray& pName)
{
    const qint64 tSize = archive_entry_size(pEntry);
    if (tSize > mRoom) {
        return refuse(u"it has more than the announced %1 bytes"_s.arg(mLimits.mMaxBytes));
    }
    const mode_t tMode = fileMode((archive_entry_perm(pEntry) & 0111) != 0);
    const int tFlags = O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW;
    os::Descriptor tFile(mFileSystem, mFileSystem.openAt(pDirFd, pName, tFlags, tMode));
    // Sets the mode again, because the service's umask has reduced it.
    if (!tFile.isOpen() || mFileSystem.changeMode(tFile.fd(), tMode) != 0) {
        return systemFailure(pPath);
    }
    if (const Failure tFailure = takeData(tFile.fd(), pPath, tSize)) {
        return tFailure;
    }
    const bool tTimed = archive_entry_mtime_is_set(pEntry) == 0 ||
                        mFileSystem.changeTime(tFile.fd(), archive_entry_mtime(pEntry)) == 0;
    return !tTimed || tFile.close() != 0 ? systemFailure(pPath) : Failure();
}

Failure Unpacking::takeData(int pFd, const QByteArray& pPath, qint64 pSize)
{
    qint64 tPosition = 0;
    for (;;) {
        const void* tBlock = nullptr;
        size_t tLength = 0;
        la_int64_t tOffset = 0;
        const int tResult = archive_read_data_block(mReader.handle(), &tBlock, &tLength, &tOffset);
        if (tResult == ARCHIVE_EOF) {
            return writeZeros(pFd, pPath, pSize - tPosition);
        }
        if (tResult != ARCHIVE_OK && tResult != ARCHIVE_WARN) {
            return mReader.failure();
        }
        // A hole of a sparse file.
        if (const Failure tFailure = writeZeros(pFd, pPath, tOffset - tPosition)) {
            return tFailure;
        }
        const auto tSize = static_cast<qint64>(tLength);
        if (const Failure tFailure = write(pFd, pPath, static_cast<const char*>(tBlock), tSize)) {
            return tFailure;
        }
        tPosition = tOffset + tSize;
    }
}

Failure Unpacking::writeZeros(int pFd, const QByteArray& pPath, qint64 pSize)
{
    static const char sZeros[64 * 1024] = {};
    while (pSize > 0) {
        const qint64 tPart = std::min<qint64>(pSize, sizeof sZeros);
        if (const Failure tFailure = write(pFd, pPath, sZeros, tPart)) {
            return tFailure;
        }
        pSize -= tPart;
    }
    return {};
}

Failure Unpacking::write(int pFd, const QByteArray& pPath, const char* pData, qint64 pSize)
{
    if (mAbort != nullptr && mAbort->isSet()) {
        return Failure::canceled();
    }
    if (pSize > mRoom) {
        return refuse(u"it has more than the announced %1 bytes"_s.arg(mLimits.mMaxBytes));
    }
    if (os::writeAll(mFileSystem, pFd, pData, static_cast<size_t>(pSize)) != 0) {
        return systemFailure(pPath);
    }
    mRoom -= pSize;
    if (mProgress) {
        mProgress(pSize);
    }
    return {};
}

} // namespace

Failure Unpacker::unpack(const QString& pArchive, const QString& pFolder, const UnpackLimits& pLimits,
                         const std::function<void(qint64)>& pProgress)
{
    return Unpacking(mFileSystem, mAbort, pArchive, pFolder, pLimits, pProgress).run();
}

} // namespace tarn::packages

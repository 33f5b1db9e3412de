#include "os/FileTools.h"

#include "os/Descriptor.h"

#include <QtCore/QFile>
#include <QtCore/QFileInfo>

#include <dirent.h>
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

using namespace Qt::StringLiterals;

namespace tarn::os {

namespace {

// Empties the folder behind pDirFd; the first errno, or 0.
int removeEntries(FileSystem& pFileSystem, int pDirFd);

int removeEntry(FileSystem& pFileSystem, int pDirFd, const QByteArray& pName, bool pIsDir)
{
    int tErrno = 0;
    if (pIsDir) {
        Descriptor tDir(pFileSystem, pFileSystem.openAt(pDirFd, pName, O_RDONLY | O_DIRECTORY | O_NOFOLLOW));
        tErrno = tDir.isOpen() ? removeEntries(pFileSystem, tDir.fd()) : errno;
    }
    if (pFileSystem.unlinkAt(pDirFd, pName, pIsDir ? AT_REMOVEDIR : 0) != 0 && errno != ENOENT &&
        tErrno == 0) {
        tErrno = errno;
    }
    return tErrno;
}

bool isDirAt(int pDirFd, const char* pName)
{
    struct stat tStat;
    return ::fstatat(pDirFd, pName, &tStat, AT_SYMLINK_NOFOLLOW) == 0 && S_ISDIR(tStat.st_mode);
}

// Nothing can be removed from a read-only folder.
void makeWritable(FileSystem& pFileSystem, int pDirFd)
{
    struct stat tStat;
    if (::fstat(pDirFd, &tStat) == 0 && (tStat.st_mode & S_IRWXU) != S_IRWXU) {
        (void)pFileSystem.changeMode(pDirFd, (tStat.st_mode & 07777) | S_IRWXU); // the removal tells
    }
}

int removeEntries(FileSystem& pFileSystem, int pDirFd)
{
    makeWritable(pFileSystem, pDirFd);
    // closedir() closes its descriptor, and the caller still needs pDirFd.
    const int tCopy = ::fcntl(pDirFd, F_DUPFD_CLOEXEC, 0);
    DIR* tDir = tCopy < 0 ? nullptr : ::fdopendir(tCopy);
    if (tDir == nullptr) {
        const int tErrno = errno;
        if (tCopy >= 0) {
            ::close(tCopy);
        }
        return tErrno;
    }
    int tFirst = 0;
    while (const dirent* tEntry = ::readdir(tDir)) {
        if (std::strcmp(tEntry->d_name, ".") == 0 || std::strcmp(tEntry->d_name, "..") == 0) {
            continue;
        }
        const bool tIsDir =
            tEntry->d_type == DT_UNKNOWN ? isDirAt(pDirFd, tEntry->d_name) : tEntry->d_type == DT_DIR;
        const int tErrno = removeEntry(pFileSystem, pDirFd, tEntry->d_name, tIsDir);
        tFirst = tFirst == 0 ? tErrno : tFirst;
    }
    ::closedir(tDir);
    return tFirst;
}

} // namespace

int writeAll(FileSystem& pFileSystem, int pFd, const char* pData, size_t pSize)
{
    while (pSize > 0) {
        const ssize_t tDone = pFileSystem.write(pFd, pData, pSize);
        if (tDone < 0 && errno == EINTR) {
            continue;
        }
        if (tDone < 0) {
            return -1;
        }
        pData += tDone;
        pSize -= static_cast<size_t>(tDone);
    }
    return 0;
}

Failure makePath(FileSystem& pFileSystem, const QString& pPath, mode_t pMode)
{
    const QByteArray tPath = QFile::encodeName(pPath);
    for (qsizetype tEnd = tPath.indexOf('/', 1);; tEnd = tPath.indexOf('/', tEnd + 1)) {
        const QByteArray tPart = tEnd < 0 ? tPath : tPath.left(tEnd);
        struct stat tStat;
        const bool tThere = ::stat(tPart.constData(), &tStat) == 0;
        if (tThere && !S_ISDIR(tStat.st_mode)) {
            return Failure::fromErrno(ENOTDIR, u"make the folder %1"_s.arg(pPath));
        }
        if (!tThere && pFileSystem.makeDir(tPart, pMode) != 0 && errno != EEXIST) {
            return Failure::fromErrno(errno, u"make the folder %1"_s.arg(pPath));
        }
        if (tEnd < 0) {
            return {};
        }
    }
}

Descriptor openRegular(FileSystem& pFileSystem, const QByteArray& pPath)
{
    Descriptor tFile(pFileSystem, pFileSystem.open(pPath, O_RDONLY | O_NOFOLLOW | O_NONBLOCK));
    struct stat tStat;
    if (!tFile.isOpen() || ::fstat(tFile.fd(), &tStat) != 0) {
        return {};
    }
    if (!S_ISREG(tStat.st_mode)) {
        errno = EINVAL;
        return {};
    }
    return tFile;
}

Result<QByteArray> readFile(FileSystem& pFileSystem, const QString& pPath, qint64 pMaxSize)
{
    // Not blocking: a pipe in place of the file must not block the caller.
    const Descriptor tFile(pFileSystem, pFileSystem.open(QFile::encodeName(pPath), O_RDONLY | O_NONBLOCK));
    if (!tFile.isOpen()) {
        const Failure::Kind tKind = errno == ENOENT ? Failure::Kind::NotFound : Failure::Kind::Io;
        return Failure::fromErrno(errno, u"read %1"_s.arg(pPath)).as(tKind);
    }
    return readOpenFile(pFileSystem, tFile.fd(), pPath, pMaxSize);
}

Result<QByteArray> readOpenFile(FileSystem& pFileSystem, int pFd, const QString& pPath, qint64 pMaxSize)
{
    QByteArray tBytes;
    char tBuffer[64 * 1024];
    for (;;) {
        const ssize_t tGot = pFileSystem.read(pFd, tBuffer, sizeof tBuffer);
        if (tGot == 0) {
            return tBytes;
        }
        if (tGot < 0 && errno != EINTR) {
            return Failure::fromErrno(errno, u"read %1"_s.arg(pPath)).as(Failure::Kind::Io);
        }
        if (tBytes.size() + tGot > pMaxSize) {
            return Failure::content(u"%1 has more than %2 bytes"_s.arg(pPath).arg(pMaxSize));
        }
        tBytes.append(tBuffer, std::max<ssize_t>(tGot, 0));
    }
}

Failure writeFile(FileSystem& pFileSystem, const QString& pPath, const QByteArray& pBytes, mode_t pMode)
{
    Descriptor tFile(pFileSystem,
                     pFileSystem.open(QFile::encodeName(pPath), O_WRONLY | O_CREAT | O_TRUNC, pMode));
    if (!tFile.isOpen() ||
        writeAll(pFileSystem, tFile.fd(), pBytes.constData(), static_cast<size_t>(pBytes.size())) != 0 ||
        tFile.close() != 0) {
        return Failure::fromErrno(errno, u"write %1"_s.arg(pPath));
    }
    return {};
}

Failure replaceFile(FileSystem& pFileSystem, const QString& pPath, const QByteArray& pBytes, mode_t pMode)
{
    const QByteArray tPath = QFile::encodeName(pPath);
    const QByteArray tNew = tPath + ".new";
    if (pFileSystem.unlink(tNew) != 0 && errno != ENOENT) {
        return Failure::fromErrno(errno, u"write %1"_s.arg(pPath));
    }
    Descriptor tFile(pFileSystem, pFileSystem.open(tNew, O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW, pMode));
    if (!tFile.isOpen() ||
        writeAll(pFileSystem, tFile.fd(), pBytes.constData(), static_cast<size_t>(pBytes.size())) != 0 ||
        pFileSystem.fsync(tFile.fd()) != 0 || tFile.close() != 0 || pFileSystem.rename(tNew, tPath) != 0) {
        const Failure tFailure = Failure::fromErrno(errno, u"write %1"_s.arg(pPath));
        pFileSystem.unlink(tNew);
        return tFailure;
    }
    return syncDir(pFileSystem, QFileInfo(pPath).path());
}

Failure removeTree(FileSystem& pFileSystem, const QString& pPath)
{
    const QByteArray tPath = QFile::encodeName(pPath);
    struct stat tStat;
    if (::lstat(tPath.constData(), &tStat) != 0) {
        return errno == ENOENT ? Failure() : Failure::fromErrno(errno, u"remove %1"_s.arg(pPath));
    }
    const int tErrno = removeEntry(pFileSystem, AT_FDCWD, tPath, S_ISDIR(tStat.st_mode));
    return tErrno == 0 ? Failure() : Failure::fromErrno(tErrno, u"remove %1"_s.arg(pPath));
}

int openBelow(FileSystem& pFileSystem, int pDirFd, const QByteArrayList& pNames)
{
    const int tFlags = O_RDONLY | O_DIRECTORY | O_NOFOLLOW;
    Descriptor tDir(pFileSystem, pFileSystem.openAt(pDirFd, ".", tFlags));
    for (const QByteArray& tName : pNames) {
        if (!tDir.isOpen()) {
            return -1;
        }
        tDir = Descriptor(pFileSystem, pFileSystem.openAt(tDir.fd(), tName, tFlags));
    }
    return tDir.release();
}

Failure removeBelow(FileSystem& pFileSystem, int pDirFd, const QByteArrayList& pNames, const QString& pPath)
{
    const Descriptor tDir(pFileSystem, openBelow(pFileSystem, pDirFd, pNames.first(pNames.size() - 1)));
    struct stat tStat;
    int tErrno = 0;
    if (!tDir.isOpen() || ::fstatat(tDir.fd(), pNames.last().constData(), &tStat, AT_SYMLINK_NOFOLLOW) != 0) {
        tErrno = errno == ENOENT ? 0 : errno;
    } else {
        tErrno = removeEntry(pFileSystem, tDir.fd(), pNames.last(), S_ISDIR(tStat.st_mode));
    }
    return tErrno == 0 ? Failure() : Failure::fromErrno(tErrno, u"remove %1"_s.arg(pPath));
}

Result<QByteArrayList> namesIn(int pFolder, const QString& pPath)
{
    // A separate descriptor: it has a read position, and closedir() closes it.
    const int tFd = ::openat(pFolder, ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    DIR* tDir = tFd < 0 ? nullptr : ::fdopendir(tFd);
    if (tDir == nullptr) {
        const Failure tFailure = Failure::fromErrno(errno, u"read the folder %1"_s.arg(pPath));
        if (tFd >= 0) {
            ::close(tFd);
        }
        return tFailure;
    }
    QByteArrayList tNames;
    errno = 0;
    while (const dirent* tEntry = ::readdir(tDir)) {
        if (std::strcmp(tEntry->d_name, ".") != 0 && std::strcmp(tEntry->d_name, "..") != 0) {
            tNames.append(tEntry->d_name);
        }
        errno = 0;
    }
    const int tErrno = errno;
    ::closedir(tDir);
    if (tErrno != 0) {
        return Failure::fromErrno(tErrno, u"read the folder %1"_s.arg(pPath));
    }
    return tNames;
}

Failure syncDir(FileSystem& pFileSystem, const QString& pPath)
{
    Descriptor tDir(pFileSystem, pFileSystem.open(QFile::encodeName(pPath), O_RDONLY | O_DIRECTORY));
    if (!tDir.isOpen() || pFileSystem.fsync(tDir.fd()) != 0) {
        return Failure::fromErrno(errno, u"write the folder %1 to the disk"_s.arg(pPath));
    }
    return {};
}

} // namespace tarn::os

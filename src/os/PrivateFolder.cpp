#include "os/PrivateFolder.h"

#include "os/FileTools.h"

#include <QtCore/QFile>

#include <dirent.h>
#include <fcntl.h>
#include <unistd.h>

#include <cerrno>

using namespace Qt::StringLiterals;

namespace tarn::os {

namespace {

constexpr mode_t sFolderMode = 0700;
constexpr mode_t sFileMode = 0600;

bool isPlainName(const QByteArray& pName)
{
    return !pName.isEmpty() && pName != "." && pName != ".." && !pName.contains('/') && !pName.contains('\0');
}

} // namespace

Failure PrivateFolder::open(const QString& pPath)
{
    mPath = pPath;
    if (const Failure tFailure = makePath(mFileSystem, pPath, sFolderMode)) {
        return tFailure;
    }
    const QString tWhat = u"use the folder %1"_s.arg(pPath);
    mFolder = Descriptor(mFileSystem,
                         mFileSystem.open(QFile::encodeName(pPath), O_RDONLY | O_DIRECTORY | O_NOFOLLOW));
    struct stat tStat;
    if (!mFolder.isOpen() || ::fstat(mFolder.fd(), &tStat) != 0) {
        return Failure::fromErrno(errno, tWhat);
    }
    if (tStat.st_uid != ::geteuid()) {
        mFolder.close();
        return {Failure::Kind::Io, u"Can't %1: it belongs to another user. Remove it"_s.arg(tWhat)};
    }
    if ((tStat.st_mode & 07777) != sFolderMode && mFileSystem.changeMode(mFolder.fd(), sFolderMode) != 0) {
        return Failure::fromErrno(errno, tWhat);
    }
    return {};
}

QString PrivateFolder::pathOf(const QByteArray& pName) const
{
    return mPath + u'/' + QFile::decodeName(pName);
}

bool PrivateFolder::isSound(const Descriptor& pFile, qint64 pMaxSize) const
{
    struct stat tStat;
    return ::fstat(pFile.fd(), &tStat) == 0 && S_ISREG(tStat.st_mode) && tStat.st_nlink == 1 &&
           tStat.st_uid == ::geteuid() && tStat.st_size <= pMaxSize;
}

Failure PrivateFolder::openFile(const QByteArray& pName, qint64 pMaxSize, Descriptor* pTo) const
{
    const QString tWhat = u"write %1"_s.arg(pathOf(pName));
    if (!isPlainName(pName)) {
        return Failure::fromErrno(EINVAL, tWhat);
    }
    constexpr int sFlags = O_RDWR | O_APPEND | O_NOFOLLOW | O_NONBLOCK;
    *pTo = Descriptor(mFileSystem, mFileSystem.openAt(mFolder.fd(), pName, sFlags));
    if (pTo->isOpen() && isSound(*pTo, pMaxSize)) {
        return {};
    }
    // A link (ELOOP), and a pipe or a socket without a peer (ENXIO), are removed as well.
    if (!pTo->isOpen() && errno != ENOENT && errno != ELOOP && errno != ENXIO) {
        return Failure::fromErrno(errno, tWhat);
    }
    pTo->close();
    if (const Failure tFailure = remove(pName)) {
        return tFailure;
    }
    *pTo = Descriptor(mFileSystem,
                      mFileSystem.openAt(mFolder.fd(), pName, sFlags | O_CREAT | O_EXCL, sFileMode));
    return pTo->isOpen() ? Failure() : Failure::fromErrno(errno, tWhat);
}

qint64 PrivateFolder::sizeOf(const QByteArray& pName) const
{
    struct stat tStat;
    return isPlainName(pName) &&
                   ::fstatat(mFolder.fd(), pName.constData(), &tStat, AT_SYMLINK_NOFOLLOW) == 0 &&
                   S_ISREG(tStat.st_mode)
               ? tStat.st_size
               : 0;
}

QList<QByteArray> PrivateFolder::names() const
{
    // A separate descriptor: it has a read position, and closedir() closes it.
    const int tFd = ::openat(mFolder.fd(), ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    DIR* tFolder = tFd < 0 ? nullptr : ::fdopendir(tFd);
    QList<QByteArray> tNames;
    while (const dirent* tEntry = tFolder == nullptr ? nullptr : ::readdir(tFolder)) {
        struct stat tStat;
        if (::fstatat(tFd, tEntry->d_name, &tStat, AT_SYMLINK_NOFOLLOW) == 0 && !S_ISDIR(tStat.st_mode)) {
            tNames.append(tEntry->d_name);
        }
    }
    if (tFolder != nullptr) {
        ::closedir(tFolder);
    }
    return tNames;
}

Failure PrivateFolder::remove(const QByteArray& pName) const
{
    if (!isPlainName(pName)) {
        return Failure::fromErrno(EINVAL, u"remove %1"_s.arg(pathOf(pName)));
    }
    return mFileSystem.unlinkAt(mFolder.fd(), pName, 0) == 0 || errno == ENOENT
               ? Failure()
               : Failure::fromErrno(errno, u"remove %1"_s.arg(pathOf(pName)));
}

} // namespace tarn::os

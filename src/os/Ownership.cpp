#include "os/Ownership.h"

#include "os/Descriptor.h"
#include "os/FileTools.h"

#include <QtCore/QFile>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

using namespace Qt::StringLiterals;

namespace tarn::os {

namespace {

Failure cantGive(const QString& pPath)
{
    return Failure::fromErrno(errno, u"change the owner of %1"_s.arg(pPath));
}

// The device would not do: files of some file systems have another one than their folder, and two places of
// one disk have the same. 0 and errno on failure.
quint64 mountOf(int pFolder, const char* pName)
{
    struct statx tStat = {};
    if (::statx(pFolder, pName, AT_SYMLINK_NOFOLLOW | AT_EMPTY_PATH, STATX_MNT_ID, &tStat) != 0) {
        return 0;
    }
    errno = ENOSYS;
    return (tStat.stx_mask & STATX_MNT_ID) != 0 ? tStat.stx_mnt_id : 0;
}

} // namespace

Failure Ownership::give(int pFolder, const QByteArray& pName, const QString& pPath) const
{
    const quint64 tMount = mountOf(pFolder, "");
    return tMount != 0 ? giveEntry(pFolder, pName, tMount, pPath) : cantGive(pPath);
}

Failure Ownership::giveOpen(int pFd, const QString& pPath) const
{
    struct stat tStat;
    if (::fstat(pFd, &tStat) != 0 || (tStat.st_uid == mFrom && ::fchown(pFd, mTo, mGroup) != 0)) {
        return cantGive(pPath);
    }
    return {};
}

// Everybody may put a file into a shared folder such as /tmp.
bool Ownership::mayVouch(int pFolder, const struct stat& pFile) const
{
    struct stat tFolder;
    return ::fstat(pFolder, &tFolder) == 0 && concerns(pFile.st_uid) && concerns(tFolder.st_uid) &&
           (pFile.st_uid == mFrom || (tFolder.st_mode & (S_IWGRP | S_IWOTH)) == 0);
}

Failure Ownership::giveEntry(int pFolder, const QByteArray& pName, quint64 pMount, const QString& pPath) const
{
    struct stat tStat;
    if (::fstatat(pFolder, pName.constData(), &tStat, AT_SYMLINK_NOFOLLOW) != 0) {
        return errno == ENOENT ? Failure() : cantGive(pPath);
    }
    if (!concerns(tStat.st_uid) || mountOf(pFolder, pName.constData()) != pMount) {
        return {};
    }
    if (S_ISDIR(tStat.st_mode)) {
        const Descriptor tFolder(realFileSystem(), ::openat(pFolder, pName.constData(),
                                                            O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
        struct stat tOpen;
        if (!tFolder.isOpen() || ::fstat(tFolder.fd(), &tOpen) != 0) {
            return cantGive(pPath);
        }
        if (tOpen.st_dev != tStat.st_dev || tOpen.st_ino != tStat.st_ino) {
            return {Failure::Kind::Io, u"The folder %1 was replaced meanwhile"_s.arg(pPath)};
        }
        const Failure tFailure = giveContents(tFolder.fd(), pMount, pPath);
        return tFailure ? tFailure : giveOpen(tFolder.fd(), pPath);
    }
    if (tStat.st_uid == mFrom && !isPlanted(pFolder, tStat) &&
        ::fchownat(pFolder, pName.constData(), mTo, mGroup, AT_SYMLINK_NOFOLLOW) != 0) {
        return cantGive(pPath);
    }
    return {};
}

// Who owns a folder could have linked any file of the disk into it, where the kernel lets users do that.
bool Ownership::isPlanted(int pFolder, const struct stat& pFile) const
{
    struct stat tFolder;
    return S_ISREG(pFile.st_mode) && pFile.st_nlink > 1 &&
           (::fstat(pFolder, &tFolder) != 0 || tFolder.st_uid != mFrom);
}

Failure Ownership::giveContents(int pFolder, quint64 pMount, const QString& pPath) const
{
    const Result<QByteArrayList> tNames = namesIn(pFolder, pPath);
    if (!tNames) {
        return tNames.failure();
    }
    for (const QByteArray& tName : *tNames) {
        if (Failure tFailure = giveEntry(pFolder, tName, pMount, pPath + u'/' + QFile::decodeName(tName))) {
            return tFailure;
        }
    }
    return {};
}

} // namespace tarn::os

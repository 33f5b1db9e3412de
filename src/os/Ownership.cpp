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

} // namespace

Failure Ownership::give(int pFolder, const QByteArray& pName, const QString& pPath) const
{
    struct stat tStat;
    return ::fstat(pFolder, &tStat) == 0 ? giveEntry(pFolder, pName, tStat.st_dev, pPath) : cantGive(pPath);
}

Failure Ownership::giveOpen(int pFd, const QString& pPath) const
{
    struct stat tStat;
    if (::fstat(pFd, &tStat) != 0 || (tStat.st_uid == mFrom && ::fchown(pFd, mTo, mGroup) != 0)) {
        return cantGive(pPath);
    }
    return {};
}

Failure Ownership::giveEntry(int pFolder, const QByteArray& pName, dev_t pDevice, const QString& pPath) const
{
    struct stat tStat;
    if (::fstatat(pFolder, pName.constData(), &tStat, AT_SYMLINK_NOFOLLOW) != 0) {
        return errno == ENOENT ? Failure() : cantGive(pPath);
    }
    if (!concerns(tStat.st_uid) || tStat.st_dev != pDevice) {
        return {};
    }
    if (S_ISDIR(tStat.st_mode)) {
        const Descriptor tFolder(realFileSystem(), ::openat(pFolder, pName.constData(),
                                                            O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
        if (!tFolder.isOpen()) {
            return cantGive(pPath);
        }
        const Failure tFailure = giveContents(tFolder.fd(), pDevice, pPath);
        return tFailure ? tFailure : giveOpen(tFolder.fd(), pPath);
    }
    if (tStat.st_uid == mFrom &&
        ::fchownat(pFolder, pName.constData(), mTo, mGroup, AT_SYMLINK_NOFOLLOW) != 0) {
        return cantGive(pPath);
    }
    return {};
}

Failure Ownership::giveContents(int pFolder, dev_t pDevice, const QString& pPath) const
{
    const Result<QByteArrayList> tNames = namesIn(pFolder, pPath);
    if (!tNames) {
        return tNames.failure();
    }
    for (const QByteArray& tName : *tNames) {
        if (Failure tFailure = giveEntry(pFolder, tName, pDevice, pPath + u'/' + QFile::decodeName(tName))) {
            return tFailure;
        }
    }
    return {};
}

} // namespace tarn::os

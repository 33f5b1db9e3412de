#include "metrics/MetricsFile.h"

#include "os/Descriptor.h"
#include "os/FileTools.h"

#include <QtCore/QFile>
#include <QtCore/QFileInfo>

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>

using namespace Qt::StringLiterals;

namespace tarn::vkservice::metrics {

namespace {

constexpr mode_t sFileMode = 0644;

bool isTrusted(uid_t pOwner)
{
    return pOwner == 0 || pOwner == ::geteuid();
}

// A group that the service itself runs in is how it may write to root's folder.
bool isWritableByOthers(const struct stat& pFolder)
{
    const bool tByGroup = (pFolder.st_mode & S_IWGRP) != 0 && pFolder.st_gid != ::getegid();
    return tByGroup || (pFolder.st_mode & S_IWOTH) != 0;
}

// The name in the open folder, whatever its path has become.
QByteArray below(const os::Descriptor& pFolder, const QByteArray& pName)
{
    return "/proc/self/fd/" + QByteArray::number(pFolder.fd()) + '/' + pName;
}

} // namespace

MetricsFile::MetricsFile(os::FileSystem& pFileSystem, const QString& pPath)
    : mFileSystem(pFileSystem), mPath(pPath), mFolder(QFileInfo(pPath).path()),
      mName(QFile::encodeName(QFileInfo(pPath).fileName()))
{
}

Failure MetricsFile::openFolder(os::Descriptor* pTo) const
{
    constexpr int sFlags = O_PATH | O_DIRECTORY | O_NOFOLLOW;
    *pTo = os::Descriptor(mFileSystem, mFileSystem.open(QFile::encodeName(mFolder), sFlags));
    struct stat tStat;
    if (!pTo->isOpen() || ::fstat(pTo->fd(), &tStat) != 0) {
        return Failure::fromErrno(errno, u"use the folder %1"_s.arg(mFolder));
    }
    if (!isTrusted(tStat.st_uid) || isWritableByOthers(tStat)) {
        return {Failure::Kind::Io,
                u"The folder %1 belongs to another user or may be written to by others"_s.arg(mFolder)};
    }
    return {};
}

Failure MetricsFile::writeNew(const os::Descriptor& pFolder, const QByteArray& pText) const
{
    const QByteArray tNew = mName + ".new";
    const QString tWhat = u"write %1"_s.arg(mPath);
    if (mFileSystem.unlinkAt(pFolder.fd(), tNew, 0) != 0 && errno != ENOENT) {
        return Failure::fromErrno(errno, tWhat);
    }
    os::Descriptor tFile(
        mFileSystem,
        mFileSystem.openAt(pFolder.fd(), tNew, O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW, sFileMode));
    if (!tFile.isOpen() ||
        os::writeAll(mFileSystem, tFile.fd(), pText.constData(), static_cast<size_t>(pText.size())) != 0 ||
        mFileSystem.changeMode(tFile.fd(), sFileMode) != 0 || tFile.close() != 0 ||
        mFileSystem.rename(below(pFolder, tNew), below(pFolder, mName)) != 0) {
        const Failure tFailure = Failure::fromErrno(errno, tWhat);
        mFileSystem.unlinkAt(pFolder.fd(), tNew, 0);
        return tFailure;
    }
    return {};
}

Failure MetricsFile::write(const QByteArray& pText) const
{
    os::Descriptor tFolder;
    const Failure tFailure = openFolder(&tFolder);
    return tFailure ? tFailure : writeNew(tFolder, pText);
}

Failure MetricsFile::remove() const
{
    os::Descriptor tFolder;
    if (const Failure tFailure = openFolder(&tFolder)) {
        return tFailure;
    }
    return mFileSystem.unlinkAt(tFolder.fd(), mName, 0) == 0 || errno == ENOENT
               ? Failure()
               : Failure::fromErrno(errno, u"remove %1"_s.arg(mPath));
}

} // namespace tarn::vkservice::metrics

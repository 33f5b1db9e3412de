#include "packages/InstallLock.h"

#include <QtCore/QFile>

#include <fcntl.h>
#include <sys/file.h>

#include <cerrno>

namespace tarn::vkservice::packages {

using os::Failure;

Failure InstallLock::take(os::FileSystem& pFileSystem, const QString& pInstallDir)
{
    const QString tPath = pInstallDir + QStringLiteral("/.lock");
    mFile = os::Descriptor(pFileSystem,
                           pFileSystem.open(QFile::encodeName(tPath), O_RDWR | O_CREAT | O_NOFOLLOW, 0600));
    if (!mFile.isOpen()) {
        return Failure::fromErrno(errno, QStringLiteral("open %1").arg(tPath));
    }
    if (::flock(mFile.fd(), LOCK_EX | LOCK_NB) == 0) {
        return {};
    }
    if (errno == EWOULDBLOCK) {
        return {Failure::Kind::Io,
                QStringLiteral("Another service is updating %1: wait until it has ended").arg(pInstallDir)};
    }
    return Failure::fromErrno(errno, QStringLiteral("lock %1").arg(tPath));
}

} // namespace tarn::vkservice::packages

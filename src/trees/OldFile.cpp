#include "trees/OldFile.h"

#include "os/AbortFlag.h"
#include "os/FileTools.h"
#include "tuf/Hashes.h"

#include <QtCore/QFile>

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>

namespace tarn::trees {

namespace {

constexpr qsizetype sBlockSize = 256 * 1024;

} // namespace

os::Descriptor openInstalled(os::FileSystem& pFileSystem, const QString& pFolder, const QByteArray& pPath,
                             struct stat* pStat)
{
    const os::Descriptor tTop(
        pFileSystem, pFileSystem.open(QFile::encodeName(pFolder), O_RDONLY | O_DIRECTORY | O_NOFOLLOW));
    QByteArrayList tNames = pPath.split('/');
    const QByteArray tName = tNames.takeLast();
    const os::Descriptor tDir(pFileSystem,
                              tTop.isOpen() ? os::openBelow(pFileSystem, tTop.fd(), tNames) : -1);
    if (!tDir.isOpen()) {
        return {};
    }
    // Not blocking: a pipe in place of the file must not block the caller.
    os::Descriptor tFile(pFileSystem,
                         pFileSystem.openAt(tDir.fd(), tName, O_RDONLY | O_NOFOLLOW | O_NONBLOCK));
    if (!tFile.isOpen() || ::fstat(tFile.fd(), pStat) != 0) {
        return {};
    }
    return S_ISREG(pStat->st_mode) && pStat->st_uid == ::geteuid() ? std::move(tFile) : os::Descriptor();
}

std::optional<tuf::Hash> hashOf(os::FileSystem& pFileSystem, int pFd, const os::AbortFlag* pAbort,
                                const std::function<void(qint64)>& pProgress)
{
    if (::lseek(pFd, 0, SEEK_SET) < 0) {
        return std::nullopt;
    }
    QByteArray tBlock(sBlockSize, Qt::Uninitialized);
    tuf::Hasher tHasher(tuf::HashAlgorithm::Sha256);
    for (;;) {
        const ssize_t tGot = pFileSystem.read(pFd, tBlock.data(), static_cast<size_t>(tBlock.size()));
        if ((tGot < 0 && errno != EINTR) || (pAbort != nullptr && pAbort->isSet())) {
            return std::nullopt;
        }
        if (tGot == 0) {
            return tHasher.result().front();
        }
        tHasher.add(QByteArrayView(tBlock).first(std::max<ssize_t>(tGot, 0)));
        if (pProgress) {
            pProgress(std::max<ssize_t>(tGot, 0));
        }
    }
}

} // namespace tarn::trees

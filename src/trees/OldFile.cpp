#include "trees/OldFile.h"

#include "os/AbortFlag.h"
#include "os/FileTools.h"
#include "tuf/Hashes.h"

#include <QtCore/QFile>

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

namespace tarn::trees {

namespace {

constexpr qsizetype sBlockSize = 256 * 1024;

} // namespace

void OldFiles::enter(const QString& pPackage, const QByteArray& pBelow)
{
    if (mFolder.isOpen() && mPackage == pPackage && mBelow == pBelow) {
        return;
    }
    mPackage = pPackage;
    mBelow = pBelow;
    const os::Descriptor tTop(
        mFileSystem, mFileSystem.open(QFile::encodeName(pPackage), O_RDONLY | O_DIRECTORY | O_NOFOLLOW));
    const QByteArrayList tNames = pBelow.isEmpty() ? QByteArrayList() : pBelow.split('/');
    mFolder = os::Descriptor(mFileSystem, tTop.isOpen() ? os::openBelow(mFileSystem, tTop.fd(), tNames) : -1);
}

OldFile OldFiles::open(const QString& pPackage, const QByteArray& pPath)
{
    const qsizetype tSlash = pPath.lastIndexOf('/');
    enter(pPackage, pPath.first(std::max<qsizetype>(tSlash, 0)));
    if (!mFolder.isOpen()) {
        return {};
    }
    // Not blocking: a pipe in place of the file must not block the caller.
    OldFile tFile{.mFile =
                      os::Descriptor(mFileSystem, mFileSystem.openAt(mFolder.fd(), pPath.sliced(tSlash + 1),
                                                                     O_RDONLY | O_NOFOLLOW | O_NONBLOCK)),
                  .mHash = {}};
    const bool tIsUsable = tFile.mFile.isOpen() && ::fstat(tFile.mFile.fd(), &tFile.mStat) == 0 &&
                           S_ISREG(tFile.mStat.st_mode) && tFile.mStat.st_uid == ::geteuid();
    return tIsUsable ? std::move(tFile) : OldFile();
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

#include "trees/NewFile.h"

#include "os/FileTools.h"
#include "packages/PackageModes.h"
#include "trees/OldFile.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>

using namespace Qt::StringLiterals;

namespace tarn::trees {

Failure NewFile::failure() const
{
    return Failure::fromErrno(errno, u"write %1"_s.arg(mLabel));
}

Failure NewFile::create(int pDirFd, const QByteArray& pName)
{
    mDir = os::Descriptor(mFileSystem, mFileSystem.openAt(pDirFd, ".", O_RDONLY | O_DIRECTORY));
    mName = pName;
    mFile = os::Descriptor(mFileSystem,
                           mFileSystem.openAt(pDirFd, pName, O_RDWR | O_CREAT | O_EXCL | O_NOFOLLOW, 0600));
    mHasher.emplace(tuf::HashAlgorithm::Sha256);
    return mDir.isOpen() && mFile.isOpen() ? Failure() : failure();
}

Failure NewFile::write(QByteArrayView pData)
{
    mHasher->add(pData);
    return os::writeAll(mFileSystem, mFile.fd(), pData.data(), static_cast<size_t>(pData.size())) != 0
               ? failure()
               : Failure();
}

Failure NewFile::hashContent()
{
    QByteArray tBlock(256 * 1024, Qt::Uninitialized);
    for (;;) {
        const ssize_t tGot = mFileSystem.read(mFile.fd(), tBlock.data(), static_cast<size_t>(tBlock.size()));
        if (tGot < 0 && errno != EINTR) {
            return failure();
        }
        if (tGot == 0) {
            return {};
        }
        mHasher->add(QByteArrayView(tBlock).first(std::max<ssize_t>(tGot, 0)));
    }
}

Result<bool> NewFile::finish(const Tree::Node& pWanted)
{
    if (digestOf(mHasher->result().front()) != pWanted.mHash) {
        discard();
        return false;
    }
    if (mFileSystem.changeMode(mFile.fd(), packages::fileMode(pWanted.mIsExecutable)) != 0 ||
        mFileSystem.changeTime(mFile.fd(), pWanted.mTime) != 0 || mFile.close() != 0) {
        return failure();
    }
    return true;
}

void NewFile::discard()
{
    (void)mFile.close(); // the file goes
    mFileSystem.unlinkAt(mDir.fd(), mName, 0);
}

} // namespace tarn::trees

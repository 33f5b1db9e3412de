#include "trees/NewFile.h"

#include "os/FileTools.h"
#include "packages/PackageModes.h"

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
    if (!mDir.isOpen()) {
        return failure();
    }
    mFile = os::Descriptor(mFileSystem,
                           mFileSystem.openAt(pDirFd, pName, O_RDWR | O_CREAT | O_EXCL | O_NOFOLLOW, 0600));
    mHasher.emplace(tuf::HashAlgorithm::Sha256);
    return mFile.isOpen() ? Failure() : failure();
}

Failure NewFile::write(QByteArrayView pData)
{
    mHasher->add(pData);
    return os::writeAll(mFileSystem, mFile.fd(), pData.data(), static_cast<size_t>(pData.size())) != 0
               ? failure()
               : Failure();
}

Result<bool> NewFile::finish(const Tree::Node& pWanted)
{
    return finish(mHasher->result().front(), pWanted);
}

Result<bool> NewFile::finish(const tuf::Hash& pHash, const Tree::Node& pWanted)
{
    if (digestOf(pHash) != pWanted.mHash) {
        Failure tFailure = discard();
        return tFailure ? Result<bool>(tFailure) : Result<bool>(false);
    }
    if (mFileSystem.changeMode(mFile.fd(), packages::fileMode(pWanted.mIsExecutable)) != 0 ||
        mFileSystem.changeTime(mFile.fd(), pWanted.mTime) != 0 || mFile.close() != 0) {
        return failure();
    }
    return true;
}

Failure NewFile::discard()
{
    if (!mFile.isOpen()) {
        return {};
    }
    (void)mFile.close(); // it goes
    return mFileSystem.unlinkAt(mDir.fd(), mName, 0) != 0 ? failure() : Failure();
}

} // namespace tarn::trees

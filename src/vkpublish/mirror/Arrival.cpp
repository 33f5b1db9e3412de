#include "mirror/Arrival.h"

#include "mirror/Origin.h"

#include "os/FileTools.h"

#include <QtCore/QFile>

#include <algorithm>
#include <cerrno>

using namespace Qt::StringLiterals;

namespace tarn::vkpublish {

namespace {

constexpr int sMostAttempts = 5;
constexpr int sFirstPauseSeconds = 1; // each later one is three times as long
// An attempt that brought this many bytes was worth it: the count starts again.
constexpr qint64 sWorthwhileBytes = 1024 * 1024;
constexpr qsizetype sBlockSize = 1024 * 1024;
constexpr mode_t sFileMode = 0644;

} // namespace

Arrival::Arrival(os::FileSystem& pFileSystem, const os::PrivateFolder& pFolder, const SignedFile& pFile)
    : mFileSystem(pFileSystem), mFolder(pFolder), mSigned(pFile),
      mName(tuf::namingHash(pFile.mHashes).toHex())
{
}

Failure Arrival::open()
{
    if (Failure tFailure = mFolder.openFile(mName, mSigned.mLength, &mFile)) {
        return tFailure;
    }
    mHasher = std::make_unique<tuf::Hasher>(mSigned.mHashes);
    mReceived = 0;
    QByteArray tBlock(sBlockSize, Qt::Uninitialized);
    for (;;) {
        const ssize_t tGot = mFileSystem.read(mFile.fd(), tBlock.data(), static_cast<size_t>(tBlock.size()));
        if (tGot == 0) {
            return {};
        }
        if (tGot < 0 && errno != EINTR) {
            return Failure::fromErrno(errno, u"read %1"_s.arg(path()));
        }
        mHasher->add(QByteArrayView(tBlock).first(std::max<ssize_t>(tGot, 0)));
        mReceived += std::max<ssize_t>(tGot, 0);
    }
}

Failure Arrival::restart()
{
    mFile.close();
    if (Failure tFailure = mFolder.remove(mName)) {
        return tFailure;
    }
    return open();
}

Failure Arrival::write(QByteArrayView pData)
{
    mTransferred += pData.size();
    if (mReceived + pData.size() > mSigned.mLength) {
        (void)mFolder.remove(mName); // what came so far is not the file either
        return Failure::untrusted(
            u"%1 has more than the %2 bytes that were signed for it"_s.arg(mSigned.mPath)
                .arg(mSigned.mLength));
    }
    mHasher->add(pData);
    mReceived += pData.size();
    return os::writeAll(mFileSystem, mFile.fd(), pData.data(), static_cast<size_t>(pData.size())) == 0
               ? Failure()
               : Failure::fromErrno(errno, u"write %1"_s.arg(path()));
}

Failure Arrival::bring(Origin& pOrigin, const QString& pTo, const std::function<void(int)>& pWait)
{
    if (Failure tFailure = open()) {
        return tFailure;
    }
    const bool tContinues = mReceived > 0;
    Failure tFailure = transfer(pOrigin, pWait);
    tFailure = tFailure ? tFailure : prove();
    // What an earlier run has left may be damaged.
    if (tFailure.mKind == Failure::Kind::Untrusted && tContinues) {
        tFailure = restart();
        tFailure = tFailure ? tFailure : transfer(pOrigin, pWait);
        tFailure = tFailure ? tFailure : prove();
    }
    return tFailure ? tFailure : place(pTo);
}

Failure Arrival::transfer(Origin& pOrigin, const std::function<void(int)>& pWait)
{
    int tPause = sFirstPauseSeconds;
    qint64 tFurthest = mReceived;
    for (int tAttempts = 1; mReceived < mSigned.mLength; ++tAttempts) {
        const qint64 tBefore = mReceived;
        Failure tFailure = pOrigin.get(mSigned.mFetchPath, *this);
        if (!tFailure && mReceived > tBefore && mReceived < mSigned.mLength) {
            tFailure = {Failure::Kind::Unreachable, u"%1 ended too early"_s.arg(mSigned.mPath)};
        }
        if (tFailure.mKind != Failure::Kind::Unreachable) {
            return tFailure;
        }
        if (mReceived - tFurthest >= sWorthwhileBytes) {
            tAttempts = 1;
            tPause = sFirstPauseSeconds;
        }
        tFurthest = std::max(tFurthest, mReceived);
        if (tAttempts >= sMostAttempts) {
            return tFailure;
        }
        pWait(tPause);
        tPause *= 3;
    }
    return {};
}

Failure Arrival::prove()
{
    if (mReceived == mSigned.mLength && tuf::hashesAgree(mSigned.mHashes, mHasher->result())) {
        return {};
    }
    if (Failure tFailure = mFolder.remove(mName)) {
        return tFailure;
    }
    return Failure::untrusted(u"%1 is not the file that was signed"_s.arg(mSigned.mPath));
}

// The caller makes the folder, and syncs it.
Failure Arrival::place(const QString& pTo)
{
    if (mFileSystem.changeMode(mFile.fd(), sFileMode) != 0 || mFileSystem.fsync(mFile.fd()) != 0 ||
        mFile.close() != 0 || mFileSystem.rename(QFile::encodeName(path()), QFile::encodeName(pTo)) != 0) {
        return Failure::fromErrno(errno, u"write %1"_s.arg(pTo));
    }
    return {};
}

} // namespace tarn::vkpublish

#include "update/ArchiveFile.h"

#include "os/AbortFlag.h"
#include "os/FileTools.h"

#include <cerrno>

using namespace Qt::StringLiterals;

namespace tarn::vkservice::update {

namespace {

constexpr qsizetype sBufferSize = 1024 * 1024;

} // namespace

Failure notTheSigned(const tuf::TargetFile& pTarget)
{
    return {Failure::Kind::Untrusted, u"The file %1 is not the one that was signed"_s.arg(pTarget.mPath)};
}

ArchiveFile::ArchiveFile(os::FileSystem& pFileSystem, const os::PrivateFolder& pFolder,
                         const tuf::TargetFile& pTarget)
    : mFileSystem(pFileSystem), mFolder(pFolder), mTarget(pTarget), mName(nameOf(pTarget))
{
}

ArchiveFile::~ArchiveFile() = default;

Failure ArchiveFile::ioFailure(int pErrno) const
{
    return Failure::fromErrno(pErrno, u"write %1"_s.arg(mFolder.pathOf(mName)));
}

Failure ArchiveFile::open(const os::AbortFlag& pAbort, const std::function<void(qint64)>& pProgress)
{
    if (const Failure tFailure = mFolder.openFile(mName, mTarget.mLength, &mFile)) {
        return tFailure;
    }
    mHasher = std::make_unique<tuf::Hasher>(mTarget.mHashes);
    mReceived = 0;
    mBuffer.clear();
    return hashFound(pAbort, pProgress);
}

Failure ArchiveFile::hashFound(const os::AbortFlag& pAbort, const std::function<void(qint64)>& pProgress)
{
    QByteArray tBlock(sBufferSize, Qt::Uninitialized);
    for (;;) {
        if (pAbort.isSet()) {
            return Failure::canceled();
        }
        const ssize_t tGot = mFileSystem.read(mFile.fd(), tBlock.data(), static_cast<size_t>(tBlock.size()));
        if (tGot == 0) {
            return {};
        }
        if (tGot < 0 && errno == EINTR) {
            continue;
        }
        if (tGot < 0) {
            return Failure::fromErrno(errno, u"read %1"_s.arg(mFolder.pathOf(mName)));
        }
        mHasher->add(QByteArrayView(tBlock.constData(), tGot));
        mReceived += tGot;
        pProgress(tGot);
    }
}

Failure ArchiveFile::restart()
{
    if (mReceived == 0) {
        return {};
    }
    mFile.close();
    if (const Failure tFailure = discard()) {
        return tFailure;
    }
    if (mProgress) {
        mProgress(-mReceived);
    }
    static const os::AbortFlag sNever;
    return open(sNever, [](qint64) {});
}

Failure ArchiveFile::write(QByteArrayView pData)
{
    if (mReceived + pData.size() > mTarget.mLength) {
        return {Failure::Kind::Untrusted,
                u"The server sent more than the %1 bytes that were signed for %2"_s.arg(mTarget.mLength)
                    .arg(mTarget.mPath)};
    }
    mReceived += pData.size();
    if (mProgress) {
        mProgress(pData.size());
    }
    // Large blocks are written without a copy.
    if (mBuffer.isEmpty() && pData.size() >= sBufferSize) {
        mHasher->add(pData);
        const int tResult =
            os::writeAll(mFileSystem, mFile.fd(), pData.data(), static_cast<size_t>(pData.size()));
        return tResult == 0 ? Failure() : ioFailure(errno);
    }
    mBuffer.append(pData.data(), pData.size());
    return mBuffer.size() >= sBufferSize ? flush() : Failure();
}

Failure ArchiveFile::flush()
{
    mHasher->add(mBuffer);
    const int tResult =
        os::writeAll(mFileSystem, mFile.fd(), mBuffer.constData(), static_cast<size_t>(mBuffer.size()));
    const int tErrno = errno;
    mBuffer.resize(0);
    return tResult == 0 ? Failure() : ioFailure(tErrno);
}

Failure ArchiveFile::close()
{
    if (!mFile.isOpen()) {
        return {};
    }
    const Failure tFailure = flush();
    return mFile.close() != 0 && !tFailure ? ioFailure(errno) : tFailure;
}

Failure ArchiveFile::verify()
{
    if (mReceived == mTarget.mLength && tuf::hashesAgree(mTarget.mHashes, mHasher->result())) {
        return {};
    }
    if (const Failure tFailure = discard()) {
        return tFailure;
    }
    return notTheSigned(mTarget);
}

Failure ArchiveFile::discard()
{
    return mFolder.remove(mName);
}

} // namespace tarn::vkservice::update

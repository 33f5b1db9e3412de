#include "trees/FrameStream.h"

#include "os/AbortFlag.h"
#include "os/FileTools.h"
#include "tuf/Hashes.h"

#include <QtCore/QFile>

#include <fcntl.h>
#include <unistd.h>
#include <zstd.h>

#include <algorithm>
#include <cerrno>

using namespace Qt::StringLiterals;

namespace tarn::trees {

namespace {

constexpr qsizetype sBlockSize = 256 * 1024;

// The next bytes of an open file.
Failure checkFrame(os::FileSystem& pFileSystem, int pFd, const QString& pFile, const Frame& pFrame,
                   QByteArray* pBlock, const os::AbortFlag* pAbort)
{
    tuf::Hasher tHasher(tuf::HashAlgorithm::Sha256);
    pBlock->resize(sBlockSize);
    for (qint64 tLeft = pFrame.mPacked; tLeft > 0;) {
        const ssize_t tGot = pFileSystem.read(pFd, pBlock->data(),
                                              static_cast<size_t>(std::min<qint64>(tLeft, pBlock->size())));
        if (tGot < 0 && errno != EINTR) {
            return Failure::fromErrno(errno, u"read %1"_s.arg(pFile));
        }
        if (pAbort != nullptr && pAbort->isSet()) {
            return Failure::canceled();
        }
        if (tGot == 0) {
            return Failure::content(u"%1 is cut off"_s.arg(pFile));
        }
        tHasher.add(QByteArrayView(*pBlock).first(std::max<ssize_t>(tGot, 0)));
        tLeft -= std::max<ssize_t>(tGot, 0);
    }
    return tHasher.result().front() == pFrame.mHash
               ? Failure()
               : Failure::content(u"%1 is not the part of the archive that the index names"_s.arg(pFile));
}

} // namespace

Failure checkFrames(os::FileSystem& pFileSystem, const QString& pFile, const FrameTable& pFrames,
                    const FrameRun& pRun, const os::AbortFlag* pAbort)
{
    const os::Descriptor tFile = os::openRegular(pFileSystem, QFile::encodeName(pFile));
    if (!tFile.isOpen()) {
        return Failure::fromErrno(errno, u"read %1"_s.arg(pFile));
    }
    QByteArray tBlock;
    for (qsizetype tFrame = pRun.mFirst; tFrame < pRun.mFirst + pRun.mCount; ++tFrame) {
        if (Failure tFailure =
                checkFrame(pFileSystem, tFile.fd(), pFile, pFrames.at(tFrame), &tBlock, pAbort)) {
            return tFailure;
        }
    }
    struct stat tStat;
    return ::fstat(tFile.fd(), &tStat) == 0 && tStat.st_size == pRun.mPacked.mLength
               ? Failure()
               : Failure::content(u"%1 has more than its frames"_s.arg(pFile));
}

Failure checkArchive(os::FileSystem& pFileSystem, const QString& pArchive, const FrameTable& pFrames,
                     qsizetype pFirst, qsizetype pCount)
{
    const os::Descriptor tFile = os::openRegular(pFileSystem, QFile::encodeName(pArchive));
    if (!tFile.isOpen() || ::lseek(tFile.fd(), pFrames.packed(pFirst).mFirst, SEEK_SET) < 0) {
        return Failure::fromErrno(errno, u"read %1"_s.arg(pArchive));
    }
    QByteArray tBlock;
    for (qsizetype tFrame = pFirst; tFrame < pFirst + pCount; ++tFrame) {
        const Failure tFailure =
            checkFrame(pFileSystem, tFile.fd(), pArchive, pFrames.at(tFrame), &tBlock, nullptr);
        if (tFailure) {
            return tFailure.mKind == Failure::Kind::Content
                       ? Failure::content(
                             u"%1 is damaged: its frame %2 of %3 does not have the hash that the index names"_s
                                 .arg(pArchive)
                                 .arg(tFrame + 1)
                                 .arg(pFrames.count()))
                       : tFailure;
        }
    }
    return {};
}

FrameStream::FrameStream(os::FileSystem& pFileSystem, const FrameTable& pFrames, const FrameRun& pRun)
    : mFileSystem(pFileSystem), mFrames(pFrames), mRun(pRun), mDecoder(ZSTD_createDCtx(), ZSTD_freeDCtx),
      mPosition(pFrames.unpacked(pRun.mFirst).mFirst)
{
    ZSTD_DCtx_setParameter(mDecoder.get(), ZSTD_d_windowLogMax, sMaxWindowLog);
}

FrameStream::~FrameStream() = default;

Failure FrameStream::open(const QString& pFile)
{
    mPath = pFile;
    mFile = os::openRegular(mFileSystem, QFile::encodeName(pFile));
    mText.resize(sBlockSize);
    mTextDone = mText.size();
    return mFile.isOpen() ? Failure() : Failure::fromErrno(errno, u"read %1"_s.arg(pFile));
}

Failure FrameStream::damaged() const
{
    return Failure::content(u"%1 cannot be unpacked"_s.arg(mPath));
}

// Whole frames that are not needed are passed over without unpacking them.
Failure FrameStream::skipTo(qint64 pPosition)
{
    const qsizetype tFrame = mFrames.frameAt(pPosition);
    const ByteRange tUnpacked = mFrames.unpacked(tFrame);
    if (tUnpacked.mFirst > mPosition) {
        const qint64 tPacked = mFrames.packed(tFrame).mFirst - mRun.mPacked.mFirst;
        if (::lseek(mFile.fd(), tPacked, SEEK_SET) < 0) {
            return Failure::fromErrno(errno, u"read %1"_s.arg(mPath));
        }
        ZSTD_DCtx_reset(mDecoder.get(), ZSTD_reset_session_only);
        mPacked.clear();
        mPackedDone = 0;
        mTextDone = mText.size();
        mPosition = tUnpacked.mFirst;
    }
    while (mPosition < pPosition) {
        QByteArrayView tPassed;
        if (Failure tFailure = read(pPosition - mPosition, &tPassed)) {
            return tFailure;
        }
    }
    return {};
}

Failure FrameStream::read(qint64 pMost, QByteArrayView* pTo)
{
    if (mTextDone == mText.size()) {
        if (Failure tFailure = fill()) {
            return tFailure;
        }
    }
    const qsizetype tSize = std::min<qint64>(pMost, mText.size() - mTextDone);
    *pTo = QByteArrayView(mText).sliced(mTextDone, tSize);
    mTextDone += tSize;
    mPosition += tSize;
    return {};
}

Failure FrameStream::fill()
{
    mText.resize(sBlockSize);
    ZSTD_outBuffer tOut{mText.data(), static_cast<size_t>(mText.size()), 0};
    while (tOut.pos == 0) {
        if (mPackedDone == mPacked.size()) {
            mPacked.resize(sBlockSize);
            const ssize_t tGot =
                mFileSystem.read(mFile.fd(), mPacked.data(), static_cast<size_t>(mPacked.size()));
            if (tGot < 0) {
                return Failure::fromErrno(errno, u"read %1"_s.arg(mPath));
            }
            mPacked.resize(tGot);
            mPackedDone = 0;
            if (tGot == 0) {
                return damaged();
            }
        }
        ZSTD_inBuffer tIn{mPacked.constData(), static_cast<size_t>(mPacked.size()),
                          static_cast<size_t>(mPackedDone)};
        const size_t tResult = ZSTD_decompressStream(mDecoder.get(), &tOut, &tIn);
        if (ZSTD_isError(tResult) != 0) {
            return damaged();
        }
        mPackedDone = static_cast<qsizetype>(tIn.pos);
    }
    mText.resize(static_cast<qsizetype>(tOut.pos));
    mTextDone = 0;
    return {};
}

} // namespace tarn::trees

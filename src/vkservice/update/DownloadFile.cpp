#include "update/DownloadFile.h"

#include "os/AbortFlag.h"
#include "os/FileTools.h"
#include "trees/FrameTable.h"

#include <QtCore/QRegularExpression>

#include <algorithm>
#include <cerrno>
#include <utility>

using namespace Qt::StringLiterals;

namespace tarn::vkservice::update {

namespace {

constexpr qsizetype sBufferSize = 1024 * 1024;

} // namespace

Wanted Wanted::archive(const tuf::TargetFile& pTarget)
{
    return {nameOf(pTarget),    pTarget.mPath,
            pTarget.mFetchPath, {},
            pTarget.mLength,    {{pTarget.mLength, pTarget.mHashes}}};
}

Wanted Wanted::sideFile(const packages::SideFile& pFile, const QString& pName)
{
    return {pFile.mHash.toHex(), pName, pName, {}, pFile.mLength, {{pFile.mLength, {pFile.mHash}}}};
}

Wanted Wanted::frames(const tuf::TargetFile& pTarget, const trees::FrameTable& pFrames, qsizetype pFirst,
                      qsizetype pCount)
{
    const qint64 tBegin = pFrames.packed(pFirst).mFirst;
    const qint64 tEnd = pFrames.packed(pFirst + pCount - 1).end();
    Wanted tWanted{nameOf(pTarget) + '.' + QByteArray::number(pFirst) + '-' + QByteArray::number(pCount),
                   pTarget.mPath,
                   pTarget.mFetchPath,
                   FilePart{tBegin, pTarget.mLength},
                   tEnd - tBegin,
                   {}};
    for (qsizetype tFrame = pFirst; tFrame < pFirst + pCount; ++tFrame) {
        tWanted.mPieces.push_back({pFrames.at(tFrame).mPacked, {pFrames.at(tFrame).mHash}});
    }
    return tWanted;
}

QByteArray Wanted::wholeOf(const QByteArray& pName)
{
    static const QRegularExpression sName(u"\\A([0-9a-f]{64}|[0-9a-f]{128})(\\.[0-9]+-[0-9]+)?\\z"_s);
    return sName.match(QString::fromLatin1(pName)).captured(1).toLatin1();
}

Failure Wanted::notTheSigned() const
{
    return {Failure::Kind::Untrusted, u"The file %1 is not the one that was signed"_s.arg(mTitle)};
}

// Hashes one piece after the other.
class DownloadFile::Proof
{
public:
    explicit Proof(const std::deque<Wanted::Piece>& pPieces) : mPieces(pPieces) { begin(); }

    // Not more than all pieces have.
    void add(QByteArrayView pData)
    {
        while (!pData.isEmpty() && mNext < mPieces.size()) {
            const qsizetype tCount = static_cast<qsizetype>(std::min<qint64>(mLeft, pData.size()));
            mHasher->add(pData.first(tCount));
            pData = pData.sliced(tCount);
            mLeft -= tCount;
            if (mLeft == 0 && mNext + 1 == mPieces.size()) {
                return;
            }
            if (mLeft == 0) {
                end();
            }
        }
    }

    bool holds()
    {
        end();
        return mIsRight && mNext == mPieces.size();
    }

private:
    void begin()
    {
        mHasher = std::make_unique<tuf::Hasher>(mPieces[mNext].mHashes);
        mLeft = mPieces[mNext].mLength;
    }
    void end()
    {
        mIsRight = mIsRight && mLeft == 0 && tuf::hashesAgree(mPieces[mNext].mHashes, mHasher->result());
        if (++mNext < mPieces.size()) {
            begin();
        }
    }

    const std::deque<Wanted::Piece>& mPieces;
    size_t mNext = 0;
    std::unique_ptr<tuf::Hasher> mHasher;
    qint64 mLeft = 0; // of the piece
    bool mIsRight = true;
};

DownloadFile::DownloadFile(os::FileSystem& pFileSystem, const os::PrivateFolder& pFolder, Wanted pWanted)
    : mFileSystem(pFileSystem), mFolder(pFolder), mWanted(std::move(pWanted))
{
}

DownloadFile::~DownloadFile() = default;

Failure DownloadFile::ioFailure(int pErrno) const
{
    return Failure::fromErrno(pErrno, u"write %1"_s.arg(mFolder.pathOf(mWanted.mName)));
}

Failure DownloadFile::open(const os::AbortFlag& pAbort, const std::function<void(qint64)>& pProgress)
{
    if (const Failure tFailure = mFolder.openFile(mWanted.mName, mWanted.mLength, &mFile)) {
        return tFailure;
    }
    mProof = std::make_unique<Proof>(mWanted.mPieces);
    mReceived = 0;
    mBuffer.clear();
    return hashFound(pAbort, pProgress);
}

Failure DownloadFile::hashFound(const os::AbortFlag& pAbort, const std::function<void(qint64)>& pProgress)
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
            return Failure::fromErrno(errno, u"read %1"_s.arg(mFolder.pathOf(mWanted.mName)));
        }
        mProof->add(QByteArrayView(tBlock.constData(), tGot));
        mReceived += tGot;
        pProgress(tGot);
    }
}

Failure DownloadFile::restart()
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

Failure DownloadFile::write(QByteArrayView pData)
{
    if (mReceived + pData.size() > mWanted.mLength) {
        return {Failure::Kind::Untrusted,
                u"The server sent more than the %1 bytes that were signed for %2"_s.arg(mWanted.mLength)
                    .arg(mWanted.mTitle)};
    }
    mReceived += pData.size();
    if (mProgress) {
        mProgress(pData.size());
    }
    // Large blocks are written without a copy.
    if (mBuffer.isEmpty() && pData.size() >= sBufferSize) {
        mProof->add(pData);
        const int tResult =
            os::writeAll(mFileSystem, mFile.fd(), pData.data(), static_cast<size_t>(pData.size()));
        return tResult == 0 ? Failure() : ioFailure(errno);
    }
    mBuffer.append(pData.data(), pData.size());
    return mBuffer.size() >= sBufferSize ? flush() : Failure();
}

Failure DownloadFile::flush()
{
    mProof->add(mBuffer);
    const int tResult =
        os::writeAll(mFileSystem, mFile.fd(), mBuffer.constData(), static_cast<size_t>(mBuffer.size()));
    const int tErrno = errno;
    mBuffer.resize(0);
    return tResult == 0 ? Failure() : ioFailure(tErrno);
}

Failure DownloadFile::close()
{
    if (!mFile.isOpen()) {
        return {};
    }
    const Failure tFailure = flush();
    return mFile.close() != 0 && !tFailure ? ioFailure(errno) : tFailure;
}

Failure DownloadFile::verify()
{
    if (mReceived == mWanted.mLength && mProof->holds()) {
        return {};
    }
    if (const Failure tFailure = discard()) {
        return tFailure;
    }
    return mWanted.notTheSigned();
}

Failure DownloadFile::discard()
{
    return mFolder.remove(mWanted.mName);
}

} // namespace tarn::vkservice::update

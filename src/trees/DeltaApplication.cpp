#include "trees/DeltaApplication.h"

#include "os/FileTools.h"
#include "trees/Patch.h"

#include <QtCore/QFile>

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

using namespace Qt::StringLiterals;

namespace tarn::trees {

namespace {

// Adds the bytes of an open file; false, with errno, if it is shorter or cannot be read.
bool readBytes(os::FileSystem& pFileSystem, int pFd, const ByteRange& pBytes, QByteArray* pTo)
{
    if (::lseek(pFd, pBytes.mFirst, SEEK_SET) < 0) {
        return false;
    }
    qsizetype tAt = pTo->size();
    pTo->resize(tAt + pBytes.mLength);
    while (tAt < pTo->size()) {
        const ssize_t tGot = pFileSystem.read(pFd, pTo->data() + tAt, static_cast<size_t>(pTo->size() - tAt));
        if (tGot == 0) {
            errno = EIO;
        }
        if (tGot == 0 || (tGot < 0 && errno != EINTR)) {
            return false;
        }
        tAt += std::max<ssize_t>(tGot, 0);
    }
    return true;
}

Failure readPacked(os::FileSystem& pFileSystem, int pFd, const Segment& pSegment, QByteArray* pTo)
{
    pTo->clear();
    return readBytes(pFileSystem, pFd, pSegment.mPacked, pTo)
               ? Failure()
               : Failure::fromErrno(errno, u"read the delta"_s);
}

} // namespace

Failure makeIndexText(os::FileSystem& pFileSystem, const QString& pDelta, qint64 pLength,
                      const packages::IndexName& pOld, const QString& pOldText, const QString& pNewText)
{
    DeltaReader tReader(pFileSystem);
    if (Failure tFailure = tReader.open(pDelta, pLength)) {
        return tFailure;
    }
    if (!(tReader.header().mOld == pOld)) {
        return Failure::content(u"The delta starts from another version"_s);
    }
    const os::Descriptor tDelta = os::openRegular(pFileSystem, QFile::encodeName(pDelta));
    const os::Descriptor tOld = os::openRegular(pFileSystem, QFile::encodeName(pOldText));
    os::Descriptor tNew(pFileSystem, pFileSystem.open(QFile::encodeName(pNewText),
                                                      O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW, 0600));
    if (!tDelta.isOpen() || !tOld.isOpen() || !tNew.isOpen()) {
        return Failure::fromErrno(errno, u"make %1"_s.arg(pNewText));
    }
    Segment tSegment;
    QByteArray tPacked;
    QByteArray tMade;
    for (qint64 tDone = 0; tDone < tReader.header().mNew.mLength; tDone += tMade.size()) {
        Failure tFailure;
        if (!tReader.next(&tSegment, &tFailure)) {
            return tFailure ? tFailure : Failure::content(u"The delta makes no index"_s);
        }
        QByteArray tBase;
        for (const Piece& tPiece : tSegment.mFrom) {
            if (!readBytes(pFileSystem, tOld.fd(), tPiece.mBytes, &tBase)) {
                return Failure::fromErrno(errno, u"read %1"_s.arg(pOldText));
            }
        }
        tFailure = readPacked(pFileSystem, tDelta.fd(), tSegment, &tPacked);
        if (!tFailure) {
            tFailure = applySegment(tSegment, tBase, tPacked, &tMade);
        }
        if (tFailure) {
            return tFailure;
        }
        if (os::writeAll(pFileSystem, tNew.fd(), tMade.constData(), static_cast<size_t>(tMade.size())) != 0) {
            return Failure::fromErrno(errno, u"write %1"_s.arg(pNewText));
        }
    }
    return tNew.close() != 0 ? Failure::fromErrno(errno, u"write %1"_s.arg(pNewText)) : Failure();
}

Failure DeltaApplication::run(const QString& pDelta, qint64 pLength)
{
    DeltaReader tReader(mBuilder.mFileSystem);
    if (Failure tFailure = tReader.open(pDelta, pLength)) {
        return tFailure;
    }
    if (!mOld.mIndex || !(tReader.header().mOld == *mOld.mIndex)) {
        return Failure::content(u"The delta starts from another version"_s);
    }
    mDelta = os::openRegular(mBuilder.mFileSystem, QFile::encodeName(pDelta));
    if (!mDelta.isOpen()) {
        return Failure::fromErrno(errno, u"read %1"_s.arg(pDelta));
    }
    Segment tSegment;
    Failure tFailure;
    qint64 tIndexBytes = 0;
    while (tIndexBytes < tReader.header().mNew.mLength && tReader.next(&tSegment, &tFailure)) {
        tIndexBytes += totalLength(tSegment.mMakes);
    }
    tReader.setEntries(mOld.mTree.sizes(), mBuilder.mTree.sizes());
    while (!tFailure && tReader.next(&tSegment, &tFailure)) {
        tFailure = mBuilder.aborted();
        if (!tFailure && isWanted(tSegment)) {
            tFailure = apply(tSegment);
        }
    }
    Failure tOther = discardOpen();
    return tOther ? tOther : tFailure;
}

Failure DeltaApplication::discardOpen()
{
    Failure tFailure = mOpen ? mOpen->discard() : Failure();
    mOpen.reset();
    return tFailure;
}

bool DeltaApplication::isWanted(const Segment& pSegment) const
{
    return std::any_of(pSegment.mMakes.begin(), pSegment.mMakes.end(), [this](const Piece& pPiece) {
        return !mBuilder.mIsThere[static_cast<size_t>(pPiece.mEntry - 1)];
    });
}

bool DeltaApplication::readBase(const Segment& pSegment, QByteArray* pTo)
{
    for (const Piece& tPiece : pSegment.mFrom) {
        const Tree::Node& tNode = mOld.mTree.at(static_cast<size_t>(tPiece.mEntry - 1));
        const OldFile tFile = mFiles.open(mOld.mFolder, mOld.mTree.path(tNode));
        if (!tFile.mFile.isOpen() || !readBytes(mBuilder.mFileSystem, tFile.mFile.fd(), tPiece.mBytes, pTo)) {
            return false;
        }
    }
    return true;
}

Failure DeltaApplication::apply(const Segment& pSegment)
{
    QByteArray tBase;
    if (!readBase(pSegment, &tBase)) {
        return abandon(pSegment);
    }
    QByteArray tPacked;
    QByteArray tMade;
    if (Failure tFailure = readPacked(mBuilder.mFileSystem, mDelta.fd(), pSegment, &tPacked)) {
        return tFailure;
    }
    if (applySegment(pSegment, tBase, tPacked, &tMade)) {
        return abandon(pSegment);
    }
    return put(pSegment, tMade);
}

// The pieces that follow of a file that was begun find it closed, and are passed over.
Failure DeltaApplication::abandon(const Segment& pSegment)
{
    return mOpen && pSegment.mMakes.front().mEntry == mOpenEntry ? discardOpen() : Failure();
}

Failure DeltaApplication::put(const Segment& pSegment, const QByteArray& pMade)
{
    qint64 tAt = 0;
    for (const Piece& tPiece : pSegment.mMakes) {
        if (Failure tFailure = putPiece(tPiece, QByteArrayView(pMade).sliced(tAt, tPiece.mBytes.mLength))) {
            return tFailure;
        }
        tAt += tPiece.mBytes.mLength;
    }
    return {};
}

Failure DeltaApplication::putPiece(const Piece& pPiece, QByteArrayView pBytes)
{
    const auto tEntry = static_cast<size_t>(pPiece.mEntry - 1);
    if (mBuilder.mIsThere[tEntry]) {
        return {};
    }
    if (pPiece.mBytes.mFirst == 0) {
        mOpen.emplace(mBuilder.mFileSystem, mBuilder.label(tEntry));
        mOpenEntry = pPiece.mEntry;
        if (Failure tFailure = mBuilder.createFile(tEntry, &*mOpen)) {
            return tFailure;
        }
    }
    if (!mOpen || mOpenEntry != pPiece.mEntry) {
        return {};
    }
    if (Failure tFailure = mOpen->write(pBytes)) {
        return tFailure;
    }
    mBuilder.mProgress(pBytes.size());
    if (pPiece.mBytes.end() < mBuilder.mTree.at(tEntry).mSize) {
        return {};
    }
    Failure tFailure = mBuilder.completeFile(tEntry, mOpen->finish(mBuilder.mTree.at(tEntry)));
    mOpen.reset();
    return tFailure;
}

Failure TreeBuilder::applyDelta(const QString& pDelta, qint64 pLength, const InstalledFiles::Package& pOld)
{
    Failure tFailure = DeltaApplication(*this, pOld).run(pDelta, pLength);
    if (tFailure && tFailure.mKind != Failure::Kind::Content) {
        return tFailure;
    }
    Failure tOfTwins = makeTwins();
    return tOfTwins ? tOfTwins : tFailure;
}

} // namespace tarn::trees

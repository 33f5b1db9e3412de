#include "trees/ZstdLines.h"

#include "os/FileTools.h"
#include "trees/FrameTable.h"

#include <QtCore/QFile>

#include <fcntl.h>
#include <zstd.h>

#include <cerrno>

using namespace Qt::StringLiterals;

namespace tarn::trees {

namespace {

constexpr qsizetype sBlockSize = 128 * 1024;
constexpr qsizetype sMaxLine = 64 * 1024;
constexpr qint64 sMaxText = qint64(4) * 1024 * 1024 * 1024;

} // namespace

ZstdLines::ZstdLines(os::FileSystem& pFileSystem)
    : mFileSystem(pFileSystem), mDecoder(ZSTD_createDCtx(), ZSTD_freeDCtx)
{
    ZSTD_DCtx_setParameter(mDecoder.get(), ZSTD_d_windowLogMax, sMaxWindowLog);
}

ZstdLines::~ZstdLines() = default;

Failure ZstdLines::open(const QString& pPath, Extent pExtent)
{
    mPath = pPath;
    mExtent = pExtent;
    mFile = os::openRegular(mFileSystem, QFile::encodeName(pPath));
    return mFile.isOpen() ? Failure() : Failure::fromErrno(errno, u"open %1"_s.arg(pPath));
}

Failure ZstdLines::next(QByteArray* pLine)
{
    for (;;) {
        const qsizetype tEnd = mText.indexOf('\n', mTextDone);
        if (tEnd >= 0 ? tEnd - mTextDone > sMaxLine : mText.size() - mTextDone > sMaxLine) {
            return Failure::content(u"%1 has a line that is too long"_s.arg(mPath));
        }
        if (tEnd >= 0) {
            *pLine = mText.mid(mTextDone, tEnd - mTextDone);
            mTextDone = tEnd + 1;
            return {};
        }
        if (mAtEnd) {
            *pLine = QByteArray();
            return mTextDone == mText.size() ? Failure() : Failure::content(u"%1 is cut off"_s.arg(mPath));
        }
        if (Failure tFailure = fill()) {
            return tFailure;
        }
    }
}

packages::IndexName ZstdLines::name()
{
    return {mHasher.result().front(), mTotal};
}

// Unpacks a block more of the text.
Failure ZstdLines::fill()
{
    mText.remove(0, mTextDone);
    mTextDone = 0;
    if (mPackedDone == mPacked.size()) {
        if (Failure tFailure = readPacked()) {
            return tFailure;
        }
        if (mPacked.isEmpty()) {
            mAtEnd = true;
            return mOpenFrame == 0 ? Failure() : Failure::content(u"%1 is cut off"_s.arg(mPath));
        }
    }
    const qsizetype tBefore = mText.size();
    mText.resize(tBefore + sBlockSize);
    ZSTD_outBuffer tOut{mText.data() + tBefore, static_cast<size_t>(sBlockSize), 0};
    ZSTD_inBuffer tIn{mPacked.constData(), static_cast<size_t>(mPacked.size()),
                      static_cast<size_t>(mPackedDone)};
    mOpenFrame = ZSTD_decompressStream(mDecoder.get(), &tOut, &tIn);
    if (ZSTD_isError(mOpenFrame) != 0) {
        return Failure::content(
            u"%1 cannot be unpacked: %2"_s.arg(mPath, QLatin1String(ZSTD_getErrorName(mOpenFrame))));
    }
    mPackedTotal += static_cast<qint64>(tIn.pos) - mPackedDone;
    mPackedDone = static_cast<qsizetype>(tIn.pos);
    mAtEnd = mExtent == Extent::FirstFrame && mOpenFrame == 0;
    mText.resize(tBefore + static_cast<qsizetype>(tOut.pos));
    mHasher.add(QByteArrayView(mText).sliced(tBefore));
    mTotal += static_cast<qint64>(tOut.pos);
    return mTotal <= sMaxText ? Failure() : Failure::content(u"%1 is too long"_s.arg(mPath));
}

Failure ZstdLines::readPacked()
{
    mPacked.resize(sBlockSize);
    mPackedDone = 0;
    ssize_t tGot = 0;
    do {
        tGot = mFileSystem.read(mFile.fd(), mPacked.data(), static_cast<size_t>(sBlockSize));
    } while (tGot < 0 && errno == EINTR);
    mPacked.resize(qMax<ssize_t>(tGot, 0));
    return tGot < 0 ? Failure::fromErrno(errno, u"read %1"_s.arg(mPath)) : Failure();
}

} // namespace tarn::trees

#include "update/FileSource.h"

#include "os/AbortFlag.h"
#include "os/Descriptor.h"
#include "update/Sink.h"

#include <QtCore/QFile>
#include <QtCore/QFileInfo>
#include <QtCore/QUrl>

#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <limits>
#include <memory>

using namespace Qt::StringLiterals;

namespace tarn::vkservice::update {

namespace {

constexpr qint64 sBlockSize = 1024 * 1024;

} // namespace

FileSource::FileSource(os::FileSystem& pFileSystem, const QString& pFolder)
    : mFileSystem(pFileSystem), mFolder(pFolder)
{
}

void FileSource::run(const QList<Transfer*>& pTransfers, const os::AbortFlag& pAbort)
{
    for (Transfer* tTransfer : pTransfers) {
        const QByteArray tBelow = QByteArray::fromPercentEncoding(tTransfer->mPath.toUtf8());
        const QString tPath = mFolder + u'/' + QString::fromUtf8(tBelow);
        tTransfer->mFailure = copy(tPath, *tTransfer, pAbort);
    }
}

Failure FileSource::openFailed(int pErrno, const QString& pPath) const
{
    const QString tText = u"Can't read %1: %2"_s.arg(pPath, qt_error_string(pErrno));
    // A missing file only says something about the repository if the repository exists.
    const bool tNotFound = (pErrno == ENOENT || pErrno == ENOTDIR) && QFileInfo(mFolder).isDir();
    return {tNotFound ? Failure::Kind::NotFound : Failure::Kind::Unreachable, tText};
}

Failure FileSource::copy(const QString& pPath, const Transfer& pTransfer, const os::AbortFlag& pAbort)
{
    Sink& tSink = *pTransfer.mSink;
    // Non-blocking: a pipe in place of the file must not block the run.
    os::Descriptor tFile(mFileSystem, mFileSystem.open(QFile::encodeName(pPath), O_RDONLY | O_NONBLOCK));
    struct stat tStat;
    if (!tFile.isOpen() || ::fstat(tFile.fd(), &tStat) != 0) {
        return openFailed(errno, pPath);
    }
    if (!S_ISREG(tStat.st_mode)) {
        return {Failure::Kind::NotFound, u"%1 is not a regular file"_s.arg(pPath)};
    }
    if (pTransfer.mPart && tStat.st_size != pTransfer.mPart->mFileLength) {
        return {Failure::Kind::Unreachable, u"%1 has another length than expected"_s.arg(pPath)};
    }
    const qint64 tFirst = pTransfer.mPart ? pTransfer.mPart->mFirst : 0;
    // A whole file is read to its end, wherever that is: its sink notices one that is too long.
    constexpr qint64 sToTheEnd = std::numeric_limits<qint64>::max();
    qint64 tLeft = pTransfer.mPart ? tSink.maxLength() - tSink.received() : sToTheEnd;
    if (::lseek(tFile.fd(), tFirst + tSink.received(), SEEK_SET) < 0) {
        return openFailed(errno, pPath);
    }
    const auto tBuffer = std::make_unique<char[]>(sBlockSize);
    for (;;) {
        if (pAbort.isSet()) {
            return Failure::canceled();
        }
        const size_t tMost = static_cast<size_t>(std::min<qint64>(tLeft, sBlockSize));
        const ssize_t tGot = tMost == 0 ? 0 : mFileSystem.read(tFile.fd(), tBuffer.get(), tMost);
        if (tGot == 0) {
            return {}; // what is missing is found when the file is verified
        }
        if (tGot < 0 && errno == EINTR) {
            continue;
        }
        if (tGot < 0) {
            return openFailed(errno, pPath);
        }
        if (const Failure tFailure = tSink.write(QByteArrayView(tBuffer.get(), tGot))) {
            return tFailure;
        }
        tLeft -= tGot;
    }
}

} // namespace tarn::vkservice::update

#include "update/FileSource.h"

#include "os/AbortFlag.h"
#include "os/Descriptor.h"
#include "update/Sink.h"

#include <QtCore/QFile>
#include <QtCore/QFileInfo>
#include <QtCore/QUrl>

#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>
#include <memory>

using namespace Qt::StringLiterals;

namespace tarn::vkservice::update {

namespace {

constexpr size_t sBlockSize = 1024 * 1024;

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
        tTransfer->mFailure = copy(tPath, *tTransfer->mSink, pAbort);
    }
}

Failure FileSource::openFailed(int pErrno, const QString& pPath) const
{
    const QString tText = u"Can't read %1: %2"_s.arg(pPath, qt_error_string(pErrno));
    // A missing file only says something about the repository if the repository exists.
    const bool tNotFound = (pErrno == ENOENT || pErrno == ENOTDIR) && QFileInfo(mFolder).isDir();
    return {tNotFound ? Failure::Kind::NotFound : Failure::Kind::Unreachable, tText};
}

Failure FileSource::copy(const QString& pPath, Sink& pSink, const os::AbortFlag& pAbort)
{
    // Non-blocking: a pipe in place of the file must not block the run.
    os::Descriptor tFile(mFileSystem, mFileSystem.open(QFile::encodeName(pPath), O_RDONLY | O_NONBLOCK));
    struct stat tStat;
    if (!tFile.isOpen() || ::fstat(tFile.fd(), &tStat) != 0) {
        return openFailed(errno, pPath);
    }
    if (!S_ISREG(tStat.st_mode)) {
        return {Failure::Kind::NotFound, u"%1 is not a regular file"_s.arg(pPath)};
    }
    if (::lseek(tFile.fd(), pSink.received(), SEEK_SET) < 0) {
        return openFailed(errno, pPath);
    }
    const auto tBuffer = std::make_unique<char[]>(sBlockSize);
    for (;;) {
        if (pAbort.isSet()) {
            return Failure::canceled();
        }
        const ssize_t tGot = mFileSystem.read(tFile.fd(), tBuffer.get(), sBlockSize);
        if (tGot == 0) {
            return {};
        }
        if (tGot < 0 && errno == EINTR) {
            continue;
        }
        if (tGot < 0) {
            return openFailed(errno, pPath);
        }
        if (const Failure tFailure = pSink.write(QByteArrayView(tBuffer.get(), tGot))) {
            return tFailure;
        }
    }
}

} // namespace tarn::vkservice::update

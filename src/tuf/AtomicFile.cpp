#include "tuf/AtomicFile.h"

#include "os/FileSystem.h"

#include <QtCore/QFile>
#include <QtCore/QFileInfo>

#include <fcntl.h>

#include <array>
#include <cerrno>
#include <system_error>

using namespace Qt::StringLiterals;

namespace tarn::tuf {

using os::FileSystem;

namespace {

Failure localError(const QString& pText, const QString& pPath)
{
    const std::string tReason = std::generic_category().message(errno);
    return Failure{Failure::Kind::Damaged, pText.arg(pPath, QString::fromStdString(tReason))};
}

bool writeAll(FileSystem& pFileSystem, int pFd, QByteArrayView pContent)
{
    while (!pContent.isEmpty()) {
        const ssize_t tWritten =
            pFileSystem.write(pFd, pContent.data(), static_cast<size_t>(pContent.size()));
        if (tWritten > 0) {
            pContent = pContent.sliced(tWritten);
        } else if (tWritten == 0 || errno != EINTR) {
            return false;
        }
    }
    return true;
}

bool writeAndSync(FileSystem& pFileSystem, const QByteArray& pPath, const QByteArray& pContent, mode_t pMode)
{
    const int tFd = pFileSystem.open(pPath, O_WRONLY | O_CREAT | O_TRUNC | O_NOFOLLOW, pMode);
    if (tFd < 0) {
        return false;
    }
    const bool tWritten = writeAll(pFileSystem, tFd, pContent) && pFileSystem.fsync(tFd) == 0;
    const int tErrno = errno;
    const bool tClosed = pFileSystem.close(tFd) == 0;
    if (!tWritten) {
        errno = tErrno;
    }
    return tWritten && tClosed;
}

bool syncFolder(FileSystem& pFileSystem, const QByteArray& pPath)
{
    const int tFd = pFileSystem.open(pPath, O_RDONLY | O_DIRECTORY);
    if (tFd < 0) {
        return false;
    }
    const bool tSynced = pFileSystem.fsync(tFd) == 0;
    const int tErrno = errno;
    pFileSystem.close(tFd);
    errno = tErrno;
    return tSynced;
}

bool readAll(FileSystem& pFileSystem, int pFd, qint64 pMaxLength, QByteArray* pTo)
{
    std::array<char, 16 * 1024> tBuffer;
    ssize_t tRead = 1;
    while (tRead != 0 && pTo->size() <= pMaxLength) {
        tRead = pFileSystem.read(pFd, tBuffer.data(), tBuffer.size());
        if (tRead < 0 && errno != EINTR) {
            return false;
        }
        pTo->append(tBuffer.data(), tRead > 0 ? tRead : 0);
    }
    return true;
}

} // namespace

Failure writeFileAtomically(FileSystem& pFileSystem, const QString& pPath, const QByteArray& pContent,
                            mode_t pMode)
{
    const QByteArray tPath = QFile::encodeName(pPath);
    const QByteArray tNew = tPath + ".new";
    const QByteArray tFolder = QFile::encodeName(QFileInfo(pPath).path());
    if (writeAndSync(pFileSystem, tNew, pContent, pMode) && pFileSystem.rename(tNew, tPath) == 0 &&
        syncFolder(pFileSystem, tFolder)) {
        return Failure();
    }
    const Failure tFailure = localError(u"The file %1 can't be written: %2"_s, pPath);
    pFileSystem.unlink(tNew);
    return tFailure;
}

Failure readWholeFile(FileSystem& pFileSystem, const QString& pPath, qint64 pMaxLength, QByteArray* pTo)
{
    pTo->clear();
    const int tFd = pFileSystem.open(QFile::encodeName(pPath), O_RDONLY);
    const bool tRead = tFd >= 0 && readAll(pFileSystem, tFd, pMaxLength, pTo);
    Failure tFailure;
    if (!tRead) {
        tFailure = localError(u"The file %1 can't be read: %2"_s, pPath);
        tFailure.mKind = errno == ENOENT ? Failure::Kind::NotFound : Failure::Kind::Damaged;
    } else if (pTo->size() > pMaxLength) {
        tFailure = Failure{Failure::Kind::Untrusted,
                           u"The file %1 has more than %2 bytes"_s.arg(pPath).arg(pMaxLength)};
    }
    if (tFd >= 0) {
        pFileSystem.close(tFd);
    }
    return tFailure;
}

} // namespace tarn::tuf

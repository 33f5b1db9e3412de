#include "publication/FileMatch.h"

#include "tuf/Hashes.h"

#include <QtCore/QFile>

#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>

using namespace Qt::StringLiterals;

namespace tarn::vkpublish {

Failure fileMatches(const QString& pPath, qint64 pLength, const tuf::HashList& pHashes)
{
    // Not blocking: whoever may write to the folder could put a pipe there.
    const int tFd = ::open(QFile::encodeName(pPath).constData(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    QFile tFile;
    if (tFd < 0 || !tFile.open(tFd, QIODevice::ReadOnly, QFileDevice::AutoCloseHandle)) {
        return Failure::content(u"%1 can't be read: %2"_s.arg(pPath, qt_error_string(errno)));
    }
    struct stat tStat = {};
    if (::fstat(tFd, &tStat) != 0 || !S_ISREG(tStat.st_mode)) {
        return Failure::content(u"%1 is no file"_s.arg(pPath));
    }
    if (tFile.size() != pLength) {
        return Failure::content(u"%1 has %2 bytes instead of %3"_s.arg(pPath).arg(tFile.size()).arg(pLength));
    }
    tuf::Hasher tHasher(pHashes);
    for (QByteArray tPiece = tFile.read(1 << 20); !tPiece.isEmpty(); tPiece = tFile.read(1 << 20)) {
        tHasher.add(tPiece);
    }
    if (!tuf::hashesAgree(pHashes, tHasher.result())) {
        return Failure::content(u"%1 does not have the hash that was signed for it"_s.arg(pPath));
    }
    return {};
}

} // namespace tarn::vkpublish

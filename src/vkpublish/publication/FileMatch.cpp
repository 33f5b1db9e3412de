#include "publication/FileMatch.h"

#include "tuf/Hashes.h"

#include <QtCore/QFile>

#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>

using namespace Qt::StringLiterals;

namespace tarn::vkpublish {

namespace {

constexpr qint64 sPiece = 256 * 1024;

} // namespace

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
    QByteArray tPiece(std::min(pLength, sPiece), Qt::Uninitialized);
    for (qint64 tSize = 1; tSize > 0;) {
        tSize = tFile.read(tPiece.data(), tPiece.size());
        tHasher.add(QByteArrayView(tPiece).first(std::max<qint64>(tSize, 0)));
    }
    if (!tuf::hashesAgree(pHashes, tHasher.result())) {
        return Failure::content(u"%1 does not have the hash that was signed for it"_s.arg(pPath));
    }
    return {};
}

} // namespace tarn::vkpublish

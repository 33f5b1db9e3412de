#include "publication/FileMatch.h"

#include "tuf/Hashes.h"

#include <QtCore/QFile>

using namespace Qt::StringLiterals;

namespace tarn::vkpublish {

Failure fileMatches(const QString& pPath, qint64 pLength, const tuf::HashList& pHashes)
{
    QFile tFile(pPath);
    if (!tFile.open(QIODevice::ReadOnly)) {
        return Failure::content(u"%1 can't be read: %2"_s.arg(pPath, tFile.errorString()));
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

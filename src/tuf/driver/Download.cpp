#include "Download.h"

#include "tuf/Hashes.h"
#include "tuf/Names.h"

#include <QtCore/QFile>
#include <QtCore/QSaveFile>

using namespace Qt::StringLiterals;

namespace tarn::tuf {

namespace {

constexpr qint64 sPiece = 1 << 20;
// File names have 255 bytes, and QSaveFile needs some for its temporary name.
constexpr qsizetype sMaxName = 240;

// No encoded path has a colon, so no two paths share a file.
QString fileName(const QString& pPath)
{
    const QString tName = encodeName(pPath);
    return tName.size() <= sMaxName ? tName : u"sha256:"_s + QString::fromLatin1(sha256(pPath.toUtf8()));
}

bool isThere(const QString& pPath, const TargetFile& pTarget)
{
    QFile tFile(pPath);
    if (!tFile.open(QIODevice::ReadOnly) || tFile.size() != pTarget.mLength) {
        return false;
    }
    Hasher tHasher(pTarget.mHashes);
    for (QByteArray tBytes = tFile.read(sPiece); !tBytes.isEmpty(); tBytes = tFile.read(sPiece)) {
        tHasher.add(tBytes);
    }
    return hashesAgree(pTarget.mHashes, tHasher.result());
}

} // namespace

QString joinUrl(const QString& pBaseUrl, const QString& pPath)
{
    return pBaseUrl.endsWith(u'/') ? pBaseUrl + pPath : pBaseUrl + u'/' + pPath;
}

Failure downloadTarget(HttpClient& pClient, const QString& pBaseUrl, const TargetFile& pTarget,
                       const QString& pFolder)
{
    const QString tPath = pFolder + u'/' + fileName(pTarget.mPath);
    if (isThere(tPath, pTarget)) {
        return Failure();
    }
    QSaveFile tFile(tPath);
    if (!tFile.open(QIODevice::WriteOnly)) {
        return Failure{Failure::Kind::Damaged, u"%1 can't be written: %2"_s.arg(tPath, tFile.errorString())};
    }
    Hasher tHasher(pTarget.mHashes);
    qint64 tLength = 0;
    const Failure tFailure =
        pClient.get(joinUrl(pBaseUrl, pTarget.mFetchPath), pTarget.mLength, [&](QByteArrayView pPiece) {
            tHasher.add(pPiece);
            tLength += pPiece.size();
            return tFile.write(pPiece.data(), pPiece.size()) == pPiece.size();
        });
    if (tFailure) {
        return tFailure;
    }
    if (tLength != pTarget.mLength || !hashesAgree(pTarget.mHashes, tHasher.result())) {
        return Failure{Failure::Kind::Untrusted, u"%1 is not the file that was signed"_s.arg(pTarget.mPath)};
    }
    return tFile.commit() ? Failure()
                          : Failure{Failure::Kind::Damaged,
                                    u"%1 can't be written: %2"_s.arg(tPath, tFile.errorString())};
}

} // namespace tarn::tuf

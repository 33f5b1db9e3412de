#include "record/Draft.h"

#include "os/FileSystem.h"
#include "os/FileTools.h"

#include <QtCore/QFile>
#include <QtCore/QJsonArray>
#include <QtCore/QJsonDocument>
#include <QtCore/QJsonObject>

#include <cerrno>

using namespace Qt::StringLiterals;

namespace tarn::vkpublish {

namespace {

constexpr mode_t sFileMode = 0600;
constexpr int sFormat = 1;
constexpr qint64 sMaxLength = 64 * 1024 * 1024;

const QString sFormatName = u"format"_s;
const QString sPayload = u"payload"_s;
const QString sSignatures = u"signatures"_s;
const QString sKeyId = u"keyid"_s;
const QString sSignature = u"sig"_s;

QString draftPath(const QString& pFolder, const QString& pRole)
{
    return u"%1/%2.draft"_s.arg(pFolder, pRole);
}

QJsonArray toJson(const QList<tuf::Signature>& pSignatures)
{
    QJsonArray tArray;
    for (const tuf::Signature& tSignature : pSignatures) {
        tArray.append(QJsonObject{{sKeyId, tSignature.mKeyId},
                                  {sSignature, QString::fromLatin1(tSignature.mBytes.toHex())}});
    }
    return tArray;
}

} // namespace

QByteArray unsignedFile(const QByteArray& pPayload)
{
    return R"({"signatures":[],"signed":)" + pPayload + '}';
}

QByteArray Draft::file() const
{
    return R"({"signatures":)" + QJsonDocument(toJson(mSignatures)).toJson(QJsonDocument::Compact) +
           R"(,"signed":)" + mPayload + '}';
}

tuf::Signed Draft::toSigned() const
{
    tuf::Signed tSigned;
    const QJsonObject tObject = QJsonDocument::fromJson(mPayload).object();
    tSigned.mVersion = tObject["version"_L1].toInteger();
    tSigned.mExpires = QDateTime::fromString(tObject["expires"_L1].toString(), Qt::ISODate);
    tSigned.mMessage = mPayload;
    tSigned.mSignatures = mSignatures;
    return tSigned;
}

Result<std::optional<Draft>> readDraft(os::FileSystem& pFileSystem, const QString& pFolder,
                                       const QString& pRole)
{
    const QString tPath = draftPath(pFolder, pRole);
    const Result<QByteArray> tText = os::readFile(pFileSystem, tPath, sMaxLength);
    if (!tText) {
        return tText.failure().mKind == Failure::Kind::NotFound ? Result(std::optional<Draft>())
                                                                : tText.failure();
    }
    const QJsonObject tObject = QJsonDocument::fromJson(*tText).object();
    Draft tDraft{.mRole = pRole, .mPayload = tObject[sPayload].toString().toUtf8(), .mSignatures = {}};
    const QJsonArray tSignatures = tObject[sSignatures].toArray();
    for (const QJsonValue tSignature : tSignatures) {
        tDraft.mSignatures.append({tSignature[sKeyId].toString(),
                                   QByteArray::fromHex(tSignature[sSignature].toString().toLatin1())});
    }
    if (tObject[sFormatName].toInt() != sFormat ||
        QJsonDocument::fromJson(tDraft.mPayload)["_type"_L1].toString() != pRole) {
        return Failure::content(u"%1 is damaged"_s.arg(tPath));
    }
    return std::optional(tDraft);
}

Failure writeDraft(os::FileSystem& pFileSystem, const QString& pFolder, const Draft& pDraft)
{
    const QJsonObject tObject{{sFormatName, sFormat},
                              {sPayload, QString::fromUtf8(pDraft.mPayload)},
                              {sSignatures, toJson(pDraft.mSignatures)}};
    return os::replaceFile(pFileSystem, draftPath(pFolder, pDraft.mRole), QJsonDocument(tObject).toJson(),
                           sFileMode);
}

Failure removeDraft(os::FileSystem& pFileSystem, const QString& pFolder, const QString& pRole)
{
    const QString tPath = draftPath(pFolder, pRole);
    return pFileSystem.unlink(QFile::encodeName(tPath)) == 0 || errno == ENOENT
               ? Failure()
               : Failure::fromErrno(errno, u"remove %1"_s.arg(tPath));
}

} // namespace tarn::vkpublish

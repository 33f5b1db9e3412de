#include "keys/SignatureFile.h"

#include "internal/JsonReader.h"

#include <QtCore/QJsonArray>
#include <QtCore/QJsonDocument>

using namespace Qt::StringLiterals;

namespace tarn::vkpublish {

QByteArray SignatureFile::toJson() const
{
    QJsonArray tSignatures;
    for (const tuf::Signature& tSignature : mSignatures) {
        tSignatures.append(QJsonObject{{u"keyid"_s, tSignature.mKeyId},
                                       {u"sig"_s, QString::fromLatin1(tSignature.mBytes.toHex())}});
    }
    return QJsonDocument(QJsonObject{{u"role"_s, mRole},
                                     {u"sha256"_s, QString::fromLatin1(mSha256)},
                                     {u"signatures"_s, tSignatures}})
        .toJson();
}

Result<SignatureFile> SignatureFile::fromJson(const QByteArray& pText)
{
    const QJsonDocument tDocument = QJsonDocument::fromJson(pText);
    QString tFault;
    SignatureFile tFile;
    vkcore::JsonReader tReader(tDocument.isObject() ? tDocument.object() : QJsonValue(), &tFault);
    tFile.mRole = tReader.text("role");
    tFile.mSha256 = tReader.text("sha256").toLatin1();
    tReader.each("signatures", [&](vkcore::JsonReader& pSignature) {
        tFile.mSignatures.append(
            {pSignature.text("keyid"), QByteArray::fromHex(pSignature.text("sig").toLatin1())});
    });
    if (!tFault.isEmpty()) {
        return Failure::content(u"This is no signature file: "_s + tFault);
    }
    if (tFile.mSignatures.isEmpty()) {
        return Failure::content(u"The signature file has no signature"_s);
    }
    return tFile;
}

} // namespace tarn::vkpublish

#include "keys/Signer.h"

#include "tuf/CanonicalJson.h"
#include "tuf/PublicKey.h"

#include <utility>

using namespace Qt::StringLiterals;

namespace tarn::vkpublish {

Signer::Signer(const tuf::SigningKey& pKey)
    : Signer(pKey.publicJson(),
             [pKey](const QByteArray& pMessage) -> Result<QByteArray> { return pKey.sign(pMessage); })
{
}

Signer::Signer(const QJsonObject& pPublicJson, Sign pSign)
    : mPublicJson(pPublicJson), mId(tuf::keyId(pPublicJson)), mSign(std::move(pSign))
{
}

Result<QByteArray> Signer::sign(const QByteArray& pMessage) const
{
    Result<QByteArray> tSignature = mSign(pMessage);
    QByteArray tIdentity;
    if (tSignature && !tuf::publicKeyOf(mPublicJson).verify(pMessage, *tSignature, &tIdentity)) {
        return Failure::content(
            u"What was made with the key %1 is no signature of it: it signs with another key, or in another "
            "format"_s.arg(mId.left(16)));
    }
    return tSignature;
}

Result<QList<tuf::Signature>> signBytes(const QByteArray& pMessage, const QList<Signer>& pSigners)
{
    QList<tuf::Signature> tSignatures;
    for (const Signer& tSigner : pSigners) {
        const Result<QByteArray> tSignature = tSigner.sign(pMessage);
        if (!tSignature) {
            return tSignature.failure();
        }
        tSignatures.append({tSigner.id(), *tSignature});
    }
    return tSignatures;
}

Result<QByteArray> signMetadata(const QJsonObject& pSigned, const QList<Signer>& pSigners)
{
    QByteArray tMessage;
    return signCanonical(tuf::canonicalJson(pSigned, &tMessage) ? tMessage : QByteArray(), pSigners);
}

Result<QByteArray> signCanonical(const QByteArray& pSigned, const QList<Signer>& pSigners)
{
    if (pSigned.isEmpty()) {
        return Failure::content(u"The metadata has no canonical form, and can't be signed"_s);
    }
    const Result<QList<tuf::Signature>> tSignatures = signBytes(pSigned, pSigners);
    return tSignatures ? tuf::metadataFile(pSigned, *tSignatures) : Result<QByteArray>(tSignatures.failure());
}

} // namespace tarn::vkpublish

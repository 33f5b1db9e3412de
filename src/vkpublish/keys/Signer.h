#pragma once

#include "internal/Failure.h"
#include "tuf/SigningKey.h"

#include <QtCore/QByteArray>
#include <QtCore/QJsonObject>
#include <QtCore/QList>
#include <QtCore/QString>

#include <functional>

namespace tarn::vkpublish {

// What signs for one key: the private key itself, or something that reaches it. Whatever it is, a signature
// leaves sign() only after the public key has verified it.
class Signer
{
public:
    using Sign = std::function<Result<QByteArray>(const QByteArray& pMessage)>;

    explicit Signer(const tuf::SigningKey& pKey);
    // pPublicJson: "keytype", "scheme" and "keyval", as in metadata.
    Signer(const QJsonObject& pPublicJson, Sign pSign);

    const QString& id() const { return mId; }
    const QJsonObject& publicJson() const { return mPublicJson; }
    Result<QByteArray> sign(const QByteArray& pMessage) const;

private:
    QJsonObject mPublicJson;
    QString mId;
    Sign mSign;
};

// A signature of each signer.
Result<QList<tuf::Signature>> signBytes(const QByteArray& pMessage, const QList<Signer>& pSigners);

// The metadata file with pSigned and a signature of each signer, in canonical form.
Result<QByteArray> signMetadata(const QJsonObject& pSigned, const QList<Signer>& pSigners);
// The same for what is in canonical form already; empty if it has none.
Result<QByteArray> signCanonical(const QByteArray& pSigned, const QList<Signer>& pSigners);

} // namespace tarn::vkpublish

// The publisher's half of the keys; no part of the client.
#pragma once

#include "tuf/Metadata.h"

#include <QtCore/QByteArray>
#include <QtCore/QJsonObject>
#include <QtCore/QList>
#include <QtCore/QString>
#include <QtCore/QStringList>

#include <memory>
#include <optional>
#include <string_view>

namespace tarn::tuf {

// A private key. Copies share it.
class SigningKey
{
public:
    // The kinds of key for generate().
    static QStringList types();
    // "ed25519", "ecdsa" (P-256), "ecdsa-p384" or "rsa" (3072 bits). No value for another type or if the
    // random numbers fail.
    static std::optional<SigningKey> generate(const QString& pType);
    // From the text of toPem(); no value if it is invalid or of a kind that can't sign metadata.
    static std::optional<SigningKey> fromPem(const QByteArray& pPem);

    // Whether the text is an encrypted private key (PKCS#8), and not damaged as far as can be seen.
    static bool isEncrypted(const QByteArray& pPem);
    // From the text of toEncryptedPem(); no value as for fromPem(), and for a wrong passphrase.
    static std::optional<SigningKey> fromEncryptedPem(const QByteArray& pPem, std::string_view pPassphrase);

    QByteArray toPem() const;
    // As OpenSSL's own programs read it. Empty on failure.
    QByteArray toEncryptedPem(std::string_view pPassphrase) const;
    QJsonObject publicJson() const;                    // "keytype", "scheme", "keyval"
    QString id() const;                                // keyId() of it
    QByteArray sign(const QByteArray& pMessage) const; // empty on failure

private:
    struct Data;
    explicit SigningKey(std::shared_ptr<const Data> pData);
    std::shared_ptr<const Data> d;
};

// The id of a key with this "keytype", "scheme" and "keyval": their hash.
QString keyId(const QJsonObject& pPublicJson);
PublicKey publicKeyOf(const QJsonObject& pPublicJson);
QByteArray publicPemOf(const QJsonObject& pPublicJson);
// "keytype", "scheme" and "keyval" of a public key; no value if the text has none that can sign metadata.
std::optional<QJsonObject> publicJsonFromPem(const QByteArray& pPem);

// The metadata file with pSigned, which is in canonical form, and these signatures.
QByteArray metadataFile(const QByteArray& pSigned, const QList<Signature>& pSignatures);
// The metadata file with pSigned and a signature of each key, in canonical form; empty if pSigned has no such
// form.
QByteArray signMetadata(const QJsonObject& pSigned, const QList<SigningKey>& pKeys);

} // namespace tarn::tuf

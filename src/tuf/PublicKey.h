#pragma once

#include <QtCore/QByteArray>
#include <QtCore/QString>

namespace tarn::tuf {

// A key from metadata. An invalid key, or one of an unknown kind, verifies nothing.
class PublicKey
{
public:
    PublicKey() = default;
    // pValue: hex for ed25519, PEM for the others.
    PublicKey(const QString& pType, const QString& pScheme, const QString& pValue);

    // True if pSignature is this key's over pMessage. *pIdentity is then the identity of the key: equal for
    // all encodings of one key.
    bool verify(const QByteArray& pMessage, const QByteArray& pSignature, QByteArray* pIdentity) const;

    bool operator==(const PublicKey&) const = default;

private:
    QString mType;
    QString mScheme;
    QString mValue;
};

} // namespace tarn::tuf

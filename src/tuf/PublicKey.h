#pragma once

#include <QtCore/QByteArray>
#include <QtCore/QString>

namespace tarn::tuf {

// A key as metadata states it. One that is broken, or of a kind that isn't known here, verifies nothing.
class PublicKey
{
public:
    PublicKey() = default;
    // pValue: hex for ed25519, PEM for the others.
    PublicKey(const QString& pType, const QString& pScheme, const QString& pValue);

    // True if pSignature is this key's over pMessage. *pIdentity then names the key itself: two statements of
    // one key, however they differ in text, have the same.
    bool verify(const QByteArray& pMessage, const QByteArray& pSignature, QByteArray* pIdentity) const;

    bool operator==(const PublicKey&) const = default;

private:
    QString mType;
    QString mScheme;
    QString mValue;
};

} // namespace tarn::tuf

#pragma once

#include "keys/Signer.h"

#include "internal/Failure.h"

#include <QtCore/QByteArray>
#include <QtCore/QList>
#include <QtCore/QString>

#include <vector>

namespace tarn::vkpublish {

class Passphrases;

// A new key, and what the key folder keeps of it: the private key, or the command that signs with it.
struct KeyFile
{
    Signer mSigner;
    QString mSuffix; // of the file's name
    QByteArray mContent;

    KeyFile(Signer pSigner, const QString& pSuffix, QByteArray pContent);
    KeyFile(const KeyFile&) = default;
    KeyFile& operator=(const KeyFile&) = default;
    ~KeyFile(); // wipes it
};

inline const QString sPemSuffix = QStringLiteral(".pem");
inline const QString sSignerSuffix = QStringLiteral(".signer");

// What a new key is to be.
struct KeyOrder
{
    QString mType; // of SigningKey::types()
    bool mEncrypt = true;
    // If there is one, it signs, and mPublicFile has the public key in PEM.
    QString mCommand;
    QString mPublicFile;
};

// "keytype", "scheme", "keyval" of the public key in a file in PEM.
Result<QJsonObject> readPublicKey(const QString& pPath);

// Makes a key; it is encrypted with the first passphrase of this run.
Result<KeyFile> makeKey(const KeyOrder& pOrder, Passphrases* pPassphrases);

// A key that a command signs with, after it has signed something for a trial. pPublicJson: "keytype",
// "scheme", "keyval".
Result<KeyFile> keyOfCommand(const QString& pCommand, const QJsonObject& pPublicJson);

// The content of a file in the key folder.
struct KeyText
{
    QString mPath; // for messages
    QByteArray mContent;

    KeyText(const QString& pPath, QByteArray pContent);
    KeyText(KeyText&&) = default;
    KeyText& operator=(KeyText&&) = default;
    ~KeyText(); // wipes it
};

// Of files with sPemSuffix, and with sSignerSuffix.
Result<QList<Signer>> readPems(const std::vector<KeyText>& pTexts, Passphrases* pPassphrases);
Result<Signer> readCommand(const QString& pPath, const QByteArray& pContent);

} // namespace tarn::vkpublish

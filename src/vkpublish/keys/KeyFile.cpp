#include "keys/KeyFile.h"

#include "keys/CommandWords.h"
#include "keys/Passphrases.h"
#include "keys/SigningProgram.h"

#include "os/FileSystem.h"
#include "os/FileTools.h"

#include <QtCore/QJsonDocument>

#include <utility>

using namespace Qt::StringLiterals;

namespace tarn::vkpublish {

namespace {

constexpr qint64 sMaxPublicFile = 64 * 1024;
constexpr int sFormat = 1;

const QString sFormatName = u"format"_s;
const QString sCommand = u"command"_s;
const QString sPublic = u"public"_s;

// No metadata, so a signature of it is of no use to anybody.
constexpr const char* sTrial = "vkpublish asks whether this key can sign.\n";

Signer signerOf(const QByteArrayList& pWords, const QJsonObject& pPublicJson)
{
    return Signer(pPublicJson, [pWords](const QByteArray& pMessage) {
        return runSigningProgram(pWords, pMessage, ProgramLimits());
    });
}

} // namespace

KeyFile::KeyFile(Signer pSigner, const QString& pSuffix, QByteArray pContent)
    : mSigner(std::move(pSigner)), mSuffix(pSuffix), mContent(std::move(pContent))
{
}

KeyFile::~KeyFile()
{
    wipe(&mContent);
}

KeyText::KeyText(const QString& pPath, QByteArray pContent) : mPath(pPath), mContent(std::move(pContent)) {}

KeyText::~KeyText()
{
    wipe(&mContent);
}

Result<QJsonObject> readPublicKey(const QString& pPath)
{
    const Result<QByteArray> tPem = os::readFile(os::realFileSystem(), pPath, sMaxPublicFile);
    if (!tPem) {
        return tPem.failure();
    }
    const std::optional<QJsonObject> tKey = tuf::publicJsonFromPem(*tPem);
    return tKey ? Result(*tKey)
                : Failure::content(u"%1 does not contain a usable public key in PEM"_s.arg(pPath));
}

Result<KeyFile> makeKey(const KeyOrder& pOrder, Passphrases* pPassphrases)
{
    if (!pOrder.mCommand.isEmpty()) {
        const Result<QJsonObject> tPublicJson = readPublicKey(pOrder.mPublicFile);
        return tPublicJson ? keyOfCommand(pOrder.mCommand, *tPublicJson) : tPublicJson.failure();
    }
    Result<const Secret*> tPassphrase = nullptr;
    if (pOrder.mEncrypt) {
        tPassphrase = pPassphrases->forNew();
        if (!tPassphrase) {
            return tPassphrase.failure();
        }
    }
    const std::optional<tuf::SigningKey> tKey = tuf::SigningKey::generate(pOrder.mType);
    const QByteArray tPem = !tKey                     ? QByteArray()
                            : *tPassphrase == nullptr ? tKey->toPem()
                                                      : tKey->toEncryptedPem((*tPassphrase)->text());
    if (tPem.isEmpty()) {
        return Failure::content(u"A key of type %1 can't be created"_s.arg(pOrder.mType));
    }
    return KeyFile(Signer(*tKey), sPemSuffix, tPem);
}

Result<KeyFile> keyOfCommand(const QString& pCommand, const QJsonObject& pPublicJson)
{
    const QByteArrayList tWords = commandWords(pCommand);
    if (tWords.isEmpty()) {
        return Failure::content(u"--sign-with has no command, or a quote in it does not end"_s);
    }
    if (tWords.first().contains('/') && !tWords.first().startsWith('/')) {
        return Failure::content(
            u"--sign-with takes a program by its name or with its whole path, not %1"_s.arg(
                QString::fromUtf8(tWords.first())));
    }
    const Signer tSigner = signerOf(tWords, pPublicJson);
    const Result<QByteArray> tSignature = tSigner.sign(sTrial);
    if (!tSignature) {
        return tSignature.failure();
    }
    const QJsonObject tContent{{sFormatName, sFormat}, {sCommand, pCommand}, {sPublic, pPublicJson}};
    return KeyFile(tSigner, sSignerSuffix, QJsonDocument(tContent).toJson());
}

Result<QList<Signer>> readPems(const std::vector<KeyText>& pTexts, Passphrases* pPassphrases)
{
    std::vector<std::optional<tuf::SigningKey>> tKeys(pTexts.size());
    std::vector<Locked> tLocked;
    for (size_t i = 0; i < pTexts.size(); ++i) {
        if (!tuf::SigningKey::isEncrypted(pTexts[i].mContent)) {
            tKeys[i] = tuf::SigningKey::fromPem(pTexts[i].mContent);
            continue;
        }
        tLocked.push_back(
            {pTexts[i].mPath, [tTo = &tKeys[i], tText = &pTexts[i]](std::string_view pPassphrase) {
                 *tTo = tuf::SigningKey::fromEncryptedPem(tText->mContent, pPassphrase);
                 return tTo->has_value();
             }});
    }
    if (Failure tFailure = pPassphrases->unlock(std::move(tLocked))) {
        return tFailure;
    }
    QList<Signer> tSigners;
    for (size_t i = 0; i < pTexts.size(); ++i) {
        if (!tKeys[i]) {
            return Failure::content(u"%1 does not contain a usable key"_s.arg(pTexts[i].mPath));
        }
        tSigners.append(Signer(*tKeys[i]));
    }
    return tSigners;
}

Result<Signer> readCommand(const QString& pPath, const QByteArray& pContent)
{
    const QJsonObject tContent = QJsonDocument::fromJson(pContent).object();
    const QByteArrayList tWords = commandWords(tContent[sCommand].toString());
    if (tContent[sFormatName].toInt() != sFormat || tWords.isEmpty() || !tContent[sPublic].isObject()) {
        return Failure::content(u"%1 does not name a command that signs"_s.arg(pPath));
    }
    return signerOf(tWords, tContent[sPublic].toObject());
}

} // namespace tarn::vkpublish

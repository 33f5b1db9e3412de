#include "tuf/SigningKey.h"

#include "tuf/CanonicalJson.h"
#include "tuf/Hashes.h"
#include "tuf/Scheme.h"

#include <openssl/err.h>
#include <openssl/pem.h>
#include <openssl/pkcs12.h>
#include <openssl/rsa.h>
#include <openssl/x509.h>

#include <QtCore/QJsonArray>

#include <array>

using namespace Qt::StringLiterals;

namespace tarn::tuf {

struct SigningKey::Data
{
    EvpKey mKey;
    const Scheme* mScheme = nullptr;
};

namespace {

constexpr size_t sRsaBits = 3072;

// scrypt. A guess of the passphrase costs 128 * N * r = 16 MiB of memory and p = 5 passes through it, about
// 0.3 s of a processor; so does opening the key. More memory is refused by OpenSSL's programs, so p makes up
// for it. Whoever opens several keys opens them at the same time.
constexpr uint64_t sScryptN = 1 << 14;
constexpr uint64_t sScryptR = 8;
constexpr uint64_t sScryptP = 5;

using EncryptedKey = std::unique_ptr<X509_SIG, Freeing<X509_SIG_free>>;
using PrivateKeyInfo = std::unique_ptr<PKCS8_PRIV_KEY_INFO, Freeing<PKCS8_PRIV_KEY_INFO_free>>;
using Algorithm = std::unique_ptr<X509_ALGOR, Freeing<X509_ALGOR_free>>;

EncryptedKey readEncrypted(const QByteArray& pPem)
{
    const Bio tBio(BIO_new_mem_buf(pPem.constData(), static_cast<int>(pPem.size())));
    EncryptedKey tKey(PEM_read_bio_PKCS8(tBio.get(), nullptr, nullptr, nullptr));
    ERR_clear_error();
    return tKey;
}

QByteArray takeMemory(const Bio& pBio)
{
    char* tData = nullptr;
    const long tLength = BIO_get_mem_data(pBio.get(), &tData);
    return QByteArray(tData, tLength);
}

// The scheme that a key signs with.
const Scheme* schemeOf(const EVP_PKEY* pKey)
{
    constexpr std::array sPairs{
        std::pair{"ed25519", "ed25519"},
        std::pair{"ecdsa", "ecdsa-sha2-nistp256"},
        std::pair{"ecdsa", "ecdsa-sha2-nistp384"},
        std::pair{"rsa", "rsassa-pss-sha256"},
    };
    for (const auto& [tType, tName] : sPairs) {
        const Scheme* tScheme = findScheme(QLatin1String(tType), QLatin1String(tName));
        if (fitsScheme(pKey, *tScheme)) {
            return tScheme;
        }
    }
    return nullptr;
}

QByteArray pemOf(const EVP_PKEY* pKey)
{
    const Bio tBio(BIO_new(BIO_s_mem()));
    PEM_write_bio_PUBKEY(tBio.get(), pKey);
    return takeMemory(tBio);
}

QString publicValue(const EVP_PKEY* pKey, const Scheme& pScheme)
{
    if (pScheme.mKeyKind == EVP_PKEY_ED25519) {
        std::array<unsigned char, 32> tBytes{};
        size_t tLength = tBytes.size();
        EVP_PKEY_get_raw_public_key(pKey, tBytes.data(), &tLength);
        return QString::fromLatin1(
            QByteArray(reinterpret_cast<const char*>(tBytes.data()), static_cast<qsizetype>(tLength))
                .toHex());
    }
    return QString::fromLatin1(pemOf(pKey));
}

QJsonObject publicJsonOf(const EVP_PKEY* pKey, const Scheme& pScheme)
{
    return QJsonObject{{u"keytype"_s, QLatin1String(pScheme.mType)},
                       {u"scheme"_s, QLatin1String(pScheme.mScheme)},
                       {u"keyval"_s, QJsonObject{{u"public"_s, publicValue(pKey, pScheme)}}}};
}

} // namespace

SigningKey::SigningKey(std::shared_ptr<const Data> pData) : d(std::move(pData)) {}

QStringList SigningKey::types()
{
    return {u"ed25519"_s, u"ecdsa"_s, u"ecdsa-p384"_s, u"rsa"_s};
}

std::optional<SigningKey> SigningKey::generate(const QString& pType)
{
    auto tData = std::make_shared<Data>();
    if (pType == "ed25519"_L1) {
        tData->mKey.reset(EVP_PKEY_Q_keygen(nullptr, nullptr, "ED25519"));
    } else if (pType == "ecdsa"_L1) {
        tData->mKey.reset(EVP_PKEY_Q_keygen(nullptr, nullptr, "EC", "P-256"));
    } else if (pType == "ecdsa-p384"_L1) {
        tData->mKey.reset(EVP_PKEY_Q_keygen(nullptr, nullptr, "EC", "P-384"));
    } else if (pType == "rsa"_L1) {
        tData->mKey.reset(EVP_PKEY_Q_keygen(nullptr, nullptr, "RSA", sRsaBits));
    }
    if (!tData->mKey) {
        return std::nullopt;
    }
    tData->mScheme = schemeOf(tData->mKey.get());
    return SigningKey(tData);
}

std::optional<SigningKey> SigningKey::fromPem(const QByteArray& pPem)
{
    const Bio tBio(BIO_new_mem_buf(pPem.constData(), static_cast<int>(pPem.size())));
    auto tData = std::make_shared<Data>();
    // An empty password instead of a callback that would ask on the terminal.
    char tNoPassword[] = "";
    tData->mKey.reset(PEM_read_bio_PrivateKey(tBio.get(), nullptr, nullptr, tNoPassword));
    ERR_clear_error();
    if (!tData->mKey) {
        return std::nullopt;
    }
    tData->mScheme = schemeOf(tData->mKey.get());
    return tData->mScheme != nullptr ? std::optional(SigningKey(tData)) : std::nullopt;
}

bool SigningKey::isEncrypted(const QByteArray& pPem)
{
    return readEncrypted(pPem) != nullptr;
}

std::optional<SigningKey> SigningKey::fromEncryptedPem(const QByteArray& pPem, std::string_view pPassphrase)
{
    const EncryptedKey tEncrypted = readEncrypted(pPem);
    const PrivateKeyInfo tInfo(!tEncrypted ? nullptr
                                           : PKCS8_decrypt(tEncrypted.get(), pPassphrase.data(),
                                                           static_cast<int>(pPassphrase.size())));
    auto tData = std::make_shared<Data>();
    tData->mKey.reset(tInfo ? EVP_PKCS82PKEY(tInfo.get()) : nullptr);
    ERR_clear_error();
    tData->mScheme = tData->mKey ? schemeOf(tData->mKey.get()) : nullptr;
    return tData->mScheme != nullptr ? std::optional(SigningKey(tData)) : std::nullopt;
}

QByteArray SigningKey::toEncryptedPem(std::string_view pPassphrase) const
{
    const PrivateKeyInfo tInfo(EVP_PKEY2PKCS8(d->mKey.get()));
    Algorithm tAlgorithm(
        PKCS5_pbe2_set_scrypt(EVP_aes_256_cbc(), nullptr, 0, nullptr, sScryptN, sScryptR, sScryptP));
    if (!tInfo || !tAlgorithm) {
        return QByteArray();
    }
    const EncryptedKey tEncrypted(PKCS8_set0_pbe(pPassphrase.data(), static_cast<int>(pPassphrase.size()),
                                                 tInfo.get(), tAlgorithm.get()));
    if (!tEncrypted) {
        return QByteArray();
    }
    (void)tAlgorithm.release(); // belongs to tEncrypted
    const Bio tBio(BIO_new(BIO_s_mem()));
    PEM_write_bio_PKCS8(tBio.get(), tEncrypted.get());
    return takeMemory(tBio);
}

QByteArray SigningKey::toPem() const
{
    const Bio tBio(BIO_new(BIO_s_mem()));
    PEM_write_bio_PKCS8PrivateKey(tBio.get(), d->mKey.get(), nullptr, nullptr, 0, nullptr, nullptr);
    return takeMemory(tBio);
}

QJsonObject SigningKey::publicJson() const
{
    return publicJsonOf(d->mKey.get(), *d->mScheme);
}

QString SigningKey::id() const
{
    return keyId(publicJson());
}

QByteArray SigningKey::sign(const QByteArray& pMessage) const
{
    const EvpDigestContext tContext(EVP_MD_CTX_new());
    EVP_PKEY_CTX* tKeyContext = nullptr; // belongs to tContext
    const auto* tMessage = reinterpret_cast<const unsigned char*>(pMessage.constData());
    const auto tMessageLength = static_cast<size_t>(pMessage.size());
    size_t tLength = 0;
    if (EVP_DigestSignInit_ex(tContext.get(), &tKeyContext, d->mScheme->mDigest, nullptr, nullptr,
                              d->mKey.get(), nullptr) != 1 ||
        !preparePadding(tKeyContext, *d->mScheme, RSA_PSS_SALTLEN_DIGEST) ||
        EVP_DigestSign(tContext.get(), nullptr, &tLength, tMessage, tMessageLength) != 1) {
        return QByteArray();
    }
    QByteArray tSignature(static_cast<qsizetype>(tLength), '\0');
    if (EVP_DigestSign(tContext.get(), reinterpret_cast<unsigned char*>(tSignature.data()), &tLength,
                       tMessage, tMessageLength) != 1) {
        return QByteArray();
    }
    tSignature.truncate(static_cast<qsizetype>(tLength));
    return tSignature;
}

QString keyId(const QJsonObject& pPublicJson)
{
    QByteArray tBytes;
    canonicalJson(pPublicJson, &tBytes);
    return QString::fromLatin1(sha256(tBytes));
}

PublicKey publicKeyOf(const QJsonObject& pPublicJson)
{
    return PublicKey(pPublicJson["keytype"_L1].toString(), pPublicJson["scheme"_L1].toString(),
                     pPublicJson["keyval"_L1]["public"_L1].toString());
}

QByteArray publicPemOf(const QJsonObject& pPublicJson)
{
    const QByteArray tValue = pPublicJson["keyval"_L1]["public"_L1].toString().toLatin1();
    if (pPublicJson["keytype"_L1].toString() != "ed25519"_L1) {
        return tValue;
    }
    const QByteArray tBytes = QByteArray::fromHex(tValue);
    const EvpKey tKey(EVP_PKEY_new_raw_public_key(EVP_PKEY_ED25519, nullptr,
                                                  reinterpret_cast<const unsigned char*>(tBytes.constData()),
                                                  static_cast<size_t>(tBytes.size())));
    return tKey ? pemOf(tKey.get()) : QByteArray();
}

std::optional<QJsonObject> publicJsonFromPem(const QByteArray& pPem)
{
    const Bio tBio(BIO_new_mem_buf(pPem.constData(), static_cast<int>(pPem.size())));
    const EvpKey tKey(PEM_read_bio_PUBKEY(tBio.get(), nullptr, nullptr, nullptr));
    ERR_clear_error();
    const Scheme* tScheme = tKey ? schemeOf(tKey.get()) : nullptr;
    return tScheme != nullptr ? std::optional(publicJsonOf(tKey.get(), *tScheme)) : std::nullopt;
}

QByteArray metadataFile(const QByteArray& pSigned, const QList<Signature>& pSignatures)
{
    QJsonArray tSignatures;
    for (const Signature& tSignature : pSignatures) {
        tSignatures.append(QJsonObject{{u"keyid"_s, tSignature.mKeyId},
                                       {u"sig"_s, QString::fromLatin1(tSignature.mBytes.toHex())}});
    }
    QByteArray tText;
    canonicalJson(tSignatures, &tText);
    return "{\"signatures\":" + tText + ",\"signed\":" + pSigned + '}';
}

QByteArray signMetadata(const QJsonObject& pSigned, const QList<SigningKey>& pKeys)
{
    QByteArray tMessage;
    if (!canonicalJson(pSigned, &tMessage)) {
        return QByteArray();
    }
    QList<Signature> tSignatures;
    for (const SigningKey& tKey : pKeys) {
        tSignatures.append({tKey.id(), tKey.sign(tMessage)});
        if (tSignatures.last().mBytes.isEmpty()) {
            return QByteArray();
        }
    }
    return metadataFile(tMessage, tSignatures);
}

} // namespace tarn::tuf

#include "tuf/PublicKey.h"

#include "tuf/Scheme.h"

#include <openssl/err.h>
#include <openssl/pem.h>
#include <openssl/rsa.h>
#include <openssl/x509.h>

namespace tarn::tuf {

namespace {

constexpr qsizetype sMaxPemLength = 16 * 1024;
constexpr qsizetype sEd25519Length = 32;

EvpKey readEd25519(const QString& pHex)
{
    const QByteArray tHex = pHex.toLatin1();
    const QByteArray tBytes = QByteArray::fromHex(tHex);
    // fromHex skips non-digits.
    if (tBytes.size() != sEd25519Length || tBytes.toHex() != tHex.toLower()) {
        return nullptr;
    }
    return EvpKey(EVP_PKEY_new_raw_public_key(EVP_PKEY_ED25519, nullptr,
                                              reinterpret_cast<const unsigned char*>(tBytes.constData()),
                                              static_cast<size_t>(tBytes.size())));
}

EvpKey readPem(const QString& pPem)
{
    if (pPem.size() > sMaxPemLength) {
        return nullptr;
    }
    const QByteArray tPem = pPem.toUtf8();
    const Bio tBio(BIO_new_mem_buf(tPem.constData(), static_cast<int>(tPem.size())));
    return EvpKey(PEM_read_bio_PUBKEY(tBio.get(), nullptr, nullptr, nullptr));
}

QByteArray subjectPublicKeyInfo(const EVP_PKEY* pKey)
{
    unsigned char* tBytes = nullptr;
    const int tLength = i2d_PUBKEY(pKey, &tBytes);
    if (tLength <= 0) {
        return QByteArray();
    }
    const QByteArray tResult(reinterpret_cast<const char*>(tBytes), tLength);
    OPENSSL_free(tBytes);
    return tResult;
}

bool verifies(EVP_PKEY* pKey, const Scheme& pScheme, const QByteArray& pMessage, const QByteArray& pSignature)
{
    const EvpDigestContext tContext(EVP_MD_CTX_new());
    EVP_PKEY_CTX* tKeyContext = nullptr; // belongs to tContext
    return EVP_DigestVerifyInit_ex(tContext.get(), &tKeyContext, pScheme.mDigest, nullptr, nullptr, pKey,
                                   nullptr) == 1 &&
           preparePadding(tKeyContext, pScheme, RSA_PSS_SALTLEN_AUTO) &&
           EVP_DigestVerify(tContext.get(), reinterpret_cast<const unsigned char*>(pSignature.constData()),
                            static_cast<size_t>(pSignature.size()),
                            reinterpret_cast<const unsigned char*>(pMessage.constData()),
                            static_cast<size_t>(pMessage.size())) == 1;
}

} // namespace

PublicKey::PublicKey(const QString& pType, const QString& pScheme, const QString& pValue)
    : mType(pType), mScheme(pScheme), mValue(pValue)
{
}

bool PublicKey::verify(const QByteArray& pMessage, const QByteArray& pSignature, QByteArray* pIdentity) const
{
    const Scheme* tScheme = findScheme(mType, mScheme);
    if (tScheme == nullptr) {
        return false;
    }
    const EvpKey tKey = tScheme->mKeyKind == EVP_PKEY_ED25519 ? readEd25519(mValue) : readPem(mValue);
    const bool tVerified =
        tKey && fitsScheme(tKey.get(), *tScheme) && verifies(tKey.get(), *tScheme, pMessage, pSignature);
    ERR_clear_error();
    if (tVerified) {
        *pIdentity = subjectPublicKeyInfo(tKey.get());
    }
    return tVerified && !pIdentity->isEmpty();
}

} // namespace tarn::tuf

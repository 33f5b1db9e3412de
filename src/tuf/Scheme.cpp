#include "tuf/Scheme.h"

#include <openssl/core_names.h>
#include <openssl/rsa.h>

#include <array>

namespace tarn::tuf {

namespace {

constexpr int sMinRsaBits = 2048;
constexpr int sMaxRsaBits = 8192; // a greater one only costs time

constexpr std::array sSchemes{
    Scheme{"ed25519", "ed25519", EVP_PKEY_ED25519, nullptr, nullptr, false},
    Scheme{"ecdsa", "ecdsa-sha2-nistp256", EVP_PKEY_EC, "prime256v1", "SHA256", false},
    Scheme{"ecdsa-sha2-nistp256", "ecdsa-sha2-nistp256", EVP_PKEY_EC, "prime256v1", "SHA256", false},
    Scheme{"ecdsa", "ecdsa-sha2-nistp384", EVP_PKEY_EC, "secp384r1", "SHA384", false},
    Scheme{"ecdsa-sha2-nistp384", "ecdsa-sha2-nistp384", EVP_PKEY_EC, "secp384r1", "SHA384", false},
    Scheme{"rsa", "rsassa-pss-sha256", EVP_PKEY_RSA, nullptr, "SHA256", true},
};

bool hasGroup(const EVP_PKEY* pKey, const char* pGroup)
{
    std::array<char, 64> tName{};
    return EVP_PKEY_get_utf8_string_param(pKey, OSSL_PKEY_PARAM_GROUP_NAME, tName.data(), tName.size(),
                                          nullptr) == 1 &&
           QLatin1String(tName.data()) == QLatin1String(pGroup);
}

} // namespace

const Scheme* findScheme(const QString& pType, const QString& pScheme)
{
    for (const Scheme& tScheme : sSchemes) {
        if (pType == QLatin1String(tScheme.mType) && pScheme == QLatin1String(tScheme.mScheme)) {
            return &tScheme;
        }
    }
    return nullptr;
}

bool fitsScheme(const EVP_PKEY* pKey, const Scheme& pScheme)
{
    if (EVP_PKEY_get_base_id(pKey) != pScheme.mKeyKind) {
        return false;
    }
    if (pScheme.mKeyKind == EVP_PKEY_RSA) {
        const int tBits = EVP_PKEY_get_bits(pKey);
        return tBits >= sMinRsaBits && tBits <= sMaxRsaBits;
    }
    return pScheme.mGroup == nullptr || hasGroup(pKey, pScheme.mGroup);
}

bool preparePadding(EVP_PKEY_CTX* pContext, const Scheme& pScheme, int pSaltLength)
{
    return !pScheme.mPss || (EVP_PKEY_CTX_set_rsa_padding(pContext, RSA_PKCS1_PSS_PADDING) > 0 &&
                             EVP_PKEY_CTX_set_rsa_pss_saltlen(pContext, pSaltLength) > 0);
}

} // namespace tarn::tuf

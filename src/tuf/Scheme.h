// The signature schemes, as OpenSSL is asked for them; shared by those who verify and those who sign.
#pragma once

#include "tuf/Evp.h"

#include <QtCore/QString>

namespace tarn::tuf {

struct Scheme
{
    const char* mType;   // "keytype"
    const char* mScheme; // "scheme"
    int mKeyKind;        // EVP_PKEY_...
    const char* mGroup;  // the curve, for elliptic curves
    const char* mDigest; // null if the scheme has its own
    bool mPss;
};

// Null for a pair that isn't known.
const Scheme* findScheme(const QString& pType, const QString& pScheme);

// Whether the key is one that the scheme may be used with: its kind, curve and size.
bool fitsScheme(const EVP_PKEY* pKey, const Scheme& pScheme);

// Sets the padding. pSaltLength: RSA_PSS_SALTLEN_...
bool preparePadding(EVP_PKEY_CTX* pContext, const Scheme& pScheme, int pSaltLength);

} // namespace tarn::tuf

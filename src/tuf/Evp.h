// Owners of OpenSSL's objects.
#pragma once

#include <openssl/bio.h>
#include <openssl/evp.h>

#include <memory>

namespace tarn::tuf {

template <auto Free>
struct Freeing
{
    template <typename T>
    void operator()(T* pObject) const
    {
        Free(pObject);
    }
};

using EvpKey = std::unique_ptr<EVP_PKEY, Freeing<EVP_PKEY_free>>;
using EvpKeyContext = std::unique_ptr<EVP_PKEY_CTX, Freeing<EVP_PKEY_CTX_free>>;
using EvpDigestContext = std::unique_ptr<EVP_MD_CTX, Freeing<EVP_MD_CTX_free>>;
using Bio = std::unique_ptr<BIO, Freeing<BIO_free_all>>;

} // namespace tarn::tuf

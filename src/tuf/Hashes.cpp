#include "tuf/Hashes.h"

#include <openssl/evp.h>

#include <algorithm>
#include <array>

namespace tarn::tuf {

struct Hasher::Digest
{
    HashAlgorithm mAlgorithm;
    std::unique_ptr<EVP_MD_CTX, decltype(&EVP_MD_CTX_free)> mContext{EVP_MD_CTX_new(), EVP_MD_CTX_free};
};

QByteArray sha256(QByteArrayView pData)
{
    Hasher tHasher(HashAlgorithm::Sha256);
    tHasher.add(pData);
    return namingHash(tHasher.result()).toHex();
}

Hasher::Hasher(HashAlgorithm pAlgorithm)
{
    addAlgorithm(pAlgorithm);
}

Hasher::Hasher(const HashList& pExpected)
{
    for (const Hash& tHash : pExpected) {
        addAlgorithm(tHash.algorithm());
    }
}

Hasher::~Hasher() = default;

void Hasher::addAlgorithm(HashAlgorithm pAlgorithm)
{
    auto tDigest = std::make_unique<Digest>();
    tDigest->mAlgorithm = pAlgorithm;
    EVP_DigestInit_ex(tDigest->mContext.get(),
                      pAlgorithm == HashAlgorithm::Sha256 ? EVP_sha256() : EVP_sha512(), nullptr);
    mDigests.push_back(std::move(tDigest));
}

void Hasher::add(QByteArrayView pData)
{
    for (const auto& tDigest : mDigests) {
        EVP_DigestUpdate(tDigest->mContext.get(), pData.data(), static_cast<size_t>(pData.size()));
    }
}

HashList Hasher::result()
{
    HashList tResult;
    for (const auto& tDigest : mDigests) {
        std::array<unsigned char, EVP_MAX_MD_SIZE> tBytes{};
        unsigned int tLength = 0;
        EVP_DigestFinal_ex(tDigest->mContext.get(), tBytes.data(), &tLength);
        const QByteArrayView tView(tBytes.data(), static_cast<qsizetype>(tLength));
        if (const auto tHash = Hash::fromBytes(tDigest->mAlgorithm, tView)) {
            tResult.append(*tHash);
        }
    }
    return tResult;
}

bool hashesAgree(const HashList& pSigned, const HashList& pComputed)
{
    return !pSigned.isEmpty() && std::all_of(pSigned.begin(), pSigned.end(), [&pComputed](const Hash& pHash) {
        return pComputed.contains(pHash);
    });
}

bool hashesAgree(const HashList& pSigned, QByteArrayView pData)
{
    Hasher tHasher(pSigned);
    tHasher.add(pData);
    return hashesAgree(pSigned, tHasher.result());
}

} // namespace tarn::tuf

#include "tuf/Hashes.h"

#include <openssl/evp.h>

#include <array>

namespace tarn::tuf {

struct Hasher::Digest
{
    QString mName;
    std::unique_ptr<EVP_MD_CTX, decltype(&EVP_MD_CTX_free)> mContext{EVP_MD_CTX_new(), EVP_MD_CTX_free};
};

namespace {

const EVP_MD* algorithm(const QString& pName)
{
    if (pName == QLatin1String("sha256")) {
        return EVP_sha256();
    }
    return pName == QLatin1String("sha512") ? EVP_sha512() : nullptr;
}

} // namespace

QStringList hashAlgorithms()
{
    return {QStringLiteral("sha256"), QStringLiteral("sha512")};
}

QByteArray sha256(QByteArrayView pData)
{
    Hasher tHasher({QStringLiteral("sha256")});
    tHasher.add(pData);
    return tHasher.result().first();
}

Hasher::Hasher(const QStringList& pAlgorithms)
{
    for (const QString& tName : pAlgorithms) {
        if (const EVP_MD* tAlgorithm = algorithm(tName)) {
            auto tDigest = std::make_unique<Digest>();
            tDigest->mName = tName;
            EVP_DigestInit_ex(tDigest->mContext.get(), tAlgorithm, nullptr);
            mDigests.push_back(std::move(tDigest));
        }
    }
}

Hasher::~Hasher() = default;

void Hasher::add(QByteArrayView pData)
{
    for (const auto& tDigest : mDigests) {
        EVP_DigestUpdate(tDigest->mContext.get(), pData.data(), static_cast<size_t>(pData.size()));
    }
}

HashMap Hasher::result()
{
    HashMap tResult;
    for (const auto& tDigest : mDigests) {
        std::array<unsigned char, EVP_MAX_MD_SIZE> tBytes{};
        unsigned int tLength = 0;
        EVP_DigestFinal_ex(tDigest->mContext.get(), tBytes.data(), &tLength);
        tResult.insert(tDigest->mName,
                       QByteArray(reinterpret_cast<const char*>(tBytes.data()), tLength).toHex());
    }
    return tResult;
}

bool hashesAgree(const HashMap& pSigned, const HashMap& pComputed)
{
    bool tAny = false;
    for (const QString& tName : hashAlgorithms()) {
        if (pSigned.contains(tName)) {
            if (pSigned.value(tName) != pComputed.value(tName)) {
                return false;
            }
            tAny = true;
        }
    }
    return tAny;
}

bool hashesAgree(const HashMap& pSigned, QByteArrayView pData)
{
    Hasher tHasher(pSigned.keys());
    tHasher.add(pData);
    return hashesAgree(pSigned, tHasher.result());
}

} // namespace tarn::tuf

#include "tuf/Hash.h"

#include <algorithm>

using namespace Qt::StringLiterals;

namespace tarn::tuf {

namespace {

constexpr HashAlgorithm sAlgorithms[] = {HashAlgorithm::Sha256, HashAlgorithm::Sha512};

bool isLowerHex(QChar pChar)
{
    return (pChar >= u'0' && pChar <= u'9') || (pChar >= u'a' && pChar <= u'f');
}

} // namespace

qsizetype Hash::sizeOf(HashAlgorithm pAlgorithm)
{
    return pAlgorithm == HashAlgorithm::Sha256 ? 32 : 64;
}

std::optional<Hash> Hash::fromHex(HashAlgorithm pAlgorithm, const QString& pHex)
{
    if (!std::all_of(pHex.begin(), pHex.end(), isLowerHex)) {
        return std::nullopt;
    }
    return pHex.size() % 2 == 0 ? fromBytes(pAlgorithm, QByteArray::fromHex(pHex.toLatin1())) : std::nullopt;
}

std::optional<Hash> Hash::fromHex(const QString& pHex)
{
    for (const HashAlgorithm tAlgorithm : sAlgorithms) {
        if (const auto tHash = fromHex(tAlgorithm, pHex)) {
            return tHash;
        }
    }
    return std::nullopt;
}

std::optional<Hash> Hash::fromBytes(HashAlgorithm pAlgorithm, QByteArrayView pBytes)
{
    if (pBytes.size() != sizeOf(pAlgorithm)) {
        return std::nullopt;
    }
    Hash tHash;
    tHash.mAlgorithm = pAlgorithm;
    tHash.mBytes = pBytes.toByteArray();
    return tHash;
}

Hash namingHash(const HashList& pHashes)
{
    return pHashes.value(0);
}

std::optional<HashAlgorithm> hashAlgorithm(const QString& pName)
{
    for (const HashAlgorithm tAlgorithm : sAlgorithms) {
        if (pName == hashAlgorithmName(tAlgorithm)) {
            return tAlgorithm;
        }
    }
    return std::nullopt;
}

QString hashAlgorithmName(HashAlgorithm pAlgorithm)
{
    return pAlgorithm == HashAlgorithm::Sha256 ? u"sha256"_s : u"sha512"_s;
}

} // namespace tarn::tuf

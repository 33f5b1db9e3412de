#pragma once

#include <QtCore/QByteArray>
#include <QtCore/QByteArrayView>
#include <QtCore/QList>
#include <QtCore/QString>

#include <optional>

namespace tarn::tuf {

enum class HashAlgorithm
{
    Sha256,
    Sha512,
};

// The hash of a file, always with the length of its algorithm. It is created from foreign text only after a
// check; toHex() has only 0-9 and a-f, so a file name made from it stays in its folder.
class Hash
{
public:
    // SHA-256 with all bytes zero, which no known file has.
    Hash() : mBytes(sizeOf(HashAlgorithm::Sha256), '\0') {}

    static qsizetype sizeOf(HashAlgorithm pAlgorithm); // in bytes
    // None for text that is not lower-case hex of the algorithm's length.
    static std::optional<Hash> fromHex(HashAlgorithm pAlgorithm, const QString& pHex);
    // The same with the algorithm of this length.
    static std::optional<Hash> fromHex(const QString& pHex);
    // None if the length is not that of the algorithm.
    static std::optional<Hash> fromBytes(HashAlgorithm pAlgorithm, QByteArrayView pBytes);

    HashAlgorithm algorithm() const { return mAlgorithm; }
    QByteArray toHex() const { return mBytes.toHex(); }
    const QByteArray& bytes() const { return mBytes; }

    bool operator==(const Hash&) const = default;

private:
    HashAlgorithm mAlgorithm = HashAlgorithm::Sha256;
    QByteArray mBytes;
};

// Of one file, each of another algorithm, in the order of these.
using HashList = QList<Hash>;

// The one that names the file: that of the first algorithm. Hash() for an empty list.
Hash namingHash(const HashList& pHashes);

// As metadata calls it; none for a name that is not known.
std::optional<HashAlgorithm> hashAlgorithm(const QString& pName);
QString hashAlgorithmName(HashAlgorithm pAlgorithm);

} // namespace tarn::tuf

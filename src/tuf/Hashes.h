#pragma once

#include "tuf/Hash.h"

#include <memory>
#include <vector>

namespace tarn::tuf {

QByteArray sha256(QByteArrayView pData); // lower-case hex

// Computes hashes of data that comes in pieces.
class Hasher
{
public:
    explicit Hasher(HashAlgorithm pAlgorithm);
    // With the algorithms of these hashes, to compare the result with them.
    explicit Hasher(const HashList& pExpected);
    ~Hasher();
    Hasher(const Hasher&) = delete;
    Hasher& operator=(const Hasher&) = delete;

    void add(QByteArrayView pData);
    HashList result(); // ends the computation

private:
    struct Digest;
    void addAlgorithm(HashAlgorithm pAlgorithm);
    std::vector<std::unique_ptr<Digest>> mDigests;
};

// True if every signed hash is among the computed ones, and there is one at all.
bool hashesAgree(const HashList& pSigned, const HashList& pComputed);
bool hashesAgree(const HashList& pSigned, QByteArrayView pData);

} // namespace tarn::tuf

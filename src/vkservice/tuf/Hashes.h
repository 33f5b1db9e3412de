#pragma once

#include <QtCore/QByteArray>
#include <QtCore/QByteArrayView>
#include <QtCore/QMap>
#include <QtCore/QString>
#include <QtCore/QStringList>

#include <memory>
#include <vector>

namespace tarn::tuf {

using HashMap = QMap<QString, QByteArray>; // "sha256" or "sha512" -> lower-case hex

// The names of the algorithms that are known here.
QStringList hashAlgorithms();

QByteArray sha256(QByteArrayView pData); // lower-case hex

// Computes hashes of data that comes in pieces.
class Hasher
{
public:
    // Names that aren't known are left out.
    explicit Hasher(const QStringList& pAlgorithms = hashAlgorithms());
    ~Hasher();
    Hasher(const Hasher&) = delete;
    Hasher& operator=(const Hasher&) = delete;

    void add(QByteArrayView pData);
    HashMap result(); // ends the computation

private:
    struct Digest;
    std::vector<std::unique_ptr<Digest>> mDigests;
};

// True if every signed hash of a known algorithm is among the computed ones, and equal, and there is one at
// all.
bool hashesAgree(const HashMap& pSigned, const HashMap& pComputed);
bool hashesAgree(const HashMap& pSigned, QByteArrayView pData);

} // namespace tarn::tuf

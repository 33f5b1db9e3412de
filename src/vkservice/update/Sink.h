#pragma once

#include "internal/Failure.h"

#include <QtCore/QByteArray>
#include <QtCore/QByteArrayView>

namespace tarn::vkservice::update {

// Receives the bytes of a transfer.
class Sink
{
public:
    virtual ~Sink() = default;

    // How many bytes of the file were already received; the transfer may continue from there.
    virtual qint64 received() const = 0;
    // The maximum size of the file.
    virtual qint64 maxLength() const = 0;
    // False for a file that must arrive in one piece: the data of a failed attempt is discarded.
    virtual bool isResumable() const = 0;
    // Discards what was received: the file starts again from its beginning.
    virtual Failure restart() = 0;
    virtual Failure write(QByteArrayView pData) = 0;
};

// Stores a small file in memory.
class MemorySink : public Sink
{
public:
    explicit MemorySink(qint64 pMaxLength) : mMaxLength(pMaxLength) {}

    qint64 received() const override { return mBytes.size(); }
    qint64 maxLength() const override { return mMaxLength; }
    bool isResumable() const override { return false; }
    Failure restart() override;
    Failure write(QByteArrayView pData) override;

    const QByteArray& bytes() const { return mBytes; }

private:
    qint64 mMaxLength;
    QByteArray mBytes;
};

} // namespace tarn::vkservice::update

#pragma once

#include <QtCore/QByteArray>

#include <optional>

namespace tarn::vkcore::protocol {

// Splits a byte stream into lines. Never buffers more than one line of maximum length and one read. Linear in
// the bytes, however they are split into reads.
class LineBuffer
{
public:
    void append(const QByteArray& pBytes);
    // The next complete line without its line end; none if there is none yet.
    std::optional<QByteArray> takeLine();
    // A line, complete or not, is longer than sMaxLine: the stream is unusable.
    bool tooLong() const { return mTooLong; }
    // Its memory in bytes.
    qsizetype capacity() const { return mBytes.capacity(); }

private:
    QByteArray mBytes;
    qsizetype mStart = 0;   // first unread byte
    qsizetype mScanned = 0; // no line end before this one
    bool mTooLong = false;
};

} // namespace tarn::vkcore::protocol

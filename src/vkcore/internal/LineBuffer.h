#pragma once

#include <QtCore/QByteArray>

#include <optional>

namespace tarn::vkcore::protocol {

// Cuts a byte stream into lines, without ever holding more than one line of the greatest length
// and one read beyond it. Linear in the bytes, however they are cut into reads.
class LineBuffer
{
public:
    void append(const QByteArray& pBytes);
    // The next whole line without its line end; none if there is none yet.
    std::optional<QByteArray> takeLine();
    // The line under way, or one already whole, is longer than sMaxLine: the stream is of no more use.
    bool tooLong() const { return mTooLong; }
    // Memory that it takes.
    qsizetype capacity() const { return mBytes.capacity(); }

private:
    QByteArray mBytes;
    qsizetype mStart = 0;   // first byte not yet taken
    qsizetype mScanned = 0; // no line end before this one
    bool mTooLong = false;
};

} // namespace tarn::vkcore::protocol

#pragma once

#include "internal/LineBuffer.h"

#include <QtCore/QByteArray>
#include <QtCore/QSocketNotifier>

#include <functional>
#include <memory>
#include <optional>

namespace tarn::vkcore {

// A connected Unix socket for lines, used by both ends. It never blocks: the event loop sends what the peer
// cannot receive yet, and reports new data. The owner limits how much may be buffered in either direction.
class LineSocket
{
public:
    enum class Received
    {
        Some,
        All,   // Some, and there was no more at that moment
        None,  // no data for now
        Ended, // the peer has closed its sending side
        Failed // see errno
    };

    LineSocket() = default;
    ~LineSocket() { close(); }
    LineSocket(const LineSocket&) = delete;
    LineSocket& operator=(const LineSocket&) = delete;

    // New data, or the peer has closed the connection; called from the event loop.
    std::function<void()> mOnReadable;
    // The peer has received some of the unsent data, or will never receive the rest.
    std::function<void()> mOnSent;

    // Takes ownership of a connected, non-blocking descriptor.
    void open(int pFd);
    bool isOpen() const { return mFd >= 0; }
    // Drops unsent data. May be called from the two functions above.
    void close();
    // Whether mOnReadable is called.
    void setReading(bool pReading);
    // Whether the peer has already closed an open connection, even if that was not read yet.
    bool hasHungUp() const;

    // Reads once from an open connection; takeLine returns the lines.
    Received receive();
    std::optional<QByteArray> takeLine() { return mInput.takeLine(); }
    // As LineBuffer::tooLong.
    bool tooLong() const { return mInput.tooLong(); }

    // The next flush sends the line.
    void queue(const QByteArray& pLine) { mOutput += pLine; }
    void flush();
    qsizetype unsent() const { return mOutput.size(); }
    // Bytes in memory: of an incomplete line, and of unsent data.
    qsizetype held() const { return mOutput.size() + mInput.capacity(); }

private:
    int mFd = -1;
    std::unique_ptr<QSocketNotifier> mReadable;
    std::unique_ptr<QSocketNotifier> mWritable;
    protocol::LineBuffer mInput;
    QByteArray mOutput;
};

} // namespace tarn::vkcore

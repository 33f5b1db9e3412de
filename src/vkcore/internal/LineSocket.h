#pragma once

#include "internal/LineBuffer.h"

#include <QtCore/QByteArray>
#include <QtCore/QSocketNotifier>

#include <functional>
#include <memory>
#include <optional>

namespace tarn::vkcore {

// A connected Unix socket that carries lines, for both ends. It never blocks: what the peer does not take yet
// is sent from the event loop, which also says when there is something to read. How much of either it may
// hold is its owner's business.
class LineSocket
{
public:
    enum class Received
    {
        Some,
        All,   // Some, and there was no more at that moment
        None,  // nothing for now
        Ended, // the peer sends no more
        Failed // errno says why
    };

    LineSocket() = default;
    ~LineSocket() { close(); }
    LineSocket(const LineSocket&) = delete;
    LineSocket& operator=(const LineSocket&) = delete;

    // Something has come, or the peer has ended; from the event loop.
    std::function<void()> mOnReadable;
    // The peer has taken some of what is unsent, or will never take the rest of it.
    std::function<void()> mOnSent;

    // Takes over a connected, non-blocking descriptor.
    void open(int pFd);
    bool isOpen() const { return mFd >= 0; }
    // Drops what is unsent. May be called from the two functions above.
    void close();
    // Whether mOnReadable is called.
    void setReading(bool pReading);
    // Whether the peer has already closed an open connection, even if that was not read yet.
    bool hasHungUp() const;

    // Reads once from an open connection; takeLine gives what has come.
    Received receive();
    std::optional<QByteArray> takeLine() { return mInput.takeLine(); }
    // As LineBuffer::tooLong.
    bool tooLong() const { return mInput.tooLong(); }

    // The line goes out with the next flush.
    void queue(const QByteArray& pLine) { mOutput += pLine; }
    void flush();
    qsizetype unsent() const { return mOutput.size(); }
    // Bytes in memory: of a line that is not whole, and of what is unsent.
    qsizetype held() const { return mOutput.size() + mInput.capacity(); }

private:
    int mFd = -1;
    std::unique_ptr<QSocketNotifier> mReadable;
    std::unique_ptr<QSocketNotifier> mWritable;
    protocol::LineBuffer mInput;
    QByteArray mOutput;
};

} // namespace tarn::vkcore

#include "internal/LineSocket.h"

#include <cerrno>

#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

namespace tarn::vkcore {

namespace {

constexpr size_t sReadSize = 64 * 1024;

bool wouldBlock()
{
    return errno == EAGAIN || errno == EWOULDBLOCK;
}

} // namespace

void LineSocket::open(int pFd)
{
    close();
    mFd = pFd;
    mReadable = std::make_unique<QSocketNotifier>(mFd, QSocketNotifier::Read);
    mWritable = std::make_unique<QSocketNotifier>(mFd, QSocketNotifier::Write);
    mWritable->setEnabled(false);
    QObject::connect(mReadable.get(), &QSocketNotifier::activated, mReadable.get(),
                     [this] { mOnReadable(); });
    QObject::connect(mWritable.get(), &QSocketNotifier::activated, mWritable.get(), [this] { flush(); });
}

void LineSocket::close()
{
    if (mFd < 0) {
        return;
    }
    // May be called from a notifier's own signal.
    for (std::unique_ptr<QSocketNotifier>* tNotifier : {&mReadable, &mWritable}) {
        (*tNotifier)->setEnabled(false);
        tNotifier->release()->deleteLater();
    }
    ::close(mFd);
    mFd = -1;
    mInput = {};
    mOutput = {};
}

void LineSocket::setReading(bool pReading)
{
    if (mReadable) {
        mReadable->setEnabled(pReading);
    }
}

bool LineSocket::hasHungUp() const
{
    pollfd tPoll{mFd, POLLRDHUP, 0};
    int tCount = 0;
    do {
        tCount = ::poll(&tPoll, 1, 0);
    } while (tCount < 0 && errno == EINTR);
    return tCount > 0;
}

LineSocket::Received LineSocket::receive()
{
    char tBytes[sReadSize];
    ssize_t tCount = 0;
    do {
        tCount = ::recv(mFd, tBytes, sReadSize, 0);
    } while (tCount < 0 && errno == EINTR);
    if (tCount < 0) {
        return wouldBlock() ? Received::None : Received::Failed;
    }
    if (tCount == 0) {
        return Received::Ended;
    }
    mInput.append(QByteArray::fromRawData(tBytes, tCount));
    return static_cast<size_t>(tCount) < sReadSize ? Received::All : Received::Some;
}

void LineSocket::flush()
{
    if (mFd < 0 || mOutput.isEmpty()) {
        return;
    }
    const qsizetype tBefore = mOutput.size();
    ssize_t tSent = 0;
    do {
        tSent = ::send(mFd, mOutput.constData(), static_cast<size_t>(mOutput.size()), MSG_NOSIGNAL);
        if (tSent > 0) {
            mOutput.remove(0, tSent);
        }
    } while (!mOutput.isEmpty() && (tSent >= 0 || errno == EINTR));
    // A permanent error is found by the next read, after the data that the peer sent before it.
    if (mOutput.isEmpty() || !wouldBlock()) {
        mOutput = {};
    }
    mWritable->setEnabled(!mOutput.isEmpty());
    if (mOnSent && mOutput.size() < tBefore) {
        mOnSent();
    }
}

} // namespace tarn::vkcore

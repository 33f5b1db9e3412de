#include "ipc/Connection.h"

#include "internal/Protocol.h"
#include "internal/SocketName.h"

#include <QtCore/QFile>

#include <cerrno>
#include <cstring>

#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

using namespace Qt::StringLiterals;

namespace tarn::vkcore {

namespace {

constexpr qsizetype sMaxUnsent = 2 * protocol::sMaxLine;
constexpr size_t sReadSize = 64 * 1024;
// After so many reads without a pause other events have their turn.
constexpr int sReadsAtOnce = 16;

bool makeAddress(const QString& pName, sockaddr_un* pTo)
{
    const QByteArray tPath = QFile::encodeName(protocol::socketPath(pName));
    pTo->sun_family = AF_UNIX;
    if (static_cast<size_t>(tPath.size()) >= sizeof pTo->sun_path || tPath.contains('\0')) {
        return false;
    }
    std::memcpy(pTo->sun_path, tPath.constData(), static_cast<size_t>(tPath.size()) + 1);
    return true;
}

// Anybody may make a socket of the service's name in a shared folder, but not in the name of root or of this
// user.
bool isTrusted(int pFd, QString* pReason)
{
    ucred tPeer{};
    socklen_t tSize = sizeof tPeer;
    if (::getsockopt(pFd, SOL_SOCKET, SO_PEERCRED, &tPeer, &tSize) != 0) {
        *pReason = qt_error_string(errno);
        return false;
    }
    if (tPeer.uid != 0 && tPeer.uid != ::geteuid()) {
        *pReason = u"the socket belongs to the user with the number %1"_s.arg(tPeer.uid);
        return false;
    }
    return true;
}

Connection::Outcome outcomeOf(int pError)
{
    switch (pError) {
    case ENOENT:
    case ECONNREFUSED:
        return Connection::Outcome::NobodyListens;
    case EAGAIN:
        return Connection::Outcome::Busy;
    default:
        return Connection::Outcome::Failed;
    }
}

} // namespace

Connection::~Connection()
{
    close();
}

Connection::Outcome Connection::open(const QString& pName, QString* pReason)
{
    close();
    sockaddr_un tAddress{};
    if (!makeAddress(pName, &tAddress)) {
        *pReason = u"the name of the socket is too long"_s;
        return Outcome::Failed;
    }
    const int tFd = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    int tResult =
        tFd < 0 ? -1 : ::connect(tFd, reinterpret_cast<const sockaddr*>(&tAddress), sizeof tAddress);
    if (tResult != 0) {
        const int tError = errno;
        *pReason = qt_error_string(tError);
        if (tFd >= 0) {
            ::close(tFd);
        }
        return tFd < 0 ? Outcome::Failed : outcomeOf(tError);
    }
    if (!isTrusted(tFd, pReason)) {
        ::close(tFd);
        return Outcome::Failed;
    }
    mFd = tFd;
    mReadable = std::make_unique<QSocketNotifier>(mFd, QSocketNotifier::Read);
    QObject::connect(mReadable.get(), &QSocketNotifier::activated, mReadable.get(), [this] { read(); });
    return Outcome::Connected;
}

bool Connection::hasHungUp() const
{
    pollfd tPoll{mFd, POLLRDHUP, 0};
    int tCount = 0;
    do {
        tCount = ::poll(&tPoll, 1, 0);
    } while (tCount < 0 && errno == EINTR);
    return tCount > 0;
}

void Connection::close()
{
    if (mFd < 0) {
        return;
    }
    // close() may be called from a notifier's own signal.
    for (std::unique_ptr<QSocketNotifier>* tNotifier : {&mReadable, &mWritable}) {
        if (*tNotifier) {
            (*tNotifier)->setEnabled(false);
            tNotifier->release()->deleteLater();
        }
    }
    ::close(mFd);
    mFd = -1;
    mInput = {};
    mOutput.clear();
}

void Connection::drain()
{
    while (mFd >= 0 && hasHungUp()) {
        read();
    }
}

bool Connection::send(const QByteArray& pLine)
{
    if (mOutput.size() + pLine.size() > sMaxUnsent) {
        return false;
    }
    mOutput += pLine;
    flush();
    return true;
}

void Connection::flush()
{
    while (!mOutput.isEmpty()) {
        const ssize_t tSent =
            ::send(mFd, mOutput.constData(), static_cast<size_t>(mOutput.size()), MSG_NOSIGNAL);
        if (tSent < 0 && errno == EINTR) {
            continue;
        }
        if (tSent < 0) {
            break;
        }
        mOutput.remove(0, tSent);
    }
    // Any lasting error shows when reading, with what the peer has still said before it.
    const bool tWait = !mOutput.isEmpty() && (errno == EAGAIN || errno == EWOULDBLOCK);
    if (tWait && !mWritable) {
        mWritable = std::make_unique<QSocketNotifier>(mFd, QSocketNotifier::Write);
        QObject::connect(mWritable.get(), &QSocketNotifier::activated, mWritable.get(), [this] { flush(); });
    }
    if (mWritable) {
        mWritable->setEnabled(tWait);
    }
}

void Connection::lose(const QString& pReason)
{
    close();
    mOnLost(pReason);
}

void Connection::read()
{
    char tBytes[sReadSize];
    for (int tRead = 0; tRead < sReadsAtOnce; ++tRead) {
        const ssize_t tCount = ::recv(mFd, tBytes, sReadSize, 0);
        if (tCount < 0 && errno == EINTR) {
            continue;
        }
        if (tCount < 0 && (errno == EAGAIN || errno == EWOULDBLOCK)) {
            return;
        }
        if (tCount <= 0) {
            lose(tCount == 0 ? u"the service has ended the connection"_s : qt_error_string(errno));
            return;
        }
        mInput.append(QByteArray::fromRawData(tBytes, tCount));
        while (const std::optional<QByteArray> tLine = mInput.takeLine()) {
            mOnLine(*tLine);
            if (mFd < 0) {
                return;
            }
        }
        if (mInput.tooLong()) {
            lose(u"the service has sent a line of more than %1 bytes"_s.arg(protocol::sMaxLine));
            return;
        }
        if (tCount < static_cast<ssize_t>(sReadSize)) {
            return;
        }
    }
}

} // namespace tarn::vkcore

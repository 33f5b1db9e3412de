#include "ipc/ServiceSocket.h"

#include "internal/Machine.h"
#include "internal/Protocol.h"
#include "internal/SocketName.h"

#include <QtCore/QFile>

#include <cerrno>
#include <cstring>

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

using namespace Qt::StringLiterals;

namespace tarn::vkcore {

namespace {

constexpr qsizetype sMaxUnsent = 2 * protocol::sMaxLine;
// After this many reads in a row, other events are processed.
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

// Any user can create a socket with the service's name in a shared folder, but not as a trusted user.
Failure checkPeer(int pFd)
{
    ucred tPeer{};
    socklen_t tSize = sizeof tPeer;
    if (::getsockopt(pFd, SOL_SOCKET, SO_PEERCRED, &tPeer, &tSize) != 0) {
        return {Failure::Kind::Io, qt_error_string(errno)};
    }
    return machine::isTrusted(tPeer.uid)
               ? Failure()
               : Failure::untrusted(u"the socket belongs to the user with the number %1"_s.arg(tPeer.uid));
}

Failure notConnected(int pError)
{
    const QString tReason = qt_error_string(pError);
    switch (pError) {
    case ENOENT:
    case ECONNREFUSED:
        return {Failure::Kind::NotFound, tReason};
    case EAGAIN:
        return {Failure::Kind::Unreachable, tReason};
    default:
        return {Failure::Kind::Io, tReason};
    }
}

} // namespace

ServiceSocket::ServiceSocket()
{
    mSocket.mOnReadable = [this] { read(); };
}

Failure ServiceSocket::open(const QString& pName)
{
    close();
    sockaddr_un tAddress{};
    if (!makeAddress(pName, &tAddress)) {
        return Failure::content(u"the name of the socket is too long"_s);
    }
    const int tFd = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    if (tFd < 0) {
        return {Failure::Kind::Io, qt_error_string(errno)};
    }
    Failure tFailure = ::connect(tFd, reinterpret_cast<const sockaddr*>(&tAddress), sizeof tAddress) == 0
                           ? checkPeer(tFd)
                           : notConnected(errno);
    if (tFailure) {
        ::close(tFd);
        return tFailure;
    }
    mSocket.open(tFd);
    return {};
}

void ServiceSocket::drain()
{
    while (isOpen() && hasHungUp()) {
        read();
    }
}

Failure ServiceSocket::send(const QByteArray& pLine)
{
    if (mSocket.unsent() + pLine.size() > sMaxUnsent) {
        return {Failure::Kind::Unreachable, u"the service does not read its requests"_s};
    }
    mSocket.queue(pLine);
    mSocket.flush();
    return {};
}

void ServiceSocket::lose(const QString& pReason)
{
    close();
    mOnLost(pReason);
}

void ServiceSocket::read()
{
    LineSocket::Received tReceived = LineSocket::Received::Some;
    for (int tRead = 0; tRead < sReadsAtOnce && tReceived == LineSocket::Received::Some; ++tRead) {
        tReceived = mSocket.receive();
        if (tReceived == LineSocket::Received::Ended) {
            lose(u"the service has ended the connection"_s);
            return;
        }
        if (tReceived == LineSocket::Received::Failed) {
            lose(qt_error_string(errno));
            return;
        }
        while (const std::optional<QByteArray> tLine = mSocket.takeLine()) {
            mOnLine(*tLine);
            if (!isOpen()) {
                return;
            }
        }
        if (mSocket.tooLong()) {
            lose(u"the service has sent a line of more than %1 bytes"_s.arg(protocol::sMaxLine));
            return;
        }
    }
}

} // namespace tarn::vkcore

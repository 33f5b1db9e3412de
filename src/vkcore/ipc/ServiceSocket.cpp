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
bool isTrusted(int pFd, QString* pReason)
{
    ucred tPeer{};
    socklen_t tSize = sizeof tPeer;
    if (::getsockopt(pFd, SOL_SOCKET, SO_PEERCRED, &tPeer, &tSize) != 0) {
        *pReason = qt_error_string(errno);
        return false;
    }
    if (!machine::isTrusted(tPeer.uid)) {
        *pReason = u"the socket belongs to the user with the number %1"_s.arg(tPeer.uid);
        return false;
    }
    return true;
}

ServiceSocket::Outcome outcomeOf(int pError)
{
    switch (pError) {
    case ENOENT:
    case ECONNREFUSED:
        return ServiceSocket::Outcome::NobodyListens;
    case EAGAIN:
        return ServiceSocket::Outcome::Busy;
    default:
        return ServiceSocket::Outcome::Failed;
    }
}

} // namespace

ServiceSocket::ServiceSocket()
{
    mSocket.mOnReadable = [this] { read(); };
}

ServiceSocket::Outcome ServiceSocket::open(const QString& pName, QString* pReason)
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
    mSocket.open(tFd);
    return Outcome::Connected;
}

void ServiceSocket::drain()
{
    while (isOpen() && hasHungUp()) {
        read();
    }
}

bool ServiceSocket::send(const QByteArray& pLine)
{
    if (mSocket.unsent() + pLine.size() > sMaxUnsent) {
        return false;
    }
    mSocket.queue(pLine);
    mSocket.flush();
    return true;
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

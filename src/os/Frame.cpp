#include "os/Frame.h"

#include <poll.h>
#include <sys/socket.h>

#include <cerrno>
#include <climits>
#include <cstring>

using namespace Qt::StringLiterals;

namespace tarn::os {

namespace {

Failure ended()
{
    return {Failure::Kind::Unreachable, u"the connection has ended"_s};
}

Failure waitFor(int pSocket, short pEvent, const QDeadlineTimer& pDeadline)
{
    pollfd tPoll = {pSocket, pEvent, 0};
    int tReady = -1;
    do {
        const qint64 tLeft = pDeadline.isForever() ? -1 : pDeadline.remainingTime();
        tReady = ::poll(&tPoll, 1, static_cast<int>(qMin<qint64>(tLeft, INT_MAX)));
    } while (tReady < 0 && errno == EINTR);
    if (tReady == 0) {
        return {Failure::Kind::Io, u"the time is over"_s};
    }
    return tReady > 0 ? Failure() : Failure::fromErrno(errno, u"wait for the connection"_s);
}

bool isTransient()
{
    return errno == EAGAIN || errno == EINTR;
}

Failure receiveAll(int pSocket, char* pTo, qsizetype pSize, const QDeadlineTimer& pDeadline)
{
    for (qsizetype tDone = 0; tDone < pSize;) {
        if (Failure tFailure = waitFor(pSocket, POLLIN, pDeadline)) {
            return tFailure;
        }
        const ssize_t tCount = ::recv(pSocket, pTo + tDone, static_cast<size_t>(pSize - tDone), MSG_DONTWAIT);
        if (tCount == 0 || (tCount < 0 && !isTransient())) {
            return ended();
        }
        tDone += qMax<ssize_t>(tCount, 0);
    }
    return {};
}

} // namespace

Failure sendFrame(int pSocket, const QByteArray& pMessage, const QDeadlineTimer& pDeadline)
{
    if (pMessage.size() > sMaxFrame) {
        return Failure::content(u"a message is longer than %1 bytes"_s.arg(sMaxFrame));
    }
    const quint32 tSize = static_cast<quint32>(pMessage.size());
    QByteArray tBytes(reinterpret_cast<const char*>(&tSize), sizeof tSize);
    tBytes += pMessage;
    for (qsizetype tDone = 0; tDone < tBytes.size();) {
        if (Failure tFailure = waitFor(pSocket, POLLOUT, pDeadline)) {
            return tFailure;
        }
        const ssize_t tCount =
            ::send(pSocket, tBytes.constData() + tDone, static_cast<size_t>(tBytes.size() - tDone),
                   MSG_DONTWAIT | MSG_NOSIGNAL);
        if (tCount < 0 && !isTransient()) {
            return ended();
        }
        tDone += qMax<ssize_t>(tCount, 0);
    }
    return {};
}

Result<QByteArray> receiveFrame(int pSocket, const QDeadlineTimer& pDeadline)
{
    char tHead[sizeof(quint32)];
    if (Failure tFailure = receiveAll(pSocket, tHead, sizeof tHead, pDeadline)) {
        return tFailure;
    }
    quint32 tSize = 0;
    std::memcpy(&tSize, tHead, sizeof tSize);
    if (tSize > sMaxFrame) {
        return Failure::content(u"a message is longer than %1 bytes"_s.arg(sMaxFrame));
    }
    QByteArray tMessage(static_cast<qsizetype>(tSize), '\0');
    if (Failure tFailure = receiveAll(pSocket, tMessage.data(), tMessage.size(), pDeadline)) {
        return tFailure;
    }
    return tMessage;
}

} // namespace tarn::os

#include "FakeService.h"

#include "internal/Protocol.h"

#include <QtCore/QDeadlineTimer>
#include <QtCore/QFile>
#include <QtCore/QJsonDocument>
#include <QtCore/QThread>

#include <cstdlib>
#include <cstring>

#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

namespace protocol = tarn::vkcore::protocol;

FakeService::FakeService(const Script& pScript) : mScript(pScript)
{
    if (!mScript) {
        mScript = [](FakeService& pService, Peer pPeer, const QJsonObject& pRequest) {
            pService.send(pPeer, answer(pRequest, true));
        };
    }
    mListener = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_un tAddress{};
    tAddress.sun_family = AF_UNIX;
    std::strncpy(tAddress.sun_path, QFile::encodeName(socketPath()).constData(),
                 sizeof tAddress.sun_path - 1);
    if (::bind(mListener, reinterpret_cast<const sockaddr*>(&tAddress), sizeof tAddress) != 0 ||
        ::listen(mListener, 16) != 0 || ::pipe(mStop) != 0) {
        std::abort();
    }
    mThread = std::thread([this] { run(); });
}

FakeService::~FakeService()
{
    ::close(mStop[1]);
    mThread.join();
    ::close(mStop[0]);
    ::close(mListener);
    dropAll();
}

QString FakeService::socketPath() const
{
    return mDir.filePath(QStringLiteral("s"));
}

void FakeService::send(Peer pPeer, const QByteArray& pBytes)
{
    for (qsizetype tSent = 0; tSent < pBytes.size();) {
        const ssize_t tCount = ::send(pPeer, pBytes.constData() + tSent,
                                      static_cast<size_t>(pBytes.size() - tSent), MSG_NOSIGNAL);
        if (tCount <= 0) {
            return;
        }
        tSent += tCount;
    }
}

void FakeService::drop(Peer pPeer)
{
    const std::lock_guard tLock(mMutex);
    if (mPeers.removeOne(pPeer)) {
        // The end is seen at once, also where the other thread is still in its poll.
        ::shutdown(pPeer, SHUT_RDWR);
        ::close(pPeer);
    }
}

void FakeService::dropAll()
{
    const std::lock_guard tLock(mMutex);
    for (const Peer tPeer : std::exchange(mPeers, {})) {
        ::shutdown(tPeer, SHUT_RDWR);
        ::close(tPeer);
    }
}

QList<QJsonObject> FakeService::requests() const
{
    const std::lock_guard tLock(mMutex);
    return mRequests;
}

bool FakeService::waitForRequests(qsizetype pCount) const
{
    const QDeadlineTimer tDeadline(10000);
    while (requests().size() < pCount && !tDeadline.hasExpired()) {
        QThread::msleep(1);
    }
    return requests().size() >= pCount;
}

QByteArray FakeService::answer(const QJsonObject& pRequest, const QJsonValue& pResult)
{
    return protocol::toLine(protocol::result(pRequest.value(QLatin1String("id")).toInteger(), pResult));
}

QByteArray FakeService::event(const QString& pMethod, const QJsonObject& pParams)
{
    return protocol::toLine(protocol::event(pMethod, pParams));
}

void FakeService::run()
{
    while (true) {
        QList<pollfd> tPolls{{mStop[0], POLLIN, 0}, {mListener, POLLIN, 0}};
        {
            const std::lock_guard tLock(mMutex);
            for (const Peer tPeer : mPeers) {
                tPolls.append({tPeer, POLLIN, 0});
            }
        }
        // With a time-out, since the list may change on another thread.
        ::poll(tPolls.data(), static_cast<nfds_t>(tPolls.size()), 10);
        if (tPolls[0].revents != 0) {
            return;
        }
        if (tPolls[1].revents != 0) {
            const std::lock_guard tLock(mMutex);
            mPeers.append(::accept4(mListener, nullptr, nullptr, SOCK_CLOEXEC));
        }
        for (qsizetype i = 2; i < tPolls.size(); ++i) {
            if (tPolls[i].revents != 0 && !readFrom(tPolls[i].fd)) {
                drop(tPolls[i].fd);
            }
        }
    }
}

bool FakeService::readFrom(Peer pPeer)
{
    char tBytes[65536];
    const ssize_t tCount = ::recv(pPeer, tBytes, sizeof tBytes, MSG_DONTWAIT);
    if (tCount <= 0) {
        mInput.remove(pPeer);
        return false;
    }
    QByteArray& tInput = mInput[pPeer];
    tInput.append(tBytes, tCount);
    for (qsizetype tEnd = tInput.indexOf('\n'); tEnd >= 0; tEnd = tInput.indexOf('\n')) {
        const QByteArray tLine = tInput.left(tEnd);
        tInput.remove(0, tEnd + 1);
        handle(pPeer, tLine);
    }
    return true;
}

void FakeService::handle(Peer pPeer, const QByteArray& pLine)
{
    const QJsonObject tRequest = QJsonDocument::fromJson(pLine).object();
    if (tRequest.value(QLatin1String("method")) != QLatin1String("hello")) {
        const std::lock_guard tLock(mMutex);
        mRequests.append(tRequest);
    }
    mScript(*this, pPeer, tRequest);
}

#include "ipc/SocketServer.h"

#include "internal/Protocol.h"
#include "ipc/MethodTable.h"
#include "ipc/Peer.h"
#include "ipc/PeerCredentials.h"

#include <QtCore/QDeadlineTimer>
#include <QtCore/QEventLoop>

#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <utility>
#include <vector>

using namespace Qt::StringLiterals;

namespace tarn::vkservice::ipc {

using namespace vkcore;

namespace {

constexpr qint64 sTurnMs = 1;
constexpr qint64 sAllTurnsMs = 20;
constexpr rlim_t sReservedDescriptors = 256; // for databases, downloads and packages
constexpr qsizetype sMaxConnections = 4096;
constexpr qint64 sMaxHeldForAll =
    128 * 1024 * 1024; // a few of the longest lines at a time, and thousands of usual ones

qsizetype connectionLimit()
{
    rlimit tLimit = {};
    if (::getrlimit(RLIMIT_NOFILE, &tLimit) != 0 || tLimit.rlim_cur == RLIM_INFINITY) {
        return sMaxConnections;
    }
    const rlim_t tFree = tLimit.rlim_cur > 2 * sReservedDescriptors ? tLimit.rlim_cur - sReservedDescriptors
                                                                    : tLimit.rlim_cur / 2;
    return std::min<qsizetype>(sMaxConnections, static_cast<qsizetype>(tFree));
}

} // namespace

SocketServer::SocketServer(const MethodTable& pMethods, QObject* pParent)
    : QObject(pParent), mMethods(pMethods)
{
    connect(&mListener, &ListenSocket::accepted, this, &SocketServer::addPeer);
    // A timer, not a posted event: the event loop polls the sockets between two timers, so a new request is
    // served before the backlog of a flood.
    mNextTurn.setSingleShot(true);
    connect(&mNextTurn, &QTimer::timeout, this, &SocketServer::serveWaiting);
}

SocketServer::~SocketServer() = default;

Failure SocketServer::listen(const QString& pPath, std::optional<gid_t> pGroup)
{
    mGroup = pGroup;
    return mListener.listen(pPath, pGroup);
}

void SocketServer::adopt(int pFd, std::optional<gid_t> pGroup)
{
    mGroup = pGroup;
    mListener.adopt(pFd);
}

void SocketServer::closeAll(int pTimeoutMs)
{
    stopListening();
    QEventLoop tLoop;
    QTimer::singleShot(pTimeoutMs, &tLoop, &QEventLoop::quit);
    connect(this, &SocketServer::connectionClosed, &tLoop, [this, &tLoop] {
        if (mPeers.isEmpty()) {
            tLoop.quit();
        }
    });
    const auto tPeers = mPeers.keys();
    for (Peer* tPeer : tPeers) {
        tPeer->closeGently();
    }
    if (!mPeers.isEmpty()) {
        tLoop.exec(QEventLoop::ExcludeUserInputEvents);
    }
    qDeleteAll(mPeers.keys());
    mPeers.clear();
    mHeld = 0;
    mWaiting.clear();
}

void SocketServer::addPeer(int pSocket)
{
    const auto tCredentials = peerCredentials(pSocket);
    if (!tCredentials || !maySpeak(*tCredentials, ::geteuid(), mGroup)) {
        ::close(pSocket);
        Q_EMIT peerRefused(u"A process of user %1 tried to connect and was refused."_s.arg(
            tCredentials ? QString::number(tCredentials->mUid) : u"(unknown)"_s));
        return;
    }
    if (mPeers.size() >= connectionLimit()) {
        ::close(pSocket);
        Q_EMIT peerRefused(
            u"Process %1 was refused: %2 connections are already open."_s.arg(tCredentials->mPid)
                .arg(mPeers.size()));
        return;
    }
    auto* tPeer = new Peer(pSocket, *tCredentials, mMethods, this);
    mPeers.insert(tPeer, 0);
    connect(tPeer, &Peer::readable, this, [this, tPeer] { serve(tPeer); });
    connect(tPeer, &Peer::closed, this, [this, tPeer] { remove(tPeer); });
    connect(tPeer, &Peer::offended, this, [this, tPeer](const QString& pReason) {
        Q_EMIT peerRefused(u"Process %1 was disconnected. %2"_s.arg(tPeer->credentials().mPid).arg(pReason));
    });
}

void SocketServer::remove(Peer* pPeer)
{
    const auto tFound = mPeers.constFind(pPeer);
    if (tFound != mPeers.cend()) {
        mHeld -= *tFound;
        mPeers.erase(tFound);
        mWaiting.removeAll(pPeer);
        pPeer->deleteLater();
        Q_EMIT connectionClosed();
    }
}

// A peer with unprocessed lines waits for its turn, even if it sends more.
void SocketServer::serve(Peer* pPeer)
{
    if (mWaiting.contains(pPeer)) {
        return;
    }
    if (pPeer->turn(QDeadlineTimer(sTurnMs)) && mPeers.contains(pPeer)) {
        mWaiting.append(pPeer);
        mNextTurn.start(0);
    }
    noteHeld(pPeer);
    limitHeld();
}

void SocketServer::serveWaiting()
{
    const QDeadlineTimer tAll(sAllTurnsMs);
    for (qsizetype tLeft = mWaiting.size(); tLeft > 0 && !mWaiting.isEmpty() && !tAll.hasExpired(); --tLeft) {
        serve(mWaiting.takeFirst());
    }
    if (!mWaiting.isEmpty()) {
        mNextTurn.start(0);
    }
}

void SocketServer::broadcast(const QString& pMethod, const QJsonObject& pParams)
{
    const QByteArray tLine = protocol::toLine(protocol::event(pMethod, pParams));
    const auto tPeers = mPeers.keys();
    for (Peer* tPeer : tPeers) {
        if (tPeer->isMonitor()) {
            tPeer->sendEvent(tLine);
            noteHeld(tPeer);
        }
    }
    limitHeld();
}

bool SocketServer::hasMonitor() const
{
    return std::any_of(mPeers.keyBegin(), mPeers.keyEnd(),
                       [](const Peer* pPeer) { return pPeer->isMonitor(); });
}

bool SocketServer::hasClient(const QString& pName, const Peer* pAsker) const
{
    return std::any_of(mPeers.keyBegin(), mPeers.keyEnd(), [&](const Peer* pPeer) {
        return pPeer != pAsker && pPeer->isOpen() && pPeer->clientName() == pName;
    });
}

bool SocketServer::hasPeerBeside(pid_t pPid) const
{
    return std::any_of(mPeers.keyBegin(), mPeers.keyEnd(), [&](const Peer* pPeer) {
        return pPeer->isOpen() && pPeer->credentials().mPid != pPid;
    });
}

// A peer that was dropped meanwhile is not in the list of connections any longer.
void SocketServer::noteHeld(Peer* pPeer)
{
    const auto tFound = mPeers.find(pPeer);
    if (tFound != mPeers.end()) {
        const qint64 tHeld = pPeer->held();
        mHeld += tHeld - *tFound;
        *tFound = tHeld;
    }
}

// Each peer may have much pending output and send a long line; all together must not fill the memory. Drops
// the peers first that use the most of it for the longest time without progress.
void SocketServer::limitHeld()
{
    if (mHeld <= sMaxHeldForAll) {
        return;
    }
    // A burden grows with time, so it is read once for each peer.
    std::vector<std::pair<qint64, Peer*>> tBurdens;
    const auto tPeers = mPeers.keys();
    for (Peer* tPeer : tPeers) {
        noteHeld(tPeer);
        tBurdens.emplace_back(tPeer->burden(), tPeer);
    }
    std::sort(tBurdens.begin(), tBurdens.end());
    for (; mHeld > sMaxHeldForAll && !tBurdens.empty(); tBurdens.pop_back()) {
        Peer* tPeer = tBurdens.back().second;
        Q_EMIT peerRefused(u"Process %1 was disconnected. All peers together used more than 128 MiB."_s.arg(
            tPeer->credentials().mPid));
        tPeer->abort();
        remove(tPeer);
    }
}

} // namespace tarn::vkservice::ipc

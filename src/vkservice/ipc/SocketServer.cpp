#include "ipc/SocketServer.h"

#include "internal/Protocol.h"
#include "ipc/Connection.h"
#include "ipc/MethodTable.h"
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
    // A timer and not a posted event: the event loop looks at the sockets between two timers, so a fresh
    // request comes before the leftovers of a flood.
    mNextTurn.setSingleShot(true);
    connect(&mNextTurn, &QTimer::timeout, this, &SocketServer::serveWaiting);
}

SocketServer::~SocketServer() = default;

bool SocketServer::listen(const QString& pPath, std::optional<gid_t> pGroup, QString* pError)
{
    mGroup = pGroup;
    return mListener.listen(pPath, pGroup, pError);
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
        if (mConnections.isEmpty()) {
            tLoop.quit();
        }
    });
    const auto tConnections = mConnections.keys();
    for (Connection* tConnection : tConnections) {
        tConnection->closeGently();
    }
    if (!mConnections.isEmpty()) {
        tLoop.exec(QEventLoop::ExcludeUserInputEvents);
    }
    qDeleteAll(mConnections.keys());
    mConnections.clear();
    mHeld = 0;
    mWaiting.clear();
}

void SocketServer::addPeer(int pSocket)
{
    const auto tPeer = peerCredentials(pSocket);
    if (!tPeer || !maySpeak(*tPeer, ::geteuid(), mGroup)) {
        ::close(pSocket);
        Q_EMIT peerRefused(u"A process of user %1 tried to connect and was turned away."_s.arg(
            tPeer ? QString::number(tPeer->mUid) : u"(unknown)"_s));
        return;
    }
    if (mConnections.size() >= connectionLimit()) {
        ::close(pSocket);
        Q_EMIT peerRefused(u"Process %1 was turned away: %2 connections are open already."_s.arg(tPeer->mPid)
                               .arg(mConnections.size()));
        return;
    }
    auto* tConnection = new Connection(pSocket, *tPeer, mMethods, this);
    mConnections.insert(tConnection, 0);
    connect(tConnection, &Connection::readable, this, [this, tConnection] { serve(tConnection); });
    connect(tConnection, &Connection::closed, this, [this, tConnection] { remove(tConnection); });
    connect(tConnection, &Connection::offended, this, [this, tConnection](const QString& pReason) {
        Q_EMIT peerRefused(u"Process %1 is dropped. %2"_s.arg(tConnection->peer().mPid).arg(pReason));
    });
}

void SocketServer::remove(Connection* pConnection)
{
    const auto tFound = mConnections.constFind(pConnection);
    if (tFound != mConnections.cend()) {
        mHeld -= *tFound;
        mConnections.erase(tFound);
        mWaiting.removeAll(pConnection);
        pConnection->deleteLater();
        Q_EMIT connectionClosed();
    }
}

// A peer with lines left waits for its turn, whatever more it sends.
void SocketServer::serve(Connection* pConnection)
{
    if (mWaiting.contains(pConnection)) {
        return;
    }
    if (pConnection->turn(QDeadlineTimer(sTurnMs)) && mConnections.contains(pConnection)) {
        mWaiting.append(pConnection);
        mNextTurn.start(0);
    }
    noteHeld(pConnection);
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
    const auto tConnections = mConnections.keys();
    for (Connection* tConnection : tConnections) {
        if (tConnection->isMonitor()) {
            tConnection->sendEvent(tLine);
            noteHeld(tConnection);
        }
    }
    limitHeld();
}

bool SocketServer::hasMonitor() const
{
    return std::any_of(mConnections.keyBegin(), mConnections.keyEnd(),
                       [](const Connection* pConnection) { return pConnection->isMonitor(); });
}

bool SocketServer::hasClient(const QString& pName, const Connection* pAsker) const
{
    return std::any_of(mConnections.keyBegin(), mConnections.keyEnd(), [&](const Connection* pConnection) {
        return pConnection != pAsker && pConnection->isOpen() && pConnection->clientName() == pName;
    });
}

bool SocketServer::hasPeerBeside(pid_t pPid) const
{
    return std::any_of(mConnections.keyBegin(), mConnections.keyEnd(), [&](const Connection* pConnection) {
        return pConnection->isOpen() && pConnection->peer().mPid != pPid;
    });
}

// A peer that was dropped meanwhile is none of the connections any more.
void SocketServer::noteHeld(Connection* pConnection)
{
    const auto tFound = mConnections.find(pConnection);
    if (tFound != mConnections.end()) {
        const qint64 tHeld = pConnection->held();
        mHeld += tHeld - *tFound;
        *tFound = tHeld;
    }
}

// Each peer alone may be owed much, and send a long line; all together must not fill the memory. Those go
// first that keep most of it for longest without moving on.
void SocketServer::limitHeld()
{
    if (mHeld <= sMaxHeldForAll) {
        return;
    }
    // A burden grows with the time, so that each is asked for once.
    std::vector<std::pair<qint64, Connection*>> tPeers;
    const auto tConnections = mConnections.keys();
    for (Connection* tPeer : tConnections) {
        noteHeld(tPeer);
        tPeers.emplace_back(tPeer->burden(), tPeer);
    }
    std::sort(tPeers.begin(), tPeers.end());
    for (; mHeld > sMaxHeldForAll && !tPeers.empty(); tPeers.pop_back()) {
        Connection* tPeer = tPeers.back().second;
        Q_EMIT peerRefused(
            u"Process %1 is dropped. All peers together make the service keep more than 128 MiB."_s.arg(
                tPeer->peer().mPid));
        tPeer->abort();
        remove(tPeer);
    }
}

} // namespace tarn::vkservice::ipc

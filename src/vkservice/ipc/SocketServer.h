#pragma once

#include "ipc/ListenSocket.h"

#include <QtCore/QHash>
#include <QtCore/QJsonObject>
#include <QtCore/QList>
#include <QtCore/QObject>
#include <QtCore/QString>
#include <QtCore/QTimer>

#include <optional>

namespace tarn::vkservice::ipc {

class Peer;
class MethodTable;

// The service's socket: accepts peers, schedules them fairly, and sends events to those that subscribed.
class SocketServer : public QObject
{
    Q_OBJECT

public:
    explicit SocketServer(const MethodTable& pMethods, QObject* pParent = nullptr);
    ~SocketServer() override;

    // As ListenSocket::listen.
    Failure listen(const QString& pPath, std::optional<gid_t> pGroup);
    // As ListenSocket::adopt.
    void adopt(int pFd, std::optional<gid_t> pGroup);
    // Accepts no more peers; existing connections stay open, and so do those that wait to be accepted.
    void stopListening() { mListener.finish(); }
    // Sends pending output to the peers that read it, for at most pTimeoutMs, then drops all peers.
    void closeAll(int pTimeoutMs);

    // An event to every connection in monitor mode.
    void broadcast(const QString& pMethod, const QJsonObject& pParams);
    qsizetype connectionCount() const { return mPeers.size(); }
    bool hasMonitor() const;
    // True if a connection other than pAsker gave this name in hello.
    bool hasClient(const QString& pName, const Peer* pAsker) const;
    // True if a process other than pPid has a connection.
    bool hasPeerBeside(pid_t pPid) const;

Q_SIGNALS:
    void connectionClosed();
    // For the log.
    void peerRefused(const QString& pReason);

private:
    void addPeer(int pSocket);
    void remove(Peer* pPeer);
    void serve(Peer* pPeer);
    void serveWaiting();
    void noteHeld(Peer* pPeer);
    void limitHeld();

    const MethodTable& mMethods;
    ListenSocket mListener;
    std::optional<gid_t> mGroup;
    QHash<Peer*, qint64> mPeers; // with the memory that each used at the last check
    qint64 mHeld = 0;            // the sum of these; an upper limit, since peers may have read output since
    QList<Peer*> mWaiting; // those with lines left from their last turn, in the order of their next turn
    QTimer mNextTurn;
};

} // namespace tarn::vkservice::ipc

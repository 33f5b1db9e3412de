#pragma once

#include "internal/LineSocket.h"
#include "ipc/PeerCredentials.h"

#include <QtCore/QDeadlineTimer>
#include <QtCore/QElapsedTimer>
#include <QtCore/QJsonObject>
#include <QtCore/QObject>
#include <QtCore/QString>

namespace tarn::vkservice::ipc {

class MethodTable;

// One peer on the socket. It reads in slices, so a peer that floods the service cannot starve the others. It
// disconnects if the peer breaks the rules of the line protocol or does not read its answers.
class Peer : public QObject
{
    Q_OBJECT

public:
    static constexpr qint64 sMaxOwed = 16 * 1024 * 1024; // bytes of output that the peer has not read

    // Owns the descriptor.
    Peer(int pSocket, const PeerCredentials& pCredentials, const MethodTable& pMethods, QObject* pParent);

    bool isOpen() const { return !mClosing && mSocket.isOpen(); }
    // Works on the received data until pDeadline. True if there is more to do at once.
    bool turn(const QDeadlineTimer& pDeadline);
    void sendEvent(const QByteArray& pLine);
    // Bytes that it keeps in memory: of an incomplete line, and of output that the peer has not read.
    qint64 held() const { return mSocket.held(); }
    // The priority for dropping this peer: rises with the memory, and with the time since the last complete
    // line or read.
    qint64 burden() const;
    // Drops the peer at once.
    void abort();
    // Drops the peer when it has read all its output.
    void closeGently();

    const PeerCredentials& credentials() const { return mCredentials; }
    bool isMonitor() const { return mMonitor; }
    void setMonitor() { mMonitor = true; }
    // The name that the peer gave in hello, null before.
    const QString& clientName() const { return mClientName; }
    void setClientName(const QString& pName) { mClientName = pName; }

Q_SIGNALS:
    void readable();
    void closed();
    // The peer broke a rule and is being dropped; for the log.
    void offended(const QString& pReason);

private:
    bool work(const QDeadlineTimer& pDeadline);
    bool receive();
    void handleLine(const QByteArray& pLine);
    void handleRequest(const QJsonObject& pRequest);
    void send(const QJsonObject& pObject);
    void write(const QByteArray& pLine);
    void offend(int pCode, const QString& pReason);
    void onSent();

    vkcore::LineSocket mSocket;
    PeerCredentials mCredentials;
    const MethodTable& mMethods;
    QElapsedTimer mSinceProgress;
    QString mClientName;
    bool mMonitor = false;
    bool mClosing = false;
};

} // namespace tarn::vkservice::ipc

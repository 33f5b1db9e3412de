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

// One peer on the socket. It reads in slices, so a peer that floods the service gets its turns like any
// other, and it ends itself when the peer breaks the rules of the line protocol or does not take its answers.
class Peer : public QObject
{
    Q_OBJECT

public:
    static constexpr qint64 sMaxOwed = 16 * 1024 * 1024; // bytes of output that the peer has not taken

    // Takes over the descriptor.
    Peer(int pSocket, const PeerCredentials& pCredentials, const MethodTable& pMethods, QObject* pParent);

    bool isOpen() const { return !mClosing && mSocket.isOpen(); }
    // Works on what has been read until pDeadline. True if there is more to do at once.
    bool turn(const QDeadlineTimer& pDeadline);
    void sendEvent(const QByteArray& pLine);
    // Bytes that it keeps in memory: of a line that is not whole, and of output that the peer has not taken.
    qint64 held() const { return mSocket.held(); }
    // How little it deserves to keep them: the more, and the longer without a whole line or a read, the
    // higher.
    qint64 burden() const;
    // Drops the peer without another word.
    void abort();
    // Drops the peer when it has taken what it is owed.
    void closeGently();

    const PeerCredentials& credentials() const { return mCredentials; }
    bool isMonitor() const { return mMonitor; }
    void setMonitor() { mMonitor = true; }
    // What the peer called itself in hello, null before.
    const QString& clientName() const { return mClientName; }
    void setClientName(const QString& pName) { mClientName = pName; }

Q_SIGNALS:
    void readable();
    void closed();
    // The peer broke a rule and is being dropped, for the log.
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

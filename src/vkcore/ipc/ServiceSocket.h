#pragma once

#include "internal/Failure.h"
#include "internal/LineSocket.h"

#include <QtCore/QByteArray>
#include <QtCore/QString>

#include <functional>

namespace tarn::vkcore {

// The client's end of the service's socket. It never blocks.
class ServiceSocket
{
public:
    ServiceSocket();

    // One line from the peer, without its line end; called from the event loop, one by one while isOpen().
    std::function<void(const QByteArray&)> mOnLine;
    // The peer has ended the connection or broken the rules of the transport; it is closed already.
    std::function<void(const QString& pReason)> mOnLost;

    // A relative name is one in QDir::tempPath(). The peer has to be trusted, see machine::isTrusted().
    // NotFound: no socket, or one that no process listens on. Unreachable: the service cannot accept another
    // connection at the moment.
    Failure open(const QString& pName);
    bool isOpen() const { return mSocket.isOpen(); }
    bool hasHungUp() const { return mSocket.hasHungUp(); }
    void close() { mSocket.close(); }
    // Reads the data received so far from an open connection.
    void read();
    // Reads the remaining data of a peer that has closed the connection.
    void drain();
    // A failure if the peer has left too much unread; the line is then not sent.
    Failure send(const QByteArray& pLine);

private:
    void lose(const QString& pReason);

    LineSocket mSocket;
};

} // namespace tarn::vkcore

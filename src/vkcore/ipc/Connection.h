#pragma once

#include "internal/LineBuffer.h"

#include <QtCore/QByteArray>
#include <QtCore/QSocketNotifier>
#include <QtCore/QString>

#include <functional>
#include <memory>

namespace tarn::vkcore {

// A connected Unix socket that carries lines. It never blocks: what the peer does not take yet is sent
// from the event loop, and so is read what comes.
class Connection
{
public:
    enum class Outcome
    {
        Connected,
        NobodyListens, // no socket, or one that no process listens on
        Busy,          // the service has no room for one more just now
        Failed,        // no permission, no socket, or a peer that is not to be trusted
    };

    Connection() = default;
    ~Connection();
    Connection(const Connection&) = delete;
    Connection& operator=(const Connection&) = delete;

    // One line from the peer, without its line end; called from the event loop, one by one while isOpen().
    std::function<void(const QByteArray&)> mOnLine;
    // The peer has ended the connection or broken the rules of the transport; it is closed already.
    std::function<void(const QString& pReason)> mOnLost;

    // A relative name lies in QDir::tempPath(). The peer has to run as root or as this user. *pReason is set
    // unless Connected.
    Outcome open(const QString& pName, QString* pReason);
    bool isOpen() const { return mFd >= 0; }
    // Whether the peer has already ended an open connection, also where that was not read yet.
    bool hasHungUp() const;
    void close();
    // Reads what has come so far from an open connection.
    void read();
    // Reads what a peer that has hung up left behind, to the end.
    void drain();
    // False if the peer has left so much unread that no more is taken; the line is then not sent.
    bool send(const QByteArray& pLine);

private:
    void flush();
    void lose(const QString& pReason);

    int mFd = -1;
    std::unique_ptr<QSocketNotifier> mReadable;
    std::unique_ptr<QSocketNotifier> mWritable;
    protocol::LineBuffer mInput;
    QByteArray mOutput;
};

} // namespace tarn::vkcore

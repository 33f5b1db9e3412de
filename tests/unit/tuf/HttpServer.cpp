#include "HttpServer.h"

#include "Loopback.h"

#include <unistd.h>

HttpServer::HttpServer(const Handler& pHandler) : mHandler(pHandler), mSocket(loopbackSocket(&mPort))
{
    if (::listen(mSocket, 16) != 0) {
        qFatal("no port to listen on");
    }
    mThread = std::thread([this] { serve(); });
}

HttpServer::~HttpServer()
{
    ::shutdown(mSocket, SHUT_RDWR);
    mThread.join();
    ::close(mSocket);
}

QByteArray HttpServer::url() const
{
    return "http://127.0.0.1:" + QByteArray::number(mPort);
}

QList<QByteArray> HttpServer::takeRequests()
{
    const std::lock_guard tLock(mMutex);
    return std::exchange(mRequests, {});
}

QByteArray HttpServer::ok(const QByteArray& pBody)
{
    return "HTTP/1.1 200 OK\r\nConnection: close\r\nContent-Length: " + QByteArray::number(pBody.size()) +
           "\r\n\r\n" + pBody;
}

QByteArray HttpServer::status(const QByteArray& pLine)
{
    return "HTTP/1.1 " + pLine + "\r\nConnection: close\r\nContent-Length: 0\r\n\r\n";
}

void HttpServer::serve()
{
    for (int tPeer = 0; (tPeer = ::accept4(mSocket, nullptr, nullptr, SOCK_CLOEXEC)) >= 0; ::close(tPeer)) {
        QByteArray tRequest;
        char tBytes[4096];
        ssize_t tRead = 1;
        while (tRead > 0 && !tRequest.contains("\r\n\r\n")) {
            tRead = ::recv(tPeer, tBytes, sizeof tBytes, 0);
            tRequest.append(tBytes, tRead > 0 ? tRead : 0);
        }
        const QByteArray tPath = tRequest.split(' ').value(1);
        {
            const std::lock_guard tLock(mMutex);
            mRequests.append(tPath);
        }
        QByteArray tAnswer = mHandler(tPath);
        while (!tAnswer.isEmpty()) {
            const ssize_t tSent =
                ::send(tPeer, tAnswer.constData(), static_cast<size_t>(tAnswer.size()), MSG_NOSIGNAL);
            if (tSent <= 0) {
                break;
            }
            tAnswer.remove(0, tSent);
        }
    }
}

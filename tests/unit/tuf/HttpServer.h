#pragma once

#include <QtCore/QByteArray>
#include <QtCore/QList>
#include <QtCore/QMap>

#include <functional>
#include <mutex>
#include <thread>

// A web server on the loopback, on a thread of its own, that answers one request a connection.
class HttpServer
{
public:
    // Gives the whole answer to the path of a GET request, as it came over the wire.
    using Handler = std::function<QByteArray(const QByteArray& pPath)>;

    explicit HttpServer(const Handler& pHandler);
    ~HttpServer();
    HttpServer(const HttpServer&) = delete;
    HttpServer& operator=(const HttpServer&) = delete;

    QByteArray url() const;           // "http://127.0.0.1:PORT"
    QList<QByteArray> takeRequests(); // the paths since the last call

    static QByteArray ok(const QByteArray& pBody);
    static QByteArray status(const QByteArray& pLine); // "404 Not Found"

private:
    void serve();

    Handler mHandler;
    quint16 mPort = 0;
    int mSocket;
    std::mutex mMutex;
    QList<QByteArray> mRequests;
    std::thread mThread;
};

#pragma once

#include <QtCore/QByteArray>
#include <QtCore/QJsonObject>
#include <QtCore/QJsonValue>
#include <QtCore/QList>
#include <QtCore/QString>
#include <QtCore/QTemporaryDir>

#include <functional>
#include <mutex>
#include <thread>

// A service on a thread and a socket of its own that says exactly the bytes that a test wants it to say.
class FakeService
{
public:
    // One connection, as its number.
    using Peer = int;
    // Called on the service's thread for each request.
    using Script = std::function<void(FakeService&, Peer, const QJsonObject& pRequest)>;

    // Listens from the start. pScript none: answers everything with true.
    explicit FakeService(const Script& pScript = {});
    ~FakeService();

    QString socketPath() const;
    void send(Peer pPeer, const QByteArray& pBytes);
    void drop(Peer pPeer);
    void dropAll();
    // The requests so far, without those of the method "hello".
    QList<QJsonObject> requests() const;
    // Waits until that many requests have come.
    bool waitForRequests(qsizetype pCount) const;

    static QByteArray answer(const QJsonObject& pRequest, const QJsonValue& pResult);
    static QByteArray event(const QString& pMethod, const QJsonObject& pParams);

private:
    void run();
    bool readFrom(Peer pPeer);
    void handle(Peer pPeer, const QByteArray& pLine);

    QTemporaryDir mDir;
    Script mScript;
    int mListener = -1;
    int mStop[2] = {-1, -1};
    mutable std::mutex mMutex;
    QList<QJsonObject> mRequests;
    QList<Peer> mPeers;
    QHash<Peer, QByteArray> mInput;
    std::thread mThread;
};

#pragma once

#include "Text.h"

#include <QtCore/QJsonObject>
#include <QtCore/QJsonValue>
#include <QtCore/QMap>
#include <QtCore/QStringList>

#include <condition_variable>
#include <functional>
#include <list>
#include <mutex>
#include <thread>

// A service that does as it is told, on a thread of its own. Without a script it answers every method as an
// idle service with a few settings does. Texts of JSON are given as such: R"({"app": "de"})".
class ScriptedService
{
public:
    // One connection; for handlers, on the service's thread.
    class Peer
    {
    public:
        void reply(const QByteArray& pResult);
        void refuse();
        void send(const QByteArray& pBytes); // as they are, in one write
        void hangUp();
        // The id of the call under way.
        QByteArray callId() const { return QByteArray::number(mCallId.toInteger()); }
        // The line of an answer to it, for a write together with others.
        QByteArray answerLine(const QByteArray& pResult) const;

    private:
        friend class ScriptedService;
        int mFd = -1;
        QByteArray mInput;
        QJsonValue mCallId;
        bool mMonitors = false;
    };
    using Handler = std::function<void(Peer&, const QJsonObject& pParams)>;

    using Script = std::function<void(ScriptedService&)>;

    // pScript runs before the first client is let in.
    explicit ScriptedService(const QString& pSocket, const Script& pScript = {});
    ~ScriptedService();
    ScriptedService(const ScriptedService&) = delete;
    ScriptedService& operator=(const ScriptedService&) = delete;

    void onCall(const Text& pMethod, const Handler& pHandler);
    void answer(const Text& pMethod, const QByteArray& pResult);
    void refuse(const Text& pMethod);
    void ignore(const Text& pMethod); // never answers
    // Bytes as they are, for all connections in monitor mode.
    void send(const QByteArray& pBytes);
    // The line of an event, and the way of it to them.
    static QByteArray eventLine(const Text& pMethod, const QByteArray& pParams);
    void sendEvent(const Text& pMethod, const QByteArray& pParams);
    // Ends all connections, or those in monitor mode; others can still be made.
    void hangUp(bool pMonitorsOnly = false);

    // The calls so far without "hello" and "ping", each as its method and, where it has any, its parameters:
    // setLanguages {"app":"de","data":null}
    QStringList calls() const;
    QStringList allCalls() const;
    bool waitForCall(const Text& pMethod, int pCount = 1, int pTimeoutMs = 20000) const;
    // Until only connections in monitor mode are left.
    bool waitForHangUp(int pTimeoutMs = 20000) const;

private:
    void serve();
    void acceptPeer();
    bool readFrom(Peer& pPeer);
    void handle(Peer& pPeer, const QByteArray& pLine);

    int mListener = -1;
    int mWake[2] = {-1, -1};
    mutable std::mutex mMutex; // guards all below
    mutable std::condition_variable mChanged;
    QMap<QString, Handler> mHandlers;
    QStringList mMethods;
    QStringList mCalls;
    std::list<Peer> mPeers;
    std::thread mThread;
};

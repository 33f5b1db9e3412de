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

// A scripted service on its own thread. Without a script it answers every method like an idle service with a
// few settings. Values are given as JSON text: R"({"app": "de"})".
class ScriptedService
{
public:
    // One connection; for handlers, on the service's thread.
    class Peer
    {
    public:
        void reply(const QByteArray& pResult);
        void refuse();
        void send(const QByteArray& pBytes); // unchanged, in one write
        void hangUp();
        // The id of the current call.
        QByteArray callId() const { return QByteArray::number(mCallId.toInteger()); }
        // The line of an answer to it, to be written together with others.
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

    // pScript runs before the first client is accepted.
    explicit ScriptedService(const QString& pSocket, const Script& pScript = {});
    ~ScriptedService();
    ScriptedService(const ScriptedService&) = delete;
    ScriptedService& operator=(const ScriptedService&) = delete;

    void onCall(const Text& pMethod, const Handler& pHandler);
    void answer(const Text& pMethod, const QByteArray& pResult);
    void refuse(const Text& pMethod);
    void ignore(const Text& pMethod); // never answers
    // Sends these bytes to all connections in monitor mode.
    void send(const QByteArray& pBytes);
    // The line of an event, and sending it to them.
    static QByteArray eventLine(const Text& pMethod, const QByteArray& pParams);
    void sendEvent(const Text& pMethod, const QByteArray& pParams);
    // Closes all connections, or those in monitor mode; new ones are still accepted.
    void hangUp(bool pMonitorsOnly = false);

    // The calls so far without "hello" and "ping", each as its method and, if any, its parameters:
    // setLanguages {"app":"de","data":null}
    QStringList calls() const;
    QStringList allCalls() const;
    bool waitForCall(const Text& pMethod, int pCount = 1, int pTimeoutMs = 20000) const;
    // Waits until only connections in monitor mode are left.
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

#pragma once

#include "internal/Failure.h"
#include "ipc/EventGate.h"
#include "ipc/ServiceSocket.h"

#include <QtCore/QDeadlineTimer>
#include <QtCore/QHash>
#include <QtCore/QJsonObject>
#include <QtCore/QJsonValue>
#include <QtCore/QString>

#include <functional>
#include <memory>

namespace tarn::vkcore {

// A client's session with the service: pending requests, pending events, and the lifetime of the connection.
// It knows no operation. Callers hold a shared pointer, because the owner may be destroyed while a call
// waits.
class Session : public std::enable_shared_from_this<Session>
{
public:
    using Log = std::function<void(const QString&)>;

    // The receiver of events.
    struct Monitor
    {
        // False for an event that violates the protocol. Called when the event arrives; it is delivered
        // later.
        std::function<bool(const QString& pMethod, const QJsonObject& pParams, Event* pEvent)> mRead;
        // The delivery of the connection's end.
        std::function<void()> mOnLost;
    };

    // pHello: the parameters of the method "hello", which is the first request on each connection.
    Session(const Log& pLog, const QJsonObject& pHello);
    ~Session();

    void setServerName(const QString& pName) { mServerName = pName; }
    const QString& serverName() const { return mServerName; }
    // For a connection, and for each answer to a call.
    void setTimeout(int pSeconds) { mTimeoutMs = qint64{pSeconds} * 1000; }

    // The result of a method. A failure is in the log as well; Kind::Person if the service has refused.
    // pStartsRun: once the request is sent, earlier events about the end of a run are dropped for all
    // monitors of this process.
    Result<QJsonValue> call(const QString& pMethod, const QJsonObject& pParams, bool pStartsRun = false);
    // True if the service answers anything within the time.
    bool test(int pTimeoutMs);
    // As call; after the answer, pMonitor receives the events of the service until the connection ends.
    bool enterMonitorMode(const Monitor& pMonitor);

    // Logs that the answer to the method has another type than it should; false.
    bool malformed(const QString& pMethod);

    bool isConnected() const { return mConnection.isOpen() && !mConnection.hasHungUp(); }
    void close();

private:
    struct Waiting;

    enum class Link
    {
        Never,    // the service has not answered yet
        Up,       // it has
        JustLost, // the connection is lost, and no call has failed because of it yet
        Lost,
    };

    // The answer, or why there is none, is in *pWaiting.
    void exchange(const QString& pMethod, const QJsonObject& pParams, Waiting* pWaiting);
    Failure connect();
    Failure tryConnect();
    Failure send(const QJsonObject& pRequest);
    void wait(const QDeadlineTimer& pDeadline, const std::function<bool()>& pDone);
    void awaitAnswer(qint64 pId, Waiting* pWaiting, const QDeadlineTimer& pDeadline);
    void forgetEndedRuns();
    Result<QJsonValue> resultOf(const QString& pMethod, const Waiting& pWaiting);

    void onLine(const QByteArray& pLine);
    void onAnswer(const QJsonObject& pObject);
    void onEvent(const QJsonObject& pObject);
    void onLost(const QString& pReason);
    void breakOff(const QString& pReason);
    // False if no call was waiting.
    bool failAll(const Failure& pFailure);

    Log mLog;
    QJsonObject mHello;
    QString mServerName;
    qint64 mTimeoutMs = 30000;
    ServiceSocket mConnection;
    Link mLink = Link::Never;
    bool mClosed = false;
    qint64 mLastId = 0;
    QHash<qint64, Waiting*> mWaiting;
    qint64 mHelloId = 0;
    Monitor mMonitor;
    bool mMonitoring = false;
    EventQueue mEvents;
};

} // namespace tarn::vkcore

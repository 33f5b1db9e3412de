#include "ipc/Session.h"

#include "internal/JsonReader.h"
#include "internal/Methods.h"
#include "internal/Protocol.h"

#include <QtCore/QEventLoop>
#include <QtCore/QJsonDocument>

#include <algorithm>
#include <utility>

using namespace Qt::StringLiterals;

namespace tarn::vkcore {

namespace {

constexpr qint64 sLongestPauseMs = 25;
// The same limit as in the service for a client that does not read.
constexpr qsizetype sMaxHeldBytes = 16 * 1024 * 1024;

// All of this process.
QList<Session*>& sessions()
{
    static QList<Session*> sSessions;
    return sSessions;
}

} // namespace

// A call on the stack that waits for its answer.
struct Session::Waiting
{
    bool mEntersMonitorMode = false;
    bool mStartsRun = false;
    bool mDone = false;     // answered, or never to be
    bool mAnswered = false; // also by an error
    std::optional<QJsonValue> mResult;
    QString mReason; // why there is no result
};

Session::Session(const Log& pLog, const QJsonObject& pHello) : mLog(pLog), mHello(pHello)
{
    mConnection.mOnLine = [this](const QByteArray& pLine) { onLine(pLine); };
    mConnection.mOnLost = [this](const QString& pReason) { onLost(pReason); };
    sessions().append(this);
}

Session::~Session()
{
    sessions().removeOne(this);
}

std::optional<QJsonValue> Session::call(const QString& pMethod, const QJsonObject& pParams, bool pStartsRun)
{
    const std::shared_ptr<Session> tKeep = shared_from_this();
    Waiting tWaiting;
    tWaiting.mStartsRun = pStartsRun;
    exchange(pMethod, pParams, &tWaiting);
    return resultOf(pMethod, tWaiting);
}

bool Session::enterMonitorMode(const Monitor& pMonitor)
{
    const QString tMethod = protocol::method::sEnterMonitorMode;
    mMonitor = pMonitor;
    Waiting tWaiting;
    tWaiting.mEntersMonitorMode = true;
    const std::shared_ptr<Session> tKeep = shared_from_this();
    exchange(tMethod, {}, &tWaiting);
    const std::optional<QJsonValue> tResult = resultOf(tMethod, tWaiting);
    return tResult && (tResult->isBool() || malformed(tMethod)) && tResult->toBool();
}

std::optional<QJsonValue> Session::resultOf(const QString& pMethod, const Waiting& pWaiting)
{
    if (!pWaiting.mResult) {
        mLog(u"%1 failed: %2"_s.arg(pMethod, pWaiting.mReason));
    }
    return pWaiting.mResult;
}

bool Session::malformed(const QString& pMethod)
{
    mLog(u"%1 failed: the service has sent an answer of another type"_s.arg(pMethod));
    return false;
}

bool Session::exchange(const QString& pMethod, const QJsonObject& pParams, Waiting* pWaiting)
{
    const BlockingCall tBlocking;
    if (!connect(&pWaiting->mReason)) {
        return false;
    }
    if (pWaiting->mStartsRun) {
        forgetEndedRuns();
    }
    const qint64 tId = ++mLastId;
    if (!send(protocol::request(tId, pMethod, pParams), &pWaiting->mReason)) {
        return false;
    }
    awaitAnswer(tId, pWaiting, QDeadlineTimer(mTimeoutMs));
    return pWaiting->mResult.has_value();
}

// Data waiting in other sockets was also sent before the request. This session's own socket is read by its
// calls.
void Session::forgetEndedRuns()
{
    for (Session* tSession : std::as_const(sessions())) {
        if (tSession->mMonitoring && tSession != this) {
            tSession->mConnection.read();
        }
        tSession->mEvents.forgetEndedRuns();
    }
}

bool Session::test(int pTimeoutMs)
{
    const std::shared_ptr<Session> tKeep = shared_from_this();
    const BlockingCall tBlocking;
    const QDeadlineTimer tDeadline(std::max(0, pTimeoutMs));
    Waiting tWaiting;
    if (mClosed) {
        return false;
    }
    if (isConnected()) {
        const qint64 tId = ++mLastId;
        if (send(protocol::request(tId, protocol::method::sPing, {}), &tWaiting.mReason)) {
            awaitAnswer(tId, &tWaiting, tDeadline);
        }
        return tWaiting.mAnswered;
    }
    mConnection.drain();
    ServiceSocket::Outcome tOutcome = tryConnect(&tWaiting.mReason);
    while (tOutcome == ServiceSocket::Outcome::Busy && !tDeadline.hasExpired()) {
        wait(QDeadlineTimer(std::min(sLongestPauseMs, tDeadline.remainingTime())),
             [this] { return mClosed || mConnection.isOpen(); });
        tOutcome = mClosed ? ServiceSocket::Outcome::Failed : tryConnect(&tWaiting.mReason);
    }
    if (tOutcome != ServiceSocket::Outcome::Connected) {
        return false;
    }
    awaitAnswer(mHelloId, &tWaiting, tDeadline);
    if (!tWaiting.mAnswered) {
        breakOff(tWaiting.mReason);
    }
    return tWaiting.mAnswered;
}

void Session::close()
{
    mClosed = true;
    mMonitoring = false;
    mConnection.close();
    mEvents.clear();
    failAll(u"the client has closed the connection"_s);
}

bool Session::connect(QString* pReason)
{
    if (!mClosed && mConnection.isOpen() && mConnection.hasHungUp()) {
        mConnection.drain();
    }
    if (mClosed) {
        *pReason = u"the client has closed the connection"_s;
        return false;
    }
    if (mLink == Link::JustLost && !mConnection.isOpen()) {
        mLink = Link::Lost;
        *pReason = u"the connection has been lost"_s;
        return false;
    }
    const QDeadlineTimer tDeadline(mTimeoutMs);
    qint64 tPauseMs = 1;
    while (!mClosed && !mConnection.isOpen()) {
        const ServiceSocket::Outcome tOutcome = tryConnect(pReason);
        const bool tHope = tOutcome == ServiceSocket::Outcome::Busy ||
                           (tOutcome == ServiceSocket::Outcome::NobodyListens && mLink == Link::Never);
        if (tOutcome == ServiceSocket::Outcome::Connected) {
            return true;
        }
        if (!tHope || tDeadline.hasExpired()) {
            return false;
        }
        wait(QDeadlineTimer(std::min(tPauseMs, tDeadline.remainingTime())),
             [this] { return mClosed || mConnection.isOpen(); });
        tPauseMs = std::min(2 * tPauseMs, sLongestPauseMs);
    }
    return mConnection.isOpen();
}

ServiceSocket::Outcome Session::tryConnect(QString* pReason)
{
    if (mConnection.isOpen()) {
        return ServiceSocket::Outcome::Connected;
    }
    const ServiceSocket::Outcome tOutcome = mConnection.open(mServerName, pReason);
    if (tOutcome == ServiceSocket::Outcome::Connected) {
        mHelloId = ++mLastId;
        send(protocol::request(mHelloId, protocol::method::sHello, mHello), pReason);
    } else {
        *pReason = u"no connection to \"%1\": %2"_s.arg(mServerName, *pReason);
    }
    return tOutcome;
}

bool Session::send(const QJsonObject& pRequest, QString* pReason)
{
    const QByteArray tLine = protocol::toLine(pRequest);
    if (tLine.size() > protocol::sMaxLine) {
        *pReason = u"the request is larger than %1 bytes"_s.arg(protocol::sMaxLine);
        return false;
    }
    if (!mConnection.send(tLine)) {
        *pReason = u"the service does not read its requests"_s;
        return false;
    }
    return true;
}

// Pauses also run the event loop, so that timers fire and close() works.
void Session::wait(const QDeadlineTimer& pDeadline, const std::function<bool()>& pDone)
{
    QObject tAlarm;
    tAlarm.startTimer(static_cast<int>(pDeadline.remainingTime()) + 1, Qt::PreciseTimer);
    QEventLoop tLoop;
    while (!pDone() && !pDeadline.hasExpired()) {
        tLoop.processEvents(QEventLoop::WaitForMoreEvents);
    }
}

void Session::awaitAnswer(qint64 pId, Waiting* pWaiting, const QDeadlineTimer& pDeadline)
{
    mWaiting.insert(pId, pWaiting);
    wait(pDeadline, [pWaiting] { return pWaiting->mDone; });
    if (mWaiting.remove(pId)) {
        pWaiting->mReason = u"no answer in time"_s;
    }
}

void Session::onLine(const QByteArray& pLine)
{
    QJsonParseError tError;
    const QJsonDocument tDocument =
        protocol::isTooComplex(pLine) ? QJsonDocument() : QJsonDocument::fromJson(pLine, &tError);
    if (!tDocument.isObject()) {
        breakOff(u"the service has sent a line that is no message"_s);
        return;
    }
    const QJsonObject tObject = tDocument.object();
    if (tObject.contains("method"_L1)) {
        onEvent(tObject);
    } else {
        onAnswer(tObject);
    }
}

void Session::onAnswer(const QJsonObject& pObject)
{
    QString tFault;
    const qint64 tId = JsonReader(pObject, &tFault).integer("id", 1, mLastId);
    const QJsonValue tResult = pObject.value("result"_L1);
    const QJsonValue tError = pObject.value("error"_L1);
    if (!tFault.isNull() || tResult.isUndefined() == tError.isUndefined() ||
        (!tError.isUndefined() && !tError.isObject())) {
        const QString tMessage = tError.toObject().value("message"_L1).toString();
        breakOff(tMessage.isEmpty() ? u"the service has sent an answer to no request"_s : tMessage);
        return;
    }
    mLink = Link::Up;
    // A late answer to a call that has timed out.
    Waiting* tWaiting = mWaiting.take(tId);
    if (tWaiting == nullptr) {
        return;
    }
    tWaiting->mDone = true;
    tWaiting->mAnswered = true;
    if (tResult.isUndefined()) {
        tWaiting->mReason = tError.toObject().value("message"_L1).toString();
    } else {
        tWaiting->mResult = tResult;
        mMonitoring = mMonitoring || (tWaiting->mEntersMonitorMode && tResult.toBool());
    }
}

void Session::onEvent(const QJsonObject& pObject)
{
    const QJsonValue tMethod = pObject.value("method"_L1);
    const QJsonValue tParams = pObject.value("params"_L1);
    Event tEvent;
    if (!tMethod.isString() || !tParams.isObject() ||
        (mMonitoring && !mMonitor.mRead(tMethod.toString(), tParams.toObject(), &tEvent))) {
        breakOff(u"the service has sent a malformed event"_s);
        return;
    }
    if (tEvent.mDeliver) {
        mEvents.add(protocol::toLine(pObject).size(), tEvent);
    }
    if (mEvents.heldBytes() > sMaxHeldBytes) {
        breakOff(u"the service has sent more events than can be held"_s);
    }
}

void Session::onLost(const QString& pReason)
{
    const bool tReported = failAll(pReason);
    if (mLink != Link::Never) {
        mLink = tReported ? Link::Lost : Link::JustLost;
    }
    if (std::exchange(mMonitoring, false)) {
        mEvents.add(0, {mMonitor.mOnLost});
    }
}

void Session::breakOff(const QString& pReason)
{
    mConnection.close();
    onLost(pReason);
}

bool Session::failAll(const QString& pReason)
{
    const QHash<qint64, Waiting*> tAll = std::exchange(mWaiting, {});
    for (Waiting* tWaiting : tAll) {
        tWaiting->mDone = true;
        tWaiting->mReason = pReason;
    }
    return !tAll.isEmpty();
}

} // namespace tarn::vkcore

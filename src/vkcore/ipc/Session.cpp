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

Failure closedByClient()
{
    return {Failure::Kind::Canceled, u"the client has closed the connection"_s};
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
    Failure mFailure; // why there is no result
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

Result<QJsonValue> Session::call(const QString& pMethod, const QJsonObject& pParams, bool pStartsRun)
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
    const Result<QJsonValue> tResult = resultOf(tMethod, tWaiting);
    return tResult && (tResult->isBool() || malformed(tMethod)) && tResult->toBool();
}

Result<QJsonValue> Session::resultOf(const QString& pMethod, const Waiting& pWaiting)
{
    if (pWaiting.mResult) {
        return *pWaiting.mResult;
    }
    mLog(u"%1 failed: %2"_s.arg(pMethod, pWaiting.mFailure.mText));
    return pWaiting.mFailure;
}

bool Session::malformed(const QString& pMethod)
{
    mLog(u"%1 failed: the service has sent an answer of another type"_s.arg(pMethod));
    return false;
}

void Session::exchange(const QString& pMethod, const QJsonObject& pParams, Waiting* pWaiting)
{
    const BlockingCall tBlocking;
    pWaiting->mFailure = connect();
    if (pWaiting->mFailure) {
        return;
    }
    if (pWaiting->mStartsRun) {
        forgetEndedRuns();
    }
    const qint64 tId = ++mLastId;
    pWaiting->mFailure = send(protocol::request(tId, pMethod, pParams));
    if (!pWaiting->mFailure) {
        awaitAnswer(tId, pWaiting, QDeadlineTimer(mTimeoutMs));
    }
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
        if (!send(protocol::request(tId, protocol::method::sPing, {}))) {
            awaitAnswer(tId, &tWaiting, tDeadline);
        }
        return tWaiting.mAnswered;
    }
    mConnection.drain();
    Failure tFailure = tryConnect();
    while (tFailure.mKind == Failure::Kind::Unreachable && !tDeadline.hasExpired()) {
        wait(QDeadlineTimer(std::min(sLongestPauseMs, tDeadline.remainingTime())),
             [this] { return mClosed || mConnection.isOpen(); });
        tFailure = mClosed ? closedByClient() : tryConnect();
    }
    if (tFailure) {
        return false;
    }
    awaitAnswer(mHelloId, &tWaiting, tDeadline);
    if (!tWaiting.mAnswered) {
        breakOff(tWaiting.mFailure.mText);
    }
    return tWaiting.mAnswered;
}

void Session::close()
{
    mClosed = true;
    mMonitoring = false;
    mConnection.close();
    mEvents.clear();
    failAll(closedByClient());
}

Failure Session::connect()
{
    if (!mClosed && mConnection.isOpen() && mConnection.hasHungUp()) {
        mConnection.drain();
    }
    if (mClosed) {
        return closedByClient();
    }
    if (mLink == Link::JustLost && !mConnection.isOpen()) {
        mLink = Link::Lost;
        return {Failure::Kind::Unreachable, u"the connection has been lost"_s};
    }
    const QDeadlineTimer tDeadline(mTimeoutMs);
    qint64 tPauseMs = 1;
    while (!mClosed && !mConnection.isOpen()) {
        const Failure tFailure = tryConnect();
        const bool tHope = tFailure.mKind == Failure::Kind::Unreachable ||
                           (tFailure.mKind == Failure::Kind::NotFound && mLink == Link::Never);
        if (!tFailure || !tHope || tDeadline.hasExpired()) {
            return tFailure;
        }
        wait(QDeadlineTimer(std::min(tPauseMs, tDeadline.remainingTime())),
             [this] { return mClosed || mConnection.isOpen(); });
        tPauseMs = std::min(2 * tPauseMs, sLongestPauseMs);
    }
    return mConnection.isOpen() ? Failure() : closedByClient();
}

Failure Session::tryConnect()
{
    if (mConnection.isOpen()) {
        return {};
    }
    if (const Failure tFailure = mConnection.open(mServerName)) {
        return {tFailure.mKind, u"no connection to \"%1\": %2"_s.arg(mServerName, tFailure.mText)};
    }
    mHelloId = ++mLastId;
    (void)send(protocol::request(mHelloId, protocol::method::sHello, mHello)); // the first line always fits
    return {};
}

Failure Session::send(const QJsonObject& pRequest)
{
    const QByteArray tLine = protocol::toLine(pRequest);
    return tLine.size() > protocol::sMaxLine
               ? Failure::content(u"the request is larger than %1 bytes"_s.arg(protocol::sMaxLine))
               : mConnection.send(tLine);
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
        pWaiting->mFailure = {Failure::Kind::Unreachable, u"no answer in time"_s};
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
        tWaiting->mFailure = {Failure::Kind::Person, tError.toObject().value("message"_L1).toString()};
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
    const bool tReported = failAll({Failure::Kind::Unreachable, pReason});
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

bool Session::failAll(const Failure& pFailure)
{
    const QHash<qint64, Waiting*> tAll = std::exchange(mWaiting, {});
    for (Waiting* tWaiting : tAll) {
        tWaiting->mDone = true;
        tWaiting->mFailure = pFailure;
    }
    return !tAll.isEmpty();
}

} // namespace tarn::vkcore

#include "RawPeer.h"
#include "UnixSocket.h"

#include <QtCore/QThread>

#include <poll.h>
#include <unistd.h>

#include <utility>

RawPeer::RawPeer(const QString& pSocket, int pTimeoutMs)
{
    const QDeadlineTimer tDeadline(pTimeoutMs);
    while ((mFd = connectedSocket(pSocket)) < 0 && !tDeadline.hasExpired()) {
        QThread::msleep(5);
    }
}

RawPeer::RawPeer(RawPeer&& pOther) noexcept
    : mFd(std::exchange(pOther.mFd, -1)), mInput(std::move(pOther.mInput)), mNextId(pOther.mNextId)
{
}

RawPeer::~RawPeer()
{
    if (mFd >= 0) {
        ::close(mFd);
    }
}

bool RawPeer::send(const QByteArray& pBytes) const
{
    return sendAll(mFd, pBytes);
}

void RawPeer::sendRequest(const Text& pMethod, const Json& pParams, qint64 pId) const
{
    const QJsonObject tRequest{{q("jsonrpc"), q("2.0")},
                               {q("id"), pId},
                               {q("method"), QString(pMethod)},
                               {q("params"), QJsonObject(pParams)}};
    send(QJsonDocument(tRequest).toJson(QJsonDocument::Compact) + '\n');
}

RawPeer::Read RawPeer::readSome(const QDeadlineTimer& pDeadline)
{
    pollfd tPoll = {mFd, POLLIN, 0};
    if (::poll(&tPoll, 1, static_cast<int>(pDeadline.remainingTime())) <= 0) {
        return Read::Late;
    }
    QByteArray tBytes(256 * 1024, Qt::Uninitialized);
    const ssize_t tCount = ::recv(mFd, tBytes.data(), static_cast<size_t>(tBytes.size()), 0);
    mInput += tBytes.left(std::max<ssize_t>(0, tCount));
    return tCount > 0 ? Read::Bytes : Read::End;
}

std::optional<QByteArray> RawPeer::readLine(int pTimeoutMs)
{
    const QDeadlineTimer tDeadline(pTimeoutMs);
    qsizetype tEnd = -1;
    while ((tEnd = mInput.indexOf('\n')) < 0) {
        if (readSome(tDeadline) != Read::Bytes) {
            return std::nullopt;
        }
    }
    const QByteArray tLine = mInput.left(tEnd);
    mInput.remove(0, tEnd + 1);
    return tLine;
}

bool RawPeer::waitForEnd(int pTimeoutMs)
{
    const QDeadlineTimer tDeadline(pTimeoutMs);
    Read tRead = Read::Bytes;
    while (tRead == Read::Bytes) {
        mInput.clear();
        tRead = readSome(tDeadline);
    }
    return tRead == Read::End;
}

QJsonValue RawPeer::call(const Text& pMethod, const Json& pParams, QJsonObject* pError)
{
    const qint64 tId = mNextId++;
    sendRequest(pMethod, pParams, tId);
    while (const auto tLine = readLine()) {
        const QJsonObject tAnswer = QJsonDocument::fromJson(*tLine).object();
        if (tAnswer.value(q("id")).toInteger() != tId) {
            continue;
        }
        if (pError != nullptr) {
            *pError = tAnswer.value(q("error")).toObject();
        }
        return tAnswer.value(q("result"));
    }
    return QJsonValue::Undefined;
}

int RawPeer::errorOf(const Text& pMethod, const Json& pParams)
{
    QJsonObject tError;
    const QJsonValue tResult = call(pMethod, pParams, &tError);
    const int tNoAnswer = tResult.isUndefined() ? -1 : 0;
    return tError.value(q("code")).toInt(tNoAnswer);
}

QJsonObject RawPeer::event(int pTimeoutMs)
{
    while (const auto tLine = readLine(pTimeoutMs)) {
        const QJsonObject tObject = QJsonDocument::fromJson(*tLine).object();
        if (tObject.contains(q("method"))) {
            return tObject;
        }
    }
    return {};
}

bool RawPeer::waitForEvent(const Text& pMethod, const Text& pMember, const QJsonValue& pValue)
{
    for (QJsonObject tEvent = event(); !tEvent.isEmpty(); tEvent = event()) {
        if (tEvent[q("method")] == pMethod && (pMember.isEmpty() || tEvent[q("params")][pMember] == pValue)) {
            return true;
        }
    }
    return false;
}

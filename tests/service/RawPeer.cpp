#include "RawPeer.h"

#include <QtCore/QDeadlineTimer>
#include <QtCore/QFile>
#include <QtCore/QJsonDocument>
#include <QtCore/QThread>

#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstring>
#include <utility>

namespace {

int tryConnect(const QString& pSocket)
{
    sockaddr_un tAddress = {};
    tAddress.sun_family = AF_UNIX;
    const QByteArray tPath = QFile::encodeName(pSocket);
    std::memcpy(tAddress.sun_path, tPath.constData(),
                std::min<size_t>(tPath.size(), sizeof(tAddress.sun_path) - 1));
    const int tFd = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (::connect(tFd, reinterpret_cast<sockaddr*>(&tAddress), sizeof(tAddress)) != 0) {
        ::close(tFd);
        return -1;
    }
    return tFd;
}

} // namespace

RawPeer::RawPeer(const QString& pSocket, int pTimeoutMs)
{
    const QDeadlineTimer tDeadline(pTimeoutMs);
    while ((mFd = tryConnect(pSocket)) < 0 && !tDeadline.hasExpired()) {
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
    qsizetype tSent = 0;
    while (tSent < pBytes.size()) {
        const ssize_t tCount =
            ::send(mFd, pBytes.constData() + tSent, static_cast<size_t>(pBytes.size() - tSent), MSG_NOSIGNAL);
        if (tCount <= 0) {
            return false;
        }
        tSent += tCount;
    }
    return true;
}

qint64 RawPeer::sendSome(const QByteArray& pBytes) const
{
    return ::send(mFd, pBytes.constData(), static_cast<size_t>(pBytes.size()), MSG_NOSIGNAL | MSG_DONTWAIT);
}

void RawPeer::sendRequest(const QString& pMethod, const QJsonObject& pParams, qint64 pId) const
{
    const QJsonObject tRequest{{QStringLiteral("jsonrpc"), QStringLiteral("2.0")},
                               {QStringLiteral("id"), pId},
                               {QStringLiteral("method"), pMethod},
                               {QStringLiteral("params"), pParams}};
    send(QJsonDocument(tRequest).toJson(QJsonDocument::Compact) + '\n');
}

std::optional<QByteArray> RawPeer::readLine(int pTimeoutMs)
{
    const QDeadlineTimer tDeadline(pTimeoutMs);
    for (;;) {
        const qsizetype tEnd = mInput.indexOf('\n');
        if (tEnd >= 0) {
            const QByteArray tLine = mInput.left(tEnd);
            mInput.remove(0, tEnd + 1);
            return tLine;
        }
        pollfd tPoll = {mFd, POLLIN, 0};
        if (::poll(&tPoll, 1, static_cast<int>(tDeadline.remainingTime())) <= 0) {
            return std::nullopt;
        }
        QByteArray tBytes(256 * 1024, Qt::Uninitialized);
        const ssize_t tCount = ::recv(mFd, tBytes.data(), static_cast<size_t>(tBytes.size()), 0);
        if (tCount <= 0) {
            return std::nullopt;
        }
        mInput += tBytes.left(tCount);
    }
}

bool RawPeer::waitForEnd(int pTimeoutMs)
{
    const QDeadlineTimer tDeadline(pTimeoutMs);
    QByteArray tBytes(256 * 1024, Qt::Uninitialized);
    for (;;) {
        pollfd tPoll = {mFd, POLLIN, 0};
        if (::poll(&tPoll, 1, static_cast<int>(tDeadline.remainingTime())) <= 0) {
            return false;
        }
        if (::recv(mFd, tBytes.data(), static_cast<size_t>(tBytes.size()), 0) <= 0) {
            return true;
        }
    }
}

QJsonValue RawPeer::call(const QString& pMethod, const QJsonObject& pParams, QJsonObject* pError)
{
    const qint64 tId = mNextId++;
    sendRequest(pMethod, pParams, tId);
    while (const auto tLine = readLine()) {
        const QJsonObject tAnswer = QJsonDocument::fromJson(*tLine).object();
        if (tAnswer.value(QLatin1String("id")).toInteger() != tId) {
            continue;
        }
        if (pError != nullptr) {
            *pError = tAnswer.value(QLatin1String("error")).toObject();
        }
        return tAnswer.value(QLatin1String("result"));
    }
    return QJsonValue::Undefined;
}

int RawPeer::errorOf(const QString& pMethod, const QJsonObject& pParams)
{
    QJsonObject tError;
    const QJsonValue tResult = call(pMethod, pParams, &tError);
    const int tNoAnswer = tResult.isUndefined() ? -1 : 0;
    return tError.value(QLatin1String("code")).toInt(tNoAnswer);
}

QJsonObject RawPeer::event(int pTimeoutMs)
{
    while (const auto tLine = readLine(pTimeoutMs)) {
        const QJsonObject tObject = QJsonDocument::fromJson(*tLine).object();
        if (tObject.contains(QLatin1String("method"))) {
            return tObject;
        }
    }
    return {};
}

bool RawPeer::waitForEvent(const QString& pMethod, const QString& pMember, const QJsonValue& pValue)
{
    for (;;) {
        const QJsonObject tEvent = event();
        if (tEvent.isEmpty()) {
            return false;
        }
        const QJsonObject tParams = tEvent.value(QLatin1String("params")).toObject();
        if (tEvent.value(QLatin1String("method")).toString() == pMethod &&
            (pMember.isEmpty() || tParams.value(pMember) == pValue)) {
            return true;
        }
    }
}

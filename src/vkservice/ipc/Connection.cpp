#include "ipc/Connection.h"

#include "internal/Protocol.h"
#include "ipc/MethodTable.h"

#include <QtCore/QJsonDocument>
#include <QtNetwork/QLocalSocket>

using namespace Qt::StringLiterals;

namespace tarn::vkservice::ipc {

using namespace vkcore;

namespace {

constexpr qint64 sReadSize = 64 * 1024;

} // namespace

Connection::Connection(int pSocket, const PeerCredentials& pPeer, const MethodTable& pMethods,
                       QObject* pParent)
    : QObject(pParent), mSocket(new QLocalSocket(this)), mPeer(pPeer), mMethods(pMethods)
{
    // What the peer sends beyond this waits in the kernel, which makes the peer wait.
    mSocket->setReadBufferSize(sReadSize);
    connect(mSocket, &QLocalSocket::readyRead, this, &Connection::readable);
    connect(mSocket, &QLocalSocket::disconnected, this, &Connection::closed);
    connect(mSocket, &QLocalSocket::bytesWritten, this, [this] { mSinceProgress.start(); });
    mSocket->setSocketDescriptor(pSocket);
    mSinceProgress.start();
}

Connection::~Connection()
{
    disconnect(mSocket, nullptr, this, nullptr);
    mSocket->abort();
}

bool Connection::isOpen() const
{
    return !mClosing && mSocket->state() == QLocalSocket::ConnectedState;
}

bool Connection::turn(const QDeadlineTimer& pDeadline)
{
    while (isOpen()) {
        while (const auto tLine = mLines.takeLine()) {
            mSinceProgress.start();
            handleLine(*tLine);
            if (!isOpen()) {
                return false;
            }
            if (pDeadline.hasExpired()) {
                mSocket->flush();
                return true;
            }
        }
        if (mLines.tooLong()) {
            offend(protocol::InvalidRequest, u"A line is longer than 8 MiB."_s);
            return false;
        }
        const QByteArray tBytes = mSocket->read(sReadSize);
        if (tBytes.isEmpty()) {
            mSocket->flush();
            return false;
        }
        mLines.append(tBytes);
    }
    return false;
}

void Connection::handleLine(const QByteArray& pLine)
{
    if (protocol::isTooComplex(pLine)) {
        offend(protocol::InvalidRequest,
               u"A line nests deeper than 64 levels, or holds more than 250,000 objects and arrays."_s);
        return;
    }
    QJsonParseError tError;
    const QJsonDocument tDocument = QJsonDocument::fromJson(pLine, &tError);
    if (tError.error != QJsonParseError::NoError) {
        offend(protocol::ParseError, u"A line is no JSON: %1."_s.arg(tError.errorString()));
        return;
    }
    if (!tDocument.isObject()) {
        offend(protocol::InvalidRequest, u"A line is no JSON object."_s);
        return;
    }
    handleRequest(tDocument.object());
}

void Connection::handleRequest(const QJsonObject& pRequest)
{
    long long tId = 0;
    if (!protocol::read(pRequest, u"id"_s, &tId)) {
        send(protocol::error({}, protocol::InvalidRequest, u"A request needs a whole number as id."_s));
        return;
    }
    const QJsonValue tMethod = pRequest.value("method"_L1);
    if (pRequest.value("jsonrpc"_L1) != QJsonValue(u"2.0"_s) || !tMethod.isString()) {
        send(protocol::error(tId, protocol::InvalidRequest,
                             u"A request needs \"jsonrpc\": \"2.0\" and the name of a method."_s));
        return;
    }
    const QJsonValue tParams = pRequest.value("params"_L1);
    if (!tParams.isObject()) {
        send(protocol::error(tId, protocol::InvalidParams, u"The parameters have to be an object."_s));
        return;
    }
    const Reply tReply = mMethods.call(*this, tMethod.toString(), tParams.toObject());
    send(tReply.isError() ? protocol::error(tId, tReply.mErrorCode, tReply.mMessage)
                          : protocol::result(tId, tReply.mResult));
}

void Connection::sendEvent(const QByteArray& pLine)
{
    if (isOpen()) {
        write(pLine);
        mSocket->flush();
    }
}

void Connection::send(const QJsonObject& pObject)
{
    if (isOpen()) {
        write(protocol::toLine(pObject));
    }
}

void Connection::write(const QByteArray& pLine)
{
    mSocket->write(pLine);
    if (owed() <= sMaxOwed) {
        return;
    }
    mSocket->flush();
    if (owed() > sMaxOwed) {
        Q_EMIT offended(u"It is owed more than 16 MiB that it does not read."_s);
        abort();
    }
}

qint64 Connection::owed() const
{
    return mSocket->bytesToWrite();
}

qint64 Connection::held() const
{
    return owed() + mLines.capacity() + mSocket->bytesAvailable();
}

qint64 Connection::burden() const
{
    return held() * (1 + mSinceProgress.elapsed());
}

void Connection::offend(int pCode, const QString& pReason)
{
    Q_EMIT offended(pReason);
    send(protocol::error({}, pCode, pReason));
    closeGently();
}

void Connection::abort()
{
    mClosing = true;
    mSocket->abort();
}

void Connection::closeGently()
{
    if (!mClosing) {
        mClosing = true;
        mSocket->flush();
        mSocket->disconnectFromServer();
    }
}

} // namespace tarn::vkservice::ipc

#include "ipc/Peer.h"

#include "internal/JsonReader.h"
#include "internal/Protocol.h"
#include "ipc/MethodTable.h"

#include <QtCore/QJsonDocument>

#include <limits>

using namespace Qt::StringLiterals;

namespace tarn::vkservice::ipc {

using namespace vkcore;

Peer::Peer(int pSocket, const PeerCredentials& pCredentials, const MethodTable& pMethods, QObject* pParent)
    : QObject(pParent), mCredentials(pCredentials), mMethods(pMethods)
{
    mSocket.mOnReadable = [this] { Q_EMIT readable(); };
    mSocket.mOnSent = [this] { onSent(); };
    mSocket.open(pSocket);
    mSinceProgress.start();
}

// Whatever the peer sends before its next turn waits in the kernel, which throttles the peer.
bool Peer::turn(const QDeadlineTimer& pDeadline)
{
    const bool tMore = work(pDeadline);
    mSocket.flush();
    mSocket.setReading(isOpen() && !tMore);
    return tMore && isOpen();
}

bool Peer::work(const QDeadlineTimer& pDeadline)
{
    for (;;) {
        while (const auto tLine = mSocket.takeLine()) {
            mSinceProgress.start();
            handleLine(*tLine);
            if (!isOpen() || pDeadline.hasExpired()) {
                return true;
            }
        }
        if (mSocket.tooLong()) {
            offend(protocol::InvalidRequest, u"A line is longer than 8 MiB."_s);
        }
        if (!isOpen() || !receive()) {
            return false;
        }
        if (pDeadline.hasExpired()) {
            return true;
        }
    }
}

// False if there is no data. A peer that has stopped sending may still wait for its answers.
bool Peer::receive()
{
    switch (mSocket.receive()) {
    case LineSocket::Received::Some:
    case LineSocket::Received::All:
        return true;
    case LineSocket::Received::None:
        return false;
    case LineSocket::Received::Ended:
        closeGently();
        return false;
    case LineSocket::Received::Failed:
        break;
    }
    abort();
    return false;
}

void Peer::handleLine(const QByteArray& pLine)
{
    if (protocol::isTooComplex(pLine)) {
        offend(protocol::InvalidRequest,
               u"A line nests deeper than 64 levels, or has more than 250,000 objects and arrays."_s);
        return;
    }
    QJsonParseError tError;
    const QJsonDocument tDocument = QJsonDocument::fromJson(pLine, &tError);
    if (tError.error != QJsonParseError::NoError) {
        offend(protocol::ParseError, u"A line is not JSON: %1."_s.arg(tError.errorString()));
        return;
    }
    if (!tDocument.isObject()) {
        offend(protocol::InvalidRequest, u"A line is not a JSON object."_s);
        return;
    }
    handleRequest(tDocument.object());
}

void Peer::handleRequest(const QJsonObject& pRequest)
{
    QString tFault;
    const qint64 tId = JsonReader(pRequest, &tFault).integer("id", std::numeric_limits<qint64>::min());
    if (!tFault.isNull()) {
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

void Peer::sendEvent(const QByteArray& pLine)
{
    if (isOpen()) {
        write(pLine);
        mSocket.flush();
    }
}

void Peer::send(const QJsonObject& pObject)
{
    if (isOpen()) {
        write(protocol::toLine(pObject));
    }
}

void Peer::write(const QByteArray& pLine)
{
    mSocket.queue(pLine);
    if (mSocket.unsent() <= sMaxOwed) {
        return;
    }
    mSocket.flush();
    if (mSocket.unsent() > sMaxOwed) {
        Q_EMIT offended(u"It has left more than 16 MiB unread."_s);
        abort();
    }
}

void Peer::onSent()
{
    mSinceProgress.start();
    if (mClosing && mSocket.unsent() == 0) {
        abort();
    }
}

qint64 Peer::burden() const
{
    return held() * (1 + mSinceProgress.elapsed());
}

void Peer::offend(int pCode, const QString& pReason)
{
    Q_EMIT offended(pReason);
    send(protocol::error({}, pCode, pReason));
    closeGently();
}

void Peer::abort()
{
    mClosing = true;
    if (mSocket.isOpen()) {
        mSocket.close();
        Q_EMIT closed();
    }
}

void Peer::closeGently()
{
    if (mClosing || !mSocket.isOpen()) {
        return;
    }
    mClosing = true;
    mSocket.setReading(false);
    mSocket.flush();
    if (mSocket.unsent() == 0) {
        abort();
    }
}

} // namespace tarn::vkservice::ipc

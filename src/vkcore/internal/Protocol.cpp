#include "internal/Protocol.h"

#include "internal/PlainText.h"

#include <QtCore/QJsonDocument>

using namespace Qt::StringLiterals;

namespace tarn::vkcore::protocol {

namespace {

QJsonObject call(const QString& pMethod, const QJsonObject& pParams)
{
    return {{u"jsonrpc"_s, u"2.0"_s}, {u"method"_s, pMethod}, {u"params"_s, pParams}};
}

} // namespace

bool isTooComplex(const QByteArray& pLine)
{
    int tDepth = 0;
    int tContainers = 0;
    bool tInText = false;
    for (qsizetype i = 0; i < pLine.size(); ++i) {
        const char tByte = pLine[i];
        if (tInText) {
            if (tByte == '\\') {
                ++i;
            } else {
                tInText = tByte != '"';
            }
        } else if (tByte == '"') {
            tInText = true;
        } else if (tByte == '{' || tByte == '[') {
            if (++tDepth > sMaxNesting || ++tContainers > sMaxContainers) {
                return true;
            }
        } else if (tByte == '}' || tByte == ']') {
            --tDepth;
        }
    }
    return false;
}

QByteArray toLine(const QJsonObject& pObject)
{
    return QJsonDocument(pObject).toJson(QJsonDocument::Compact) += '\n';
}

QJsonObject request(qint64 pId, const QString& pMethod, const QJsonObject& pParams)
{
    QJsonObject tObject = call(pMethod, pParams);
    tObject.insert("id"_L1, pId);
    return tObject;
}

QJsonObject result(qint64 pId, const QJsonValue& pResult)
{
    return {{u"jsonrpc"_s, u"2.0"_s}, {u"id"_s, pId}, {u"result"_s, pResult}};
}

QJsonObject error(std::optional<qint64> pId, int pCode, const QString& pMessage)
{
    const QJsonObject tError{{u"code"_s, pCode}, {u"message"_s, singleLine(pMessage, sMaxMessage)}};
    return {{u"jsonrpc"_s, u"2.0"_s}, {u"id"_s, pId ? QJsonValue(*pId) : QJsonValue()}, {u"error"_s, tError}};
}

QJsonObject event(const QString& pMethod, const QJsonObject& pParams)
{
    QJsonObject tParams = pParams;
    for (QJsonValueRef tValue : tParams) {
        if (tValue.isString()) {
            tValue = singleLine(tValue.toString(), sMaxMessage);
        }
    }
    return call(pMethod, tParams);
}

} // namespace tarn::vkcore::protocol

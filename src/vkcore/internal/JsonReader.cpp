#include "internal/JsonReader.h"

using namespace Qt::StringLiterals;

namespace tarn::vkcore {

JsonReader::JsonReader(const QJsonValue& pFrom, QString* pFault) : JsonReader(pFrom, pFault, QString()) {}

JsonReader::JsonReader(const QJsonValue& pFrom, QString* pFault, const QString& pPath)
    : mObject(pFrom.toObject()), mFault(pFault), mPath(pPath.isEmpty() ? pPath : pPath + u'.')
{
    if (!pFrom.isObject()) {
        fail((pPath.isEmpty() ? u"it"_s : pPath) + u" is not an object"_s);
    }
}

void JsonReader::fail(const QString& pProblem)
{
    if (ok()) {
        *mFault = pProblem;
    }
}

void JsonReader::fail(const char* pName, const QString& pProblem)
{
    fail(mPath + QLatin1String(pName) + u' ' + pProblem);
}

void JsonReader::require(bool pHolds, const char* pName, const QString& pProblem)
{
    if (!pHolds) {
        fail(pName, pProblem);
    }
}

QJsonValue JsonReader::value(const char* pName)
{
    const QJsonValue tValue = ok() ? mObject.value(QLatin1String(pName)) : QJsonValue();
    require(!tValue.isUndefined(), pName, u"is missing"_s);
    return tValue;
}

QJsonValue JsonReader::member(const char* pName, QJsonValue::Type pType, const char* pKind)
{
    const QJsonValue tValue = value(pName);
    if (ok() && tValue.type() != pType) {
        fail(pName, "is not "_L1 + QLatin1String(pKind));
    }
    return ok() ? tValue : QJsonValue();
}

bool JsonReader::boolean(const char* pName)
{
    return member(pName, QJsonValue::Bool, "true or false").toBool();
}

qint64 JsonReader::integer(const char* pName, qint64 pLeast, qint64 pMost)
{
    const QJsonValue tValue = member(pName, QJsonValue::Double, "a number");
    // A number that is not an integer of 64 bits gives the default.
    const qint64 tNumber = tValue.toInteger(0);
    if (ok() && (tNumber != tValue.toInteger(1) || tNumber < pLeast || tNumber > pMost)) {
        fail(pName, u"is not a whole number from %1 to %2"_s.arg(pLeast).arg(pMost));
    }
    return ok() ? tNumber : 0;
}

QString JsonReader::text(const char* pName)
{
    return member(pName, QJsonValue::String, "a text").toString();
}

QString JsonReader::textOrNull(const char* pName)
{
    return value(pName).isNull() ? QString() : text(pName);
}

QStringList JsonReader::texts(const char* pName)
{
    QStringList tTexts;
    const QJsonArray tArray = array(pName);
    for (const QJsonValue tValue : tArray) {
        require(tValue.isString(), pName, u"holds something other than texts"_s);
        tTexts.append(tValue.toString());
    }
    return tTexts;
}

JsonReader JsonReader::object(const char* pName)
{
    const QJsonValue tValue = value(pName);
    return {ok() ? tValue : QJsonValue(), mFault, mPath + QLatin1String(pName)};
}

} // namespace tarn::vkcore

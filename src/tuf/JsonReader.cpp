#include "tuf/JsonReader.h"

using namespace Qt::StringLiterals;

namespace tarn::tuf {

void JsonReader::fail(const QString& pProblem)
{
    if (mProblem.isEmpty()) {
        mProblem = pProblem;
    }
}

QJsonValue JsonReader::member(const QJsonObject& pFrom, const char* pName, QJsonValue::Type pType)
{
    const QJsonValue tValue = pFrom.value(QLatin1String(pName));
    if (tValue.type() == pType) {
        return tValue;
    }
    fail((tValue.isUndefined() ? u"\"%1\" is missing"_s : u"\"%1\" is of a wrong type"_s)
             .arg(QLatin1String(pName)));
    return QJsonValue();
}

QJsonObject JsonReader::object(const QJsonObject& pFrom, const char* pName)
{
    return member(pFrom, pName, QJsonValue::Object).toObject();
}

QJsonArray JsonReader::array(const QJsonObject& pFrom, const char* pName)
{
    return member(pFrom, pName, QJsonValue::Array).toArray();
}

QString JsonReader::string(const QJsonObject& pFrom, const char* pName)
{
    return member(pFrom, pName, QJsonValue::String).toString();
}

bool JsonReader::boolean(const QJsonObject& pFrom, const char* pName)
{
    return member(pFrom, pName, QJsonValue::Bool).toBool();
}

qint64 JsonReader::integer(const QJsonObject& pFrom, const char* pName, qint64 pLeast)
{
    const QJsonValue tValue = member(pFrom, pName, QJsonValue::Double);
    const qint64 tNumber = tValue.toInteger(pLeast - 1);
    if (tNumber < pLeast) {
        fail(u"\"%1\" is not an integer of %2 or more"_s.arg(QLatin1String(pName)).arg(pLeast));
        return pLeast;
    }
    return tNumber;
}

QStringList JsonReader::strings(const QJsonObject& pFrom, const char* pName)
{
    QStringList tResult;
    const QJsonArray tArray = array(pFrom, pName);
    for (const QJsonValue tValue : tArray) {
        if (!tValue.isString()) {
            fail(u"\"%1\" has an element that is not a text"_s.arg(QLatin1String(pName)));
            break;
        }
        tResult.append(tValue.toString());
    }
    return tResult;
}

} // namespace tarn::tuf

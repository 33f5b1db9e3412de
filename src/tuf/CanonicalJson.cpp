#include "tuf/CanonicalJson.h"

#include <QtCore/QJsonArray>
#include <QtCore/QJsonObject>

#include <algorithm>
#include <utility>
#include <vector>

namespace tarn::tuf {

namespace {

bool append(const QJsonValue& pValue, QByteArray* pTo);

void appendUtf8(const QByteArray& pText, QByteArray* pTo)
{
    pTo->append('"');
    for (const char tByte : pText) {
        if (tByte == '"' || tByte == '\\') {
            pTo->append('\\');
        }
        pTo->append(tByte);
    }
    pTo->append('"');
}

bool appendString(const QString& pText, QByteArray* pTo)
{
    if (!pText.isValidUtf16()) {
        return false;
    }
    appendUtf8(pText.toUtf8(), pTo);
    return true;
}

bool appendNumber(const QJsonValue& pValue, QByteArray* pTo)
{
    // toInteger returns its default for everything except integers of 64 bits.
    const qint64 tNumber = pValue.toInteger(0);
    if (tNumber != pValue.toInteger(1)) {
        return false;
    }
    pTo->append(QByteArray::number(tNumber));
    return true;
}

bool appendArray(const QJsonArray& pArray, QByteArray* pTo)
{
    pTo->append('[');
    bool tFirst = true;
    for (const QJsonValue tValue : pArray) {
        if (!std::exchange(tFirst, false)) {
            pTo->append(',');
        }
        if (!append(tValue, pTo)) {
            return false;
        }
    }
    pTo->append(']');
    return true;
}

bool appendObject(const QJsonObject& pObject, QByteArray* pTo)
{
    // QJsonObject sorts by UTF-16 unit, which differs from code points beyond the basic plane.
    std::vector<std::pair<QByteArray, QJsonValue>> tMembers;
    tMembers.reserve(static_cast<size_t>(pObject.size()));
    for (auto tIt = pObject.constBegin(); tIt != pObject.constEnd(); ++tIt) {
        const QString tKey = tIt.key();
        if (!tKey.isValidUtf16()) {
            return false;
        }
        tMembers.emplace_back(tKey.toUtf8(), tIt.value());
    }
    std::sort(tMembers.begin(), tMembers.end(),
              [](const auto& pA, const auto& pB) { return pA.first < pB.first; });

    pTo->append('{');
    bool tFirst = true;
    for (const auto& [tKey, tValue] : tMembers) {
        if (!std::exchange(tFirst, false)) {
            pTo->append(',');
        }
        appendUtf8(tKey, pTo);
        pTo->append(':');
        if (!append(tValue, pTo)) {
            return false;
        }
    }
    pTo->append('}');
    return true;
}

bool append(const QJsonValue& pValue, QByteArray* pTo)
{
    switch (pValue.type()) {
    case QJsonValue::Null:
        pTo->append("null");
        return true;
    case QJsonValue::Bool:
        pTo->append(pValue.toBool() ? "true" : "false");
        return true;
    case QJsonValue::Double:
        return appendNumber(pValue, pTo);
    case QJsonValue::String:
        return appendString(pValue.toString(), pTo);
    case QJsonValue::Array:
        return appendArray(pValue.toArray(), pTo);
    case QJsonValue::Object:
        return appendObject(pValue.toObject(), pTo);
    case QJsonValue::Undefined:
        break;
    }
    return false;
}

} // namespace

bool canonicalJson(const QJsonValue& pValue, QByteArray* pTo)
{
    pTo->clear();
    return append(pValue, pTo);
}

} // namespace tarn::tuf

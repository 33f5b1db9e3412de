#pragma once

#include <QtCore/QJsonArray>
#include <QtCore/QJsonObject>
#include <QtCore/QString>
#include <QtCore/QStringList>

namespace tarn::tuf {

// Reads typed members of JSON objects and remembers the first error, so that a parser can check once at its
// end. A missing member, or one of a wrong type, reads as an empty value.
class JsonReader
{
public:
    bool failed() const { return !mProblem.isEmpty(); }
    const QString& problem() const { return mProblem; }
    void fail(const QString& pProblem);

    QJsonObject object(const QJsonObject& pFrom, const char* pName);
    QJsonArray array(const QJsonObject& pFrom, const char* pName);
    QString string(const QJsonObject& pFrom, const char* pName);
    bool boolean(const QJsonObject& pFrom, const char* pName);
    // An integer of at least pLeast.
    qint64 integer(const QJsonObject& pFrom, const char* pName, qint64 pLeast);
    QStringList strings(const QJsonObject& pFrom, const char* pName);

private:
    QJsonValue member(const QJsonObject& pFrom, const char* pName, QJsonValue::Type pType);

    QString mProblem;
};

} // namespace tarn::tuf

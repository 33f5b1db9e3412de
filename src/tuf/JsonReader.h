#pragma once

#include <QtCore/QJsonArray>
#include <QtCore/QJsonObject>
#include <QtCore/QString>
#include <QtCore/QStringList>

namespace tarn::tuf {

// Takes typed members out of JSON objects and remembers the first thing that was wrong, so that a parser can
// read straight on and ask once at its end. What is missing or of a wrong type reads as an empty value.
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
    // A whole number of pLeast or more.
    qint64 integer(const QJsonObject& pFrom, const char* pName, qint64 pLeast);
    QStringList strings(const QJsonObject& pFrom, const char* pName);

private:
    QJsonValue member(const QJsonObject& pFrom, const char* pName, QJsonValue::Type pType);

    QString mProblem;
};

} // namespace tarn::tuf

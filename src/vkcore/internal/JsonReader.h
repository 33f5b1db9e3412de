#pragma once

#include <QtCore/QJsonArray>
#include <QtCore/QJsonObject>
#include <QtCore/QJsonValue>
#include <QtCore/QString>
#include <QtCore/QStringList>

#include <limits>

namespace tarn::vkcore {

// Reads typed members of a JSON object. All readers of a document share one fault: the first error, with its
// path, "servers[2].uri is not a text". After it nothing is read and all values are empty, so that a parser
// can read all members and check once at its end. Unknown members are ignored.
class JsonReader
{
public:
    // The caller owns *pFault, which is empty if there is no error, and must outlive all readers.
    JsonReader(const QJsonValue& pFrom, QString* pFault);

    bool ok() const { return mFault->isEmpty(); }
    void fail(const QString& pProblem);
    // About a member: "is not a date".
    void fail(const char* pName, const QString& pProblem);
    // Sets a fault of the member unless the condition is true.
    void require(bool pHolds, const char* pName, const QString& pProblem);

    const QJsonObject& json() const { return mObject; }
    bool has(const char* pName) const { return mObject.contains(QLatin1String(pName)); }

    // Each of these members has to be there.
    QJsonValue value(const char* pName);
    bool boolean(const char* pName);
    // An integer.
    qint64 integer(const char* pName, qint64 pLeast, qint64 pMost = std::numeric_limits<qint64>::max());
    QString text(const char* pName);
    QString textOrNull(const char* pName);
    QStringList texts(const char* pName);
    JsonReader object(const char* pName);

    // Calls pRead(JsonReader&) for each entry of an array of objects.
    template <typename F>
    void each(const char* pName, F pRead)
    {
        const QJsonArray tArray = array(pName);
        for (qsizetype i = 0; i < tArray.size() && ok(); ++i) {
            JsonReader tEntry(tArray[i], mFault,
                              mPath + QLatin1String(pName) + u'[' + QString::number(i) + u']');
            pRead(tEntry);
        }
    }
    // Calls pRead(const QString& pName, JsonReader&) for each member of this object; the members are objects,
    // too.
    template <typename F>
    void eachMember(F pRead)
    {
        for (auto tIt = mObject.begin(); tIt != mObject.end() && ok(); ++tIt) {
            JsonReader tMember(tIt.value(), mFault, mPath + tIt.key().left(sMaxKey));
            pRead(tIt.key(), tMember);
        }
    }

private:
    static constexpr qsizetype sMaxKey = 80; // of a foreign name in a fault

    JsonReader(const QJsonValue& pFrom, QString* pFault, const QString& pPath);
    QJsonValue member(const char* pName, QJsonValue::Type pType, const char* pKind);
    QJsonArray array(const char* pName) { return member(pName, QJsonValue::Array, "an array").toArray(); }

    QJsonObject mObject;
    QString* mFault;
    QString mPath; // the prefix of the members' names
};

} // namespace tarn::vkcore

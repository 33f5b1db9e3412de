#include "packages/PackageInfo.h"

#include <QtCore/QJsonArray>
#include <QtCore/QJsonValue>
#include <QtCore/QRegularExpression>

using namespace Qt::StringLiterals;

namespace tarn::packages {

namespace {

constexpr qsizetype sMaxTitle = 1000;
constexpr qsizetype sMaxReport = 64 * 1024;
constexpr qsizetype sMaxPath = 4096;
constexpr qsizetype sMaxEntries = 1000; // languages of a text, required packages, executables

const QLatin1String sKinds[] = {"application"_L1, "data"_L1};

bool isName(const QString& pText)
{
    static const QRegularExpression sFormat(u"\\A[a-z0-9][a-z0-9._+-]{0,99}\\z"_s);
    return sFormat.match(pText).hasMatch();
}

bool isLanguage(const QString& pText)
{
    static const QRegularExpression sFormat(u"\\A[A-Za-z]{2,8}([_-][A-Za-z0-9]{1,8}){0,3}\\z"_s);
    return sFormat.match(pText).hasMatch();
}

bool isRelativePath(const QString& pText)
{
    if (pText.size() > sMaxPath || pText.contains(QChar(0))) {
        return false;
    }
    for (const QString& tPart : pText.split(u'/')) {
        if (tPart.isEmpty() || tPart == "."_L1 || tPart == ".."_L1) {
            return false;
        }
    }
    return true;
}

// Reads members of the object; keeps the first error.
class Reader
{
public:
    explicit Reader(const QJsonObject& pFrom) : mFrom(pFrom) {}

    const QString& problem() const { return mProblem; }

    void require(bool pCondition, const char* pName)
    {
        if (!pCondition && mProblem.isEmpty()) {
            mProblem = u"\"%1\" is missing or not valid"_s.arg(QLatin1String(pName));
        }
    }

    // Empty if the member is missing.
    QString string(const char* pName)
    {
        const QJsonValue tValue = mFrom.value(QLatin1String(pName));
        require(tValue.isString() || tValue.isUndefined(), pName);
        return tValue.toString();
    }

    QStringList strings(const char* pName, bool (*pIsValid)(const QString&))
    {
        const QJsonValue tValue = mFrom.value(QLatin1String(pName));
        const QJsonArray tArray = tValue.toArray();
        require((tValue.isArray() || tValue.isUndefined()) && tArray.size() <= sMaxEntries, pName);
        QStringList tResult;
        for (const QJsonValue tEntry : tArray) {
            require(tEntry.isString() && pIsValid(tEntry.toString()), pName);
            tResult.append(tEntry.toString());
        }
        return tResult;
    }

    vkcore::LangString texts(const char* pName, qsizetype pMaxLength)
    {
        const QJsonValue tValue = mFrom.value(QLatin1String(pName));
        const QJsonObject tObject = tValue.toObject();
        require((tValue.isObject() || tValue.isUndefined()) && tObject.size() <= sMaxEntries, pName);
        vkcore::LangString tResult;
        for (auto tIt = tObject.begin(); tIt != tObject.end(); ++tIt) {
            const QString tText = tIt.value().toString();
            require(tIt.value().isString() && isLanguage(tIt.key()) && tText.size() <= pMaxLength, pName);
            tResult.setValue(tIt.key(), tText);
        }
        return tResult;
    }

    Kind kind(const char* pName)
    {
        const QString tText = string(pName);
        require(tText == sKinds[0] || tText == sKinds[1], pName);
        return tText == sKinds[1] ? Kind::Data : Kind::Application;
    }

    vkcore::EnhVersion version(const char* pVersion, const char* pDate)
    {
        bool tOk = false;
        const vkcore::Version tVersion = vkcore::Version::fromString(string(pVersion), &tOk);
        require(tOk, pVersion);
        const QString tText = string(pDate);
        const QDateTime tDate = QDateTime::fromString(tText, Qt::ISODate);
        require(tText.isEmpty() || tDate.isValid(), pDate);
        return {tVersion, tDate};
    }

    qint64 size(const char* pName)
    {
        const QJsonValue tValue = mFrom.value(QLatin1String(pName));
        const qint64 tSize = tValue.isUndefined() ? 0 : tValue.toInteger(-1);
        require(tSize >= 0, pName);
        return tSize;
    }

private:
    const QJsonObject& mFrom;
    QString mProblem;
};

QJsonObject textsToJson(const vkcore::LangString& pTexts)
{
    QJsonObject tObject;
    for (auto tIt = pTexts.values().begin(); tIt != pTexts.values().end(); ++tIt) {
        tObject.insert(tIt.key(), tIt.value());
    }
    return tObject;
}

} // namespace

QJsonObject PackageInfo::toJson() const
{
    QJsonObject tObject{
        {u"name"_s, mName},
        {u"kind"_s, sKinds[mKind == Kind::Data ? 1 : 0]},
        {u"version"_s, mVersion.version().toString()},
        {u"title"_s, textsToJson(mTitle)},
        {u"installedSize"_s, mInstalledSize},
    };
    if (mVersion.date().isValid()) {
        tObject.insert(u"date"_s, mVersion.date().toUTC().toString(Qt::ISODate));
    }
    if (!mLanguage.isEmpty()) {
        tObject.insert(u"language"_s, mLanguage);
    }
    if (!mRequires.isEmpty()) {
        tObject.insert(u"requires"_s, QJsonArray::fromStringList(mRequires));
    }
    if (!mExecutables.isEmpty()) {
        tObject.insert(u"executables"_s, QJsonArray::fromStringList(mExecutables));
    }
    if (!mReport.isEmpty()) {
        tObject.insert(u"report"_s, textsToJson(mReport));
    }
    return tObject;
}

bool PackageInfo::fromJson(const QJsonObject& pFrom, PackageInfo* pTo, QString* pError)
{
    Reader tReader(pFrom);
    pTo->mName = tReader.string("name");
    tReader.require(isName(pTo->mName), "name");
    pTo->mKind = tReader.kind("kind");
    pTo->mVersion = tReader.version("version", "date");
    pTo->mTitle = tReader.texts("title", sMaxTitle);
    pTo->mLanguage = tReader.string("language");
    tReader.require(pTo->mLanguage.isEmpty() || isLanguage(pTo->mLanguage), "language");
    pTo->mRequires = tReader.strings("requires", isName);
    pTo->mExecutables = tReader.strings("executables", isRelativePath);
    pTo->mReport = tReader.texts("report", sMaxReport);
    pTo->mInstalledSize = tReader.size("installedSize");
    *pError = tReader.problem();
    return pError->isEmpty();
}

QString archiveName(const PackageInfo& pInfo)
{
    const QString tLanguage = pInfo.mLanguage.isEmpty() ? QString() : u'-' + pInfo.mLanguage;
    return u"%1-%2%3.tar.zst"_s.arg(pInfo.mName, pInfo.mVersion.version().toString(), tLanguage);
}

} // namespace tarn::packages

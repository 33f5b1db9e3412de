#include "packages/Manifest.h"

#include "packages/PackageFolders.h"

#include <QtCore/QJsonArray>
#include <QtCore/QJsonDocument>
#include <QtCore/QJsonObject>

namespace tarn::packages {

namespace {

using vkcore::LangString;
using Record = vkcore::InstallLogStore::Record;

constexpr int sFormat = 1;

QString dateText(const QDateTime& pDate)
{
    return pDate.isValid() ? pDate.toUTC().toString(Qt::ISODateWithMs) : QString();
}

QDateTime dateFrom(const QJsonValue& pFrom)
{
    return QDateTime::fromString(pFrom.toString(), Qt::ISODateWithMs);
}

// A null text stays apart from an empty one: a record without a parent is one of the top level.
QJsonValue textValue(const QString& pText)
{
    return pText.isNull() ? QJsonValue() : QJsonValue(pText);
}

QJsonObject langObject(const LangString& pText)
{
    QJsonObject tObject;
    for (auto tIt = pText.values().begin(); tIt != pText.values().end(); ++tIt) {
        tObject.insert(tIt.key(), tIt.value());
    }
    return tObject;
}

LangString langFrom(const QJsonValue& pFrom)
{
    LangString tText;
    const QJsonObject tObject = pFrom.toObject();
    for (auto tIt = tObject.begin(); tIt != tObject.end(); ++tIt) {
        tText.setValue(tIt.key(), tIt.value().toString());
    }
    return tText;
}

QJsonObject recordObject(const Record& pRecord)
{
    return {{QStringLiteral("package"), pRecord.mPackage},
            {QStringLiteral("parent"), textValue(pRecord.mParent)},
            {QStringLiteral("version"), pRecord.mVersion},
            {QStringLiteral("status"), pRecord.mStatus},
            {QStringLiteral("versionDate"), dateText(pRecord.mVersionDate)},
            {QStringLiteral("title"), langObject(pRecord.mTitle)},
            {QStringLiteral("report"), langObject(pRecord.mReport)}};
}

Record recordFrom(const QJsonObject& pFrom)
{
    Record tRecord;
    tRecord.mPackage = pFrom.value(QLatin1String("package")).toString();
    tRecord.mParent = pFrom.value(QLatin1String("parent")).toString();
    tRecord.mVersion = pFrom.value(QLatin1String("version")).toString();
    tRecord.mStatus = pFrom.value(QLatin1String("status")).toString();
    tRecord.mVersionDate = dateFrom(pFrom.value(QLatin1String("versionDate")));
    tRecord.mTitle = langFrom(pFrom.value(QLatin1String("title")));
    tRecord.mReport = langFrom(pFrom.value(QLatin1String("report")));
    return tRecord;
}

QJsonObject packageObject(const InstalledPackage& pPackage)
{
    return {{QStringLiteral("info"), pPackage.mInfo.toJson()},
            {QStringLiteral("hash"), QString::fromLatin1(pPackage.mHash.toHex())},
            {QStringLiteral("folder"), pPackage.mFolder},
            {QStringLiteral("parent"), textValue(pPackage.mParent)}};
}

bool packageFrom(const QJsonObject& pFrom, InstalledPackage* pTo, QString* pError)
{
    if (!PackageInfo::fromJson(pFrom.value(QLatin1String("info")).toObject(), &pTo->mInfo, pError)) {
        return false;
    }
    const auto tHash = tuf::Hash::fromHex(pFrom.value(QLatin1String("hash")).toString());
    pTo->mFolder = pFrom.value(QLatin1String("folder")).toString();
    pTo->mParent = pFrom.value(QLatin1String("parent")).toString();
    if (!tHash || !PackageFolders::isPlaceOf(pTo->mFolder, pTo->mInfo, *tHash)) {
        *pError =
            QStringLiteral("the hash or the folder of the package %1 is not right").arg(pTo->mInfo.mName);
        return false;
    }
    pTo->mHash = *tHash;
    return true;
}

} // namespace

const InstalledPackage* Manifest::find(const QString& pName) const
{
    for (const InstalledPackage& tPackage : mPackages) {
        if (tPackage.mInfo.mName == pName) {
            return &tPackage;
        }
    }
    return nullptr;
}

QStringList Manifest::folders() const
{
    QStringList tFolders;
    for (const InstalledPackage& tPackage : mPackages) {
        tFolders.append(tPackage.mFolder);
    }
    return tFolders;
}

QByteArray Manifest::toBytes() const
{
    QJsonArray tPackages;
    for (const InstalledPackage& tPackage : mPackages) {
        tPackages.append(packageObject(tPackage));
    }
    QJsonArray tRecords;
    for (const Record& tRecord : mRecords) {
        tRecords.append(recordObject(tRecord));
    }
    const QJsonObject tRoot{
        {QStringLiteral("format"), sFormat},          {QStringLiteral("generation"), mGeneration},
        {QStringLiteral("previous"), mPrevious},      {QStringLiteral("run"), mRunId},
        {QStringLiteral("date"), dateText(mRunDate)}, {QStringLiteral("records"), tRecords},
        {QStringLiteral("packages"), tPackages}};
    return QJsonDocument(tRoot).toJson();
}

bool Manifest::fromBytes(const QByteArray& pBytes, Manifest* pTo, QString* pError)
{
    QJsonParseError tParseError;
    const QJsonObject tRoot = QJsonDocument::fromJson(pBytes, &tParseError).object();
    if (tRoot.value(QLatin1String("format")).toInt() != sFormat) {
        *pError = tParseError.error == QJsonParseError::NoError ? QStringLiteral("it has an unknown format")
                                                                : tParseError.errorString();
        return false;
    }
    Manifest tManifest;
    tManifest.mGeneration = tRoot.value(QLatin1String("generation")).toInteger();
    tManifest.mPrevious = tRoot.value(QLatin1String("previous")).toInteger();
    tManifest.mRunId = tRoot.value(QLatin1String("run")).toString();
    tManifest.mRunDate = dateFrom(tRoot.value(QLatin1String("date"))).toLocalTime();
    const QJsonArray tRecords = tRoot.value(QLatin1String("records")).toArray();
    for (const QJsonValue tRecord : tRecords) {
        tManifest.mRecords.append(recordFrom(tRecord.toObject()));
    }
    const QJsonArray tPackages = tRoot.value(QLatin1String("packages")).toArray();
    for (const QJsonValue tValue : tPackages) {
        InstalledPackage tPackage;
        if (!packageFrom(tValue.toObject(), &tPackage, pError)) {
            return false;
        }
        tManifest.mPackages.append(tPackage);
    }
    *pTo = tManifest;
    return true;
}

} // namespace tarn::packages

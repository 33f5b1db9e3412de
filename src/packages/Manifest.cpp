#include "packages/Manifest.h"

#include "internal/LangStringJson.h"
#include "packages/PackageFolders.h"

#include <QtCore/QJsonArray>
#include <QtCore/QJsonDocument>
#include <QtCore/QJsonObject>

using namespace Qt::StringLiterals;

namespace tarn::packages {

namespace {

using vkcore::LogRecord;

constexpr int sFormat = 1;

QString dateText(const QDateTime& pDate)
{
    return pDate.isValid() ? pDate.toUTC().toString(Qt::ISODateWithMs) : QString();
}

QDateTime dateFrom(const QJsonValue& pFrom)
{
    return QDateTime::fromString(pFrom.toString(), Qt::ISODateWithMs);
}

// A null text differs from an empty one: a record without a parent is at the top level.
QJsonValue textValue(const QString& pText)
{
    return pText.isNull() ? QJsonValue() : QJsonValue(pText);
}

QJsonObject recordObject(const LogRecord& pRecord)
{
    return {{u"package"_s, pRecord.mPackage},
            {u"parent"_s, textValue(pRecord.mParent)},
            {u"version"_s, pRecord.mVersion},
            {u"status"_s, pRecord.mStatus},
            {u"versionDate"_s, dateText(pRecord.mVersionDate)},
            {u"title"_s, toJson(pRecord.mTitle)},
            {u"report"_s, toJson(pRecord.mReport)}};
}

LogRecord recordFrom(const QJsonObject& pFrom)
{
    LogRecord tRecord;
    tRecord.mPackage = pFrom.value("package"_L1).toString();
    tRecord.mParent = pFrom.value("parent"_L1).toString();
    tRecord.mVersion = pFrom.value("version"_L1).toString();
    tRecord.mStatus = pFrom.value("status"_L1).toString();
    tRecord.mVersionDate = dateFrom(pFrom.value("versionDate"_L1));
    tRecord.mTitle = vkcore::langStringFrom(pFrom.value("title"_L1).toObject());
    tRecord.mReport = vkcore::langStringFrom(pFrom.value("report"_L1).toObject());
    return tRecord;
}

QJsonObject packageObject(const InstalledPackage& pPackage)
{
    return {{u"info"_s, pPackage.mInfo.toJson()},
            {u"hash"_s, QString::fromLatin1(pPackage.mHash.toHex())},
            {u"folder"_s, pPackage.mFolder},
            {u"parent"_s, textValue(pPackage.mParent)}};
}

Result<InstalledPackage> packageFrom(const QJsonObject& pFrom)
{
    const Result<PackageInfo> tInfo = PackageInfo::fromJson(pFrom.value("info"_L1).toObject());
    if (!tInfo) {
        return tInfo.failure();
    }
    const auto tHash = tuf::Hash::fromHex(pFrom.value("hash"_L1).toString());
    const QString tFolder = pFrom.value("folder"_L1).toString();
    if (!tHash || !PackageFolders::isPlaceOf(tFolder, *tInfo, *tHash)) {
        return Failure::content(u"the hash or the folder of the package %1 is invalid"_s.arg(tInfo->mName));
    }
    return InstalledPackage{
        .mInfo = *tInfo, .mHash = *tHash, .mFolder = tFolder, .mParent = pFrom.value("parent"_L1).toString()};
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
    for (const LogRecord& tRecord : mRecords) {
        tRecords.append(recordObject(tRecord));
    }
    const QJsonObject tRoot{{u"format"_s, sFormat},          {u"generation"_s, mGeneration},
                            {u"previous"_s, mPrevious},      {u"run"_s, mRunId},
                            {u"date"_s, dateText(mRunDate)}, {u"records"_s, tRecords},
                            {u"packages"_s, tPackages}};
    return QJsonDocument(tRoot).toJson();
}

Result<Manifest> Manifest::fromBytes(const QByteArray& pBytes)
{
    QJsonParseError tParseError;
    const QJsonObject tRoot = QJsonDocument::fromJson(pBytes, &tParseError).object();
    if (tRoot.value("format"_L1).toInt() != sFormat) {
        return Failure::content(tParseError.error == QJsonParseError::NoError ? u"it has an unknown format"_s
                                                                              : tParseError.errorString());
    }
    Manifest tManifest;
    tManifest.mGeneration = tRoot.value("generation"_L1).toInteger();
    tManifest.mPrevious = tRoot.value("previous"_L1).toInteger();
    tManifest.mRunId = tRoot.value("run"_L1).toString();
    tManifest.mRunDate = dateFrom(tRoot.value("date"_L1)).toLocalTime();
    const QJsonArray tRecords = tRoot.value("records"_L1).toArray();
    for (const QJsonValue tRecord : tRecords) {
        tManifest.mRecords.append(recordFrom(tRecord.toObject()));
    }
    const QJsonArray tPackages = tRoot.value("packages"_L1).toArray();
    for (const QJsonValue tValue : tPackages) {
        const Result<InstalledPackage> tPackage = packageFrom(tValue.toObject());
        if (!tPackage) {
            return tPackage.failure();
        }
        tManifest.mPackages.append(*tPackage);
    }
    return tManifest;
}

} // namespace tarn::packages

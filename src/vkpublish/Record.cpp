#include "Record.h"

#include <QtCore/QJsonArray>
#include <QtCore/QJsonDocument>

namespace tarn::vkpublish {

namespace {

constexpr int sFormat = 1;

const QString sFormatName = QStringLiteral("format");
const QString sKeys = QStringLiteral("keys");
const QString sVersions = QStringLiteral("versions");
const QString sRootName = QStringLiteral("root");
const QString sTargetsName = QStringLiteral("targets");
const QString sPublishedTargets = QStringLiteral("publishedTargets");
const QString sWithdrawnTargets = QStringLiteral("withdrawnTargets");
const QString sTargetsFile = QStringLiteral("targetsFile");
const QString sSnapshotFile = QStringLiteral("snapshotFile");
const QString sTimestampExpires = QStringLiteral("timestampExpires");
const QString sRetiring = QStringLiteral("retiringKeys");
const QString sRole = QStringLiteral("role");
const QString sFile = QStringLiteral("file");
const QString sUntil = QStringLiteral("until");
const QString sUnreferenced = QStringLiteral("unreferenced");
const QString sMeta = QStringLiteral("meta");
const QString sExpires = QStringLiteral("expires");

QString dateToJson(const QDateTime& pDate)
{
    return pDate.toUTC().toString(Qt::ISODate);
}

QDateTime dateFromJson(const QJsonValue& pValue)
{
    return QDateTime::fromString(pValue.toString(), Qt::ISODate);
}

QJsonObject fileToJson(const PublishedFile& pFile)
{
    return QJsonObject{{sMeta, pFile.mMeta}, {sExpires, dateToJson(pFile.mExpires)}};
}

PublishedFile fileFromJson(const QJsonValue& pValue)
{
    const QJsonObject tObject = pValue.toObject();
    return PublishedFile{tObject[sMeta].toObject(), dateFromJson(tObject[sExpires])};
}

QJsonArray retiringToJson(const QList<RetiringKey>& pKeys)
{
    QJsonArray tArray;
    for (const RetiringKey& tKey : pKeys) {
        tArray.append(
            QJsonObject{{sRole, tKey.mRole}, {sFile, tKey.mFile}, {sUntil, dateToJson(tKey.mUntil)}});
    }
    return tArray;
}

QList<RetiringKey> retiringFromJson(const QJsonValue& pValue)
{
    QList<RetiringKey> tKeys;
    const QJsonArray tArray = pValue.toArray();
    for (const QJsonValue tKey : tArray) {
        tKeys.append({tKey[sRole].toString(), tKey[sFile].toString(), dateFromJson(tKey[sUntil])});
    }
    return tKeys;
}

} // namespace

QByteArray Record::toJson() const
{
    QJsonObject tKeys;
    for (auto tIt = mKeyFiles.begin(); tIt != mKeyFiles.end(); ++tIt) {
        tKeys.insert(tIt.key(), tIt.value());
    }
    QJsonObject tVersions;
    for (auto tIt = mVersions.begin(); tIt != mVersions.end(); ++tIt) {
        tVersions.insert(tIt.key(), tIt.value());
    }
    QJsonObject tUnreferenced;
    for (auto tIt = mUnreferenced.begin(); tIt != mUnreferenced.end(); ++tIt) {
        tUnreferenced.insert(tIt.key(), dateToJson(tIt.value()));
    }
    return QJsonDocument(QJsonObject{{sFormatName, sFormat},
                                     {sKeys, tKeys},
                                     {sVersions, tVersions},
                                     {sRootName, QString::fromUtf8(mRoot)},
                                     {sTargetsName, mTargets},
                                     {sPublishedTargets, mPublishedTargets},
                                     {sWithdrawnTargets, mWithdrawnTargets},
                                     {sTargetsFile, fileToJson(mPublishedTargetsFile)},
                                     {sSnapshotFile, fileToJson(mPublishedSnapshot)},
                                     {sTimestampExpires, dateToJson(mTimestampExpires)},
                                     {sRetiring, retiringToJson(mRetiring)},
                                     {sUnreferenced, tUnreferenced}})
        .toJson();
}

bool Record::fromJson(const QByteArray& pText, Record* pTo)
{
    const QJsonObject tObject = QJsonDocument::fromJson(pText).object();
    if (tObject[sFormatName].toInt() != sFormat || !tObject[sTargetsName].isObject()) {
        return false;
    }
    const QJsonObject tKeys = tObject[sKeys].toObject();
    for (auto tIt = tKeys.begin(); tIt != tKeys.end(); ++tIt) {
        pTo->mKeyFiles.insert(tIt.key(), tIt.value().toString());
    }
    const QJsonObject tVersions = tObject[sVersions].toObject();
    for (auto tIt = tVersions.begin(); tIt != tVersions.end(); ++tIt) {
        pTo->mVersions.insert(tIt.key(), tIt.value().toInteger());
    }
    pTo->mRoot = tObject[sRootName].toString().toUtf8();
    pTo->mTargets = tObject[sTargetsName].toObject();
    pTo->mPublishedTargets = tObject[sPublishedTargets].toObject();
    pTo->mWithdrawnTargets = tObject[sWithdrawnTargets].toObject();
    pTo->mPublishedTargetsFile = fileFromJson(tObject[sTargetsFile]);
    pTo->mPublishedSnapshot = fileFromJson(tObject[sSnapshotFile]);
    pTo->mTimestampExpires = dateFromJson(tObject[sTimestampExpires]);
    pTo->mRetiring = retiringFromJson(tObject[sRetiring]);
    const QJsonObject tUnreferenced = tObject[sUnreferenced].toObject();
    for (auto tIt = tUnreferenced.begin(); tIt != tUnreferenced.end(); ++tIt) {
        pTo->mUnreferenced.insert(tIt.key(), dateFromJson(tIt.value()));
    }
    return true;
}

} // namespace tarn::vkpublish

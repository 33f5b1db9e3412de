#include "record/Record.h"

#include <QtCore/QJsonArray>
#include <QtCore/QJsonDocument>

using namespace Qt::StringLiterals;

namespace tarn::vkpublish {

namespace {

constexpr int sFormat = 1;

const QString sFormatName = u"format"_s;
const QString sKeys = u"keys"_s;
const QString sVersions = u"versions"_s;
const QString sRootName = u"root"_s;
const QString sTargetsName = u"targets"_s;
const QString sPublishedTargets = u"publishedTargets"_s;
const QString sWithdrawnTargets = u"withdrawnTargets"_s;
const QString sTargetsFile = u"targetsFile"_s;
const QString sSnapshotFile = u"snapshotFile"_s;
const QString sCarriedTargets = u"carriedTargets"_s;
const QString sTimestampExpires = u"timestampExpires"_s;
const QString sRetiring = u"retiringKeys"_s;
const QString sRole = u"role"_s;
const QString sFile = u"file"_s;
const QString sUntil = u"until"_s;
const QString sUnreferenced = u"unreferenced"_s;
const QString sMeta = u"meta"_s;
const QString sExpires = u"expires"_s;

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
                                     {sCarriedTargets, fileToJson(mCarriedTargets)},
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
    pTo->mCarriedTargets = fileFromJson(tObject[sCarriedTargets]);
    pTo->mTimestampExpires = dateFromJson(tObject[sTimestampExpires]);
    pTo->mRetiring = retiringFromJson(tObject[sRetiring]);
    const QJsonObject tUnreferenced = tObject[sUnreferenced].toObject();
    for (auto tIt = tUnreferenced.begin(); tIt != tUnreferenced.end(); ++tIt) {
        pTo->mUnreferenced.insert(tIt.key(), dateFromJson(tIt.value()));
    }
    return true;
}

} // namespace tarn::vkpublish

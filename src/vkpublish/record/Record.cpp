#include "record/Record.h"

#include "tuf/Metadata.h"

#include <QtCore/QJsonArray>
#include <QtCore/QJsonDocument>

using namespace Qt::StringLiterals;

namespace tarn::vkpublish {

namespace {

constexpr int sFormat = 2;
constexpr int sEarlierFormat = 1; // with the packages, and a file of its key for each role

const QString sFormatName = u"format"_s;
const QString sKeys = u"keys"_s;
const QString sLostKeys = u"lostKeys"_s;
const QString sRetiringRoots = u"retiringRoots"_s;
const QString sVersions = u"versions"_s;
const QString sRootName = u"root"_s;
const QString sTargetsName = u"targets"_s;
const QString sPublishedTargets = u"publishedTargets"_s;
const QString sWithdrawnTargets = u"withdrawnTargets"_s;
const QString sLists = u"packages"_s;
const QString sPublishedList = u"published"_s;
const QString sWithdrawnList = u"withdrawn"_s;
const QString sChangesList = u"changes"_s;
const QString sNumber = u"number"_s;
const QString sCount = u"count"_s;
const QString sTargetsFile = u"targetsFile"_s;
const QString sSnapshotFile = u"snapshotFile"_s;
const QString sCarriedTargets = u"carriedTargets"_s;
const QString sTimestampExpires = u"timestampExpires"_s;
const QString sSignedAt = u"signedAt"_s;
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

QJsonObject listToJson(const ListFile& pFile)
{
    return QJsonObject{{sNumber, pFile.mNumber}, {sCount, pFile.mCount}};
}

ListFile listFromJson(const QJsonValue& pValue)
{
    return ListFile{pValue[sNumber].toInteger(), pValue[sCount].toInteger()};
}

// False for a target that can't be signed.
bool targetsFromJson(const QJsonValue& pValue, TargetList* pTo)
{
    *pTo = TargetList(pValue.toObject());
    return !pTo->canonical().isEmpty();
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

QJsonArray rootsToJson(const QList<RetiringRoot>& pRoots)
{
    QJsonArray tArray;
    for (const RetiringRoot& tRoot : pRoots) {
        tArray.append(
            QJsonObject{{sRootName, QString::fromUtf8(tRoot.mRoot)}, {sUntil, dateToJson(tRoot.mUntil)}});
    }
    return tArray;
}

QList<RetiringRoot> rootsFromJson(const QJsonValue& pValue)
{
    QList<RetiringRoot> tRoots;
    const QJsonArray tArray = pValue.toArray();
    for (const QJsonValue tRoot : tArray) {
        tRoots.append({tRoot[sRootName].toString().toUtf8(), dateFromJson(tRoot[sUntil])});
    }
    return tRoots;
}

QJsonObject keysToJson(const QMap<QString, KeySource>& pKeys)
{
    QJsonObject tKeys;
    for (auto tIt = pKeys.begin(); tIt != pKeys.end(); ++tIt) {
        tKeys.insert(tIt.key(), QJsonObject{{sFile, tIt->mFile}});
    }
    return tKeys;
}

QMap<QString, KeySource> keysFromJson(const QJsonValue& pValue)
{
    QMap<QString, KeySource> tKeys;
    const QJsonObject tObject = pValue.toObject();
    for (auto tIt = tObject.begin(); tIt != tObject.end(); ++tIt) {
        tKeys.insert(tIt.key(), {.mFile = tIt.value()[sFile].toString()});
    }
    return tKeys;
}

// Of a record that names a file for each role: the root says whose key it is.
bool keysFromRoles(const QJsonValue& pValue, const QByteArray& pRoot, QMap<QString, KeySource>* pTo)
{
    tuf::Root tRoot;
    if (tuf::parseRoot(pRoot, &tRoot)) {
        return false;
    }
    const QJsonObject tRoles = pValue.toObject();
    for (auto tIt = tRoles.begin(); tIt != tRoles.end(); ++tIt) {
        const QStringList tIds = tRoot.mRoles.value(tIt.key()).mKeyIds;
        if (tIds.size() != 1) {
            return false;
        }
        pTo->insert(tIds.first(), {.mFile = tIt.value().toString()});
    }
    return true;
}

QStringList textsFromJson(const QJsonValue& pValue)
{
    return pValue.toVariant().toStringList();
}

} // namespace

QByteArray Record::toJson() const
{
    QJsonObject tVersions;
    for (auto tIt = mVersions.begin(); tIt != mVersions.end(); ++tIt) {
        tVersions.insert(tIt.key(), tIt.value());
    }
    QJsonObject tUnreferenced;
    for (auto tIt = mUnreferenced.begin(); tIt != mUnreferenced.end(); ++tIt) {
        tUnreferenced.insert(tIt.key(), dateToJson(tIt.value()));
    }
    const QJsonObject tLists{{sPublishedList, listToJson(mPublishedFile)},
                             {sWithdrawnList, listToJson(mWithdrawnFile)},
                             {sChangesList, listToJson(mChangesFile)}};
    return QJsonDocument(QJsonObject{{sFormatName, sFormat},
                                     {sKeys, keysToJson(mKeys)},
                                     {sLostKeys, QJsonArray::fromStringList(mLostKeys)},
                                     {sVersions, tVersions},
                                     {sRootName, QString::fromUtf8(mRoot)},
                                     {sLists, tLists},
                                     {sTargetsFile, fileToJson(mPublishedTargetsFile)},
                                     {sSnapshotFile, fileToJson(mPublishedSnapshot)},
                                     {sCarriedTargets, fileToJson(mCarriedTargets)},
                                     {sTimestampExpires, dateToJson(mTimestampExpires)},
                                     {sSignedAt, dateToJson(mSignedAt)},
                                     {sRetiringRoots, rootsToJson(mRetiringRoots)},
                                     {sRetiring, retiringToJson(mRetiringKeys)},
                                     {sUnreferenced, tUnreferenced}})
        .toJson();
}

bool Record::isNewer(const QByteArray& pText)
{
    return QJsonDocument::fromJson(pText)[sFormatName].toInt() > sFormat;
}

bool Record::fromJson(const QByteArray& pText, Record* pTo)
{
    const QJsonObject tObject = QJsonDocument::fromJson(pText).object();
    const int tFormat = tObject[sFormatName].toInt();
    if (tFormat == sFormat) {
        const QJsonValue tLists = tObject[sLists];
        pTo->mPublishedFile = listFromJson(tLists[sPublishedList]);
        pTo->mWithdrawnFile = listFromJson(tLists[sWithdrawnList]);
        pTo->mChangesFile = listFromJson(tLists[sChangesList]);
        if (pTo->mChangesFile.mNumber < 1) {
            return false;
        }
    } else if (tFormat != sEarlierFormat || !tObject[sTargetsName].isObject() ||
               !targetsFromJson(tObject[sTargetsName], &pTo->mTargets) ||
               !targetsFromJson(tObject[sPublishedTargets], &pTo->mPublishedTargets) ||
               !targetsFromJson(tObject[sWithdrawnTargets], &pTo->mWithdrawnTargets)) {
        return false;
    }
    pTo->mRoot = tObject[sRootName].toString().toUtf8();
    if (tFormat == sFormat) {
        pTo->mKeys = keysFromJson(tObject[sKeys]);
    } else if (!keysFromRoles(tObject[sKeys], pTo->mRoot, &pTo->mKeys)) {
        return false;
    }
    pTo->mLostKeys = textsFromJson(tObject[sLostKeys]);
    const QJsonObject tVersions = tObject[sVersions].toObject();
    for (auto tIt = tVersions.begin(); tIt != tVersions.end(); ++tIt) {
        pTo->mVersions.insert(tIt.key(), tIt.value().toInteger());
    }
    pTo->mPublishedTargetsFile = fileFromJson(tObject[sTargetsFile]);
    pTo->mPublishedSnapshot = fileFromJson(tObject[sSnapshotFile]);
    pTo->mCarriedTargets = fileFromJson(tObject[sCarriedTargets]);
    pTo->mTimestampExpires = dateFromJson(tObject[sTimestampExpires]);
    pTo->mSignedAt = dateFromJson(tObject[sSignedAt]);
    pTo->mRetiringRoots = rootsFromJson(tObject[sRetiringRoots]);
    pTo->mRetiringKeys = retiringFromJson(tObject[sRetiring]);
    const QJsonObject tUnreferenced = tObject[sUnreferenced].toObject();
    for (auto tIt = tUnreferenced.begin(); tIt != tUnreferenced.end(); ++tIt) {
        pTo->mUnreferenced.insert(tIt.key(), dateFromJson(tIt.value()));
    }
    return true;
}

} // namespace tarn::vkpublish

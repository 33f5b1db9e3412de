#include "keys/Roles.h"

#include "keys/SigningTime.h"

#include "tuf/Hashes.h"
#include "tuf/Metadata.h"

#include <QtCore/QJsonArray>

using namespace Qt::StringLiterals;

namespace tarn::vkpublish {

namespace {

QJsonObject signedPart(const QString& pType, qint64 pVersion, const QDateTime& pExpires)
{
    return QJsonObject{{u"_type"_s, pType},
                       {u"spec_version"_s, u"1.0.31"_s},
                       {u"version"_s, pVersion},
                       {u"expires"_s, pExpires.toUTC().toString(Qt::ISODate)}};
}

QJsonObject metaMap(const QString& pName, const QJsonObject& pMeta)
{
    return QJsonObject{{pName + ".json"_L1, pMeta}};
}

} // namespace

const QStringList& roleNames()
{
    static const QStringList sNames{tuf::sRoot, tuf::sTargets, tuf::sSnapshot, tuf::sTimestamp};
    return sNames;
}

QByteArray makeRoot(qint64 pVersion, const QDateTime& pExpires, const QMap<QString, tuf::SigningKey>& pKeys,
                    const std::optional<tuf::SigningKey>& pOldRootKey)
{
    QJsonObject tKeys;
    QJsonObject tRoles;
    for (auto tIt = pKeys.begin(); tIt != pKeys.end(); ++tIt) {
        tKeys.insert(tIt->id(), tIt->publicJson());
        tRoles.insert(tIt.key(), QJsonObject{{u"keyids"_s, QJsonArray{tIt->id()}}, {u"threshold"_s, 1}});
    }
    QJsonObject tSigned = signedPart(tuf::sRoot, pVersion, pExpires);
    tSigned.insert(u"consistent_snapshot"_s, true);
    tSigned.insert(u"keys"_s, tKeys);
    tSigned.insert(u"roles"_s, tRoles);
    QList<tuf::SigningKey> tSigners{*pKeys.constFind(tuf::sRoot)};
    if (pOldRootKey && pOldRootKey->id() != tSigners.first().id()) {
        tSigners.append(*pOldRootKey);
    }
    return tuf::signMetadata(tSigned, tSigners);
}

QByteArray makeTargets(qint64 pVersion, const QDateTime& pExpires, const QJsonObject& pTargets,
                       const QList<tuf::SigningKey>& pKeys)
{
    QJsonObject tSigned = signedPart(tuf::sTargets, pVersion, pExpires);
    tSigned.insert(u"targets"_s, pTargets);
    return tuf::signMetadata(tSigned, pKeys);
}

QByteArray makeSnapshot(qint64 pVersion, const QDateTime& pExpires, const QJsonObject& pTargetsMeta,
                        const QList<tuf::SigningKey>& pKeys)
{
    QJsonObject tSigned = signedPart(tuf::sSnapshot, pVersion, pExpires);
    tSigned.insert(u"meta"_s, metaMap(tuf::sTargets, pTargetsMeta));
    return tuf::signMetadata(tSigned, pKeys);
}

QByteArray makeTimestamp(qint64 pVersion, const QDateTime& pExpires, const QJsonObject& pSnapshotMeta,
                         qint64 pTargetsVersion, const QList<tuf::SigningKey>& pKeys)
{
    QJsonObject tSigned = signedPart(tuf::sTimestamp, pVersion, pExpires);
    tSigned.insert(u"meta"_s, metaMap(tuf::sSnapshot, pSnapshotMeta));
    tSigned.insert(u"signed_at"_s, signingTime().toString(Qt::ISODate));
    tSigned.insert(u"targets_version"_s, pTargetsVersion);
    return tuf::signMetadata(tSigned, pKeys);
}

QJsonObject metaOf(qint64 pVersion, const QByteArray& pFile)
{
    return QJsonObject{{u"version"_s, pVersion},
                       {u"length"_s, pFile.size()},
                       {u"hashes"_s, QJsonObject{{u"sha256"_s, QString::fromLatin1(tuf::sha256(pFile))}}}};
}

} // namespace tarn::vkpublish

#include "Roles.h"

#include "tuf/Hashes.h"
#include "tuf/Metadata.h"

#include <QtCore/QJsonArray>

namespace tarn::vkpublish {

namespace {

QJsonObject signedPart(const QString& pType, qint64 pVersion, const QDateTime& pExpires)
{
    return QJsonObject{{QStringLiteral("_type"), pType},
                       {QStringLiteral("spec_version"), QStringLiteral("1.0.31")},
                       {QStringLiteral("version"), pVersion},
                       {QStringLiteral("expires"), pExpires.toUTC().toString(Qt::ISODate)}};
}

QJsonObject metaMap(const QString& pName, const QJsonObject& pMeta)
{
    return QJsonObject{{pName + QLatin1String(".json"), pMeta}};
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
        tRoles.insert(tIt.key(), QJsonObject{{QStringLiteral("keyids"), QJsonArray{tIt->id()}},
                                             {QStringLiteral("threshold"), 1}});
    }
    QJsonObject tSigned = signedPart(tuf::sRoot, pVersion, pExpires);
    tSigned.insert(QStringLiteral("consistent_snapshot"), true);
    tSigned.insert(QStringLiteral("keys"), tKeys);
    tSigned.insert(QStringLiteral("roles"), tRoles);
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
    tSigned.insert(QStringLiteral("targets"), pTargets);
    return tuf::signMetadata(tSigned, pKeys);
}

QByteArray makeSnapshot(qint64 pVersion, const QDateTime& pExpires, const QJsonObject& pTargetsMeta,
                        const QList<tuf::SigningKey>& pKeys)
{
    QJsonObject tSigned = signedPart(tuf::sSnapshot, pVersion, pExpires);
    tSigned.insert(QStringLiteral("meta"), metaMap(tuf::sTargets, pTargetsMeta));
    return tuf::signMetadata(tSigned, pKeys);
}

QByteArray makeTimestamp(qint64 pVersion, const QDateTime& pExpires, const QJsonObject& pSnapshotMeta,
                         const QList<tuf::SigningKey>& pKeys)
{
    QJsonObject tSigned = signedPart(tuf::sTimestamp, pVersion, pExpires);
    tSigned.insert(QStringLiteral("meta"), metaMap(tuf::sSnapshot, pSnapshotMeta));
    tSigned.insert(QStringLiteral("signed_at"), QDateTime::currentDateTimeUtc().toString(Qt::ISODate));
    return tuf::signMetadata(tSigned, pKeys);
}

QJsonObject metaOf(qint64 pVersion, const QByteArray& pFile)
{
    return QJsonObject{{QStringLiteral("version"), pVersion},
                       {QStringLiteral("length"), pFile.size()},
                       {QStringLiteral("hashes"),
                        QJsonObject{{QStringLiteral("sha256"), QString::fromLatin1(tuf::sha256(pFile))}}}};
}

} // namespace tarn::vkpublish

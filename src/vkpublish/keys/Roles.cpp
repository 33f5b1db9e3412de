#include "keys/Roles.h"

#include "keys/SigningTime.h"

#include "tuf/CanonicalJson.h"
#include "tuf/Hashes.h"
#include "tuf/Metadata.h"

using namespace Qt::StringLiterals;

namespace tarn::vkpublish {

namespace {

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

QJsonObject signedPart(const QString& pType, qint64 pVersion, const QDateTime& pExpires)
{
    return QJsonObject{{u"_type"_s, pType},
                       {u"spec_version"_s, u"1.0.31"_s},
                       {u"version"_s, pVersion},
                       {u"expires"_s, pExpires.toUTC().toString(Qt::ISODate)}};
}

QByteArray targetsPart(qint64 pVersion, const QDateTime& pExpires, const TargetList& pTargets)
{
    QJsonObject tSigned = signedPart(tuf::sTargets, pVersion, pExpires);
    tSigned.insert(u"targets"_s, QJsonObject());
    QByteArray tText;
    const QByteArray tTargets = pTargets.canonical();
    if (!tuf::canonicalJson(tSigned, &tText) || tTargets.isEmpty()) {
        return QByteArray();
    }
    const QByteArray tEmpty("\"targets\":{}");
    return tText.replace(tText.indexOf(tEmpty), tEmpty.size(), "\"targets\":" + tTargets);
}

Result<QByteArray> makeTargets(qint64 pVersion, const QDateTime& pExpires, const TargetList& pTargets,
                               const QList<Signer>& pKeys)
{
    return signCanonical(targetsPart(pVersion, pExpires, pTargets), pKeys);
}

Result<QByteArray> makeSnapshot(qint64 pVersion, const QDateTime& pExpires, const QJsonObject& pTargetsMeta,
                                const QList<Signer>& pKeys)
{
    QJsonObject tSigned = signedPart(tuf::sSnapshot, pVersion, pExpires);
    tSigned.insert(u"meta"_s, metaMap(tuf::sTargets, pTargetsMeta));
    return signMetadata(tSigned, pKeys);
}

Result<QByteArray> makeTimestamp(qint64 pVersion, const QDateTime& pExpires, const QJsonObject& pSnapshotMeta,
                                 qint64 pTargetsVersion, const QList<Signer>& pKeys)
{
    QJsonObject tSigned = signedPart(tuf::sTimestamp, pVersion, pExpires);
    tSigned.insert(u"meta"_s, metaMap(tuf::sSnapshot, pSnapshotMeta));
    tSigned.insert(u"signed_at"_s, signingTime().toString(Qt::ISODate));
    tSigned.insert(u"targets_version"_s, pTargetsVersion);
    return signMetadata(tSigned, pKeys);
}

QJsonObject metaOf(qint64 pVersion, const QByteArray& pFile)
{
    return QJsonObject{{u"version"_s, pVersion},
                       {u"length"_s, pFile.size()},
                       {u"hashes"_s, QJsonObject{{u"sha256"_s, QString::fromLatin1(tuf::sha256(pFile))}}}};
}

} // namespace tarn::vkpublish

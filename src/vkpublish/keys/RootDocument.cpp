#include "keys/RootDocument.h"

#include "keys/Roles.h"

#include "tuf/CanonicalJson.h"
#include "tuf/Metadata.h"
#include "tuf/SigningKey.h"

#include <QtCore/QJsonArray>
#include <QtCore/QJsonDocument>
#include <QtCore/QSet>

#include <algorithm>

using namespace Qt::StringLiterals;

namespace tarn::vkpublish {

namespace {

const QString sKeys = u"keys"_s;
const QString sRoles = u"roles"_s;
const QString sKeyIds = u"keyids"_s;
const QString sThreshold = u"threshold"_s;

} // namespace

Result<RootDocument> RootDocument::read(const QByteArray& pFile)
{
    tuf::Root tRoot;
    if (Failure tFailure = tuf::parseRoot(pFile, &tRoot)) {
        return tFailure;
    }
    RootDocument tDocument;
    tDocument.mSigned = QJsonDocument::fromJson(pFile)["signed"_L1].toObject();
    return tDocument;
}

qint64 RootDocument::version() const
{
    return mSigned["version"_L1].toInteger();
}

QDateTime RootDocument::expires() const
{
    return QDateTime::fromString(mSigned["expires"_L1].toString(), Qt::ISODate);
}

QJsonObject RootDocument::role(const QString& pRole) const
{
    return mSigned[sRoles][pRole].toObject();
}

QStringList RootDocument::keyIds(const QString& pRole) const
{
    return role(pRole)[sKeyIds].toVariant().toStringList();
}

qint64 RootDocument::threshold(const QString& pRole) const
{
    return role(pRole)[sThreshold].toInteger(1);
}

QJsonObject RootDocument::publicJson(const QString& pId) const
{
    return mSigned[sKeys][pId].toObject();
}

void RootDocument::setRole(const QString& pRole, const QStringList& pIds, qint64 pThreshold)
{
    QJsonObject tRoles = mSigned[sRoles].toObject();
    QJsonObject tRole = tRoles[pRole].toObject();
    tRole.insert(sKeyIds, QJsonArray::fromStringList(pIds));
    tRole.insert(sThreshold, pThreshold);
    tRoles.insert(pRole, tRole);
    mSigned.insert(sRoles, tRoles);
}

void RootDocument::addKey(const QString& pRole, const QJsonObject& pPublicJson)
{
    const QString tId = tuf::keyId(pPublicJson);
    QStringList tIds = keyIds(pRole);
    if (tIds.contains(tId)) {
        return;
    }
    QJsonObject tKeys = mSigned[sKeys].toObject();
    tKeys.insert(tId, pPublicJson);
    mSigned.insert(sKeys, tKeys);
    setRole(pRole, tIds << tId, threshold(pRole));
}

void RootDocument::removeKey(const QString& pRole, const QString& pId)
{
    QStringList tIds = keyIds(pRole);
    tIds.removeAll(pId);
    setRole(pRole, tIds, threshold(pRole));
    const QStringList& tRoles = roleNames();
    if (std::none_of(tRoles.begin(), tRoles.end(),
                     [&](const QString& pOther) { return keyIds(pOther).contains(pId); })) {
        QJsonObject tKeys = mSigned[sKeys].toObject();
        tKeys.remove(pId);
        mSigned.insert(sKeys, tKeys);
    }
}

void RootDocument::setThreshold(const QString& pRole, qint64 pThreshold)
{
    setRole(pRole, keyIds(pRole), pThreshold);
}

bool RootDocument::signsLike(const RootDocument& pOther) const
{
    const QStringList& tRoles = roleNames();
    return std::all_of(tRoles.begin(), tRoles.end(), [&](const QString& pRole) {
        return pRole == tuf::sRoot || role(pRole) == pOther.role(pRole);
    });
}

QByteArray RootDocument::payload(qint64 pVersion, const QDateTime& pExpires) const
{
    QJsonObject tSigned = signedPart(tuf::sRoot, pVersion, pExpires);
    tSigned.insert(u"consistent_snapshot"_s, true);
    tSigned.insert(sKeys, mSigned[sKeys]);
    tSigned.insert(sRoles, mSigned[sRoles]);
    QByteArray tPayload;
    tuf::canonicalJson(tSigned, &tPayload);
    return tPayload;
}

} // namespace tarn::vkpublish

#include "review/RoleReview.h"

#include "keys/Roles.h"

#include "tuf/SigningKey.h"

#include <QtCore/QJsonArray>

using namespace Qt::StringLiterals;

namespace tarn::vkpublish {

namespace {

QStringList idsOf(const QJsonObject& pRole)
{
    return pRole["keyids"_L1].toVariant().toStringList();
}

QString needed(const QJsonObject& pRole)
{
    return u"%1 of %2"_s.arg(pRole["threshold"_L1].toInteger()).arg(idsOf(pRole).size());
}

QString key(const QJsonObject& pRoot, const QString& pId)
{
    const QString tKind = pRoot["keys"_L1][pId]["scheme"_L1].toString();
    return pId + u"  "_s + (tKind.isEmpty() ? u"(no such key)"_s : tKind);
}

QStringList reviewRole(const QString& pRole, const QJsonObject& pNew, const QJsonObject& pBefore)
{
    const QJsonObject tNew = pNew["roles"_L1][pRole].toObject();
    const QJsonObject tBefore = pBefore["roles"_L1][pRole].toObject();
    const QString tName = roleNames().contains(pRole) ? pRole : u"unknown role \"%1\""_s.arg(pRole);
    QStringList tLines{u"%1: %2 keys must sign"_s.arg(tName, needed(tNew))};
    if (!tBefore.isEmpty() && needed(tBefore) != needed(tNew)) {
        tLines.first() += u", before: "_s + needed(tBefore);
    }
    const QStringList tOldIds = idsOf(tBefore);
    for (const QString& tId : idsOf(tNew)) {
        const bool tStays = tOldIds.contains(tId) && pNew["keys"_L1][tId] == pBefore["keys"_L1][tId];
        tLines.append((tStays ? u"  stays    "_s : u"  NEW      "_s) + key(pNew, tId));
    }
    for (const QString& tId : tOldIds) {
        if (!idsOf(tNew).contains(tId)) {
            tLines.append(u"  REMOVED  "_s + key(pBefore, tId));
        }
    }
    return tLines;
}

// A person compares ids, so each must be that of its key. Machines do not care.
QStringList reviewIds(const QJsonObject& pRoot)
{
    const QJsonObject tKeys = pRoot["keys"_L1].toObject();
    QStringList tLines;
    for (auto tIt = tKeys.begin(); tIt != tKeys.end(); ++tIt) {
        const QString tId = tuf::keyId(tIt.value().toObject());
        if (tId != tIt.key()) {
            tLines.append(
                u"WARNING: what is called key %1 is another key, whose id is %2"_s.arg(tIt.key(), tId));
        }
    }
    return tLines;
}

} // namespace

QStringList reviewKeys(const QJsonObject& pNew, const QJsonObject& pBefore)
{
    QStringList tRoles = roleNames();
    tRoles += pNew["roles"_L1].toObject().keys();
    tRoles += pBefore["roles"_L1].toObject().keys();
    tRoles.removeDuplicates();
    QStringList tLines;
    for (const QString& tRole : tRoles) {
        tLines += reviewRole(tRole, pNew, pBefore);
    }
    tLines += reviewIds(pNew);
    if (!pNew["consistent_snapshot"_L1].toBool()) {
        tLines.append(u"WARNING: files would have no versions in their names"_s);
    }
    return tLines;
}

} // namespace tarn::vkpublish

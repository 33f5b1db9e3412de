#include "tuf/DelegationSearch.h"

#include "tuf/Hashes.h"
#include "tuf/PathPattern.h"

#include <algorithm>

using namespace Qt::StringLiterals;

namespace tarn::tuf {

namespace {

bool isFor(const DelegatedRole& pRole, const QString& pPath, const QString& pPathHash)
{
    return std::any_of(pRole.mPaths.begin(), pRole.mPaths.end(),
                       [&](const QString& pPattern) { return matchesPattern(pPath, pPattern); }) ||
           std::any_of(pRole.mHashPrefixes.begin(), pRole.mHashPrefixes.end(),
                       [&](const QString& pPrefix) { return pPathHash.startsWith(pPrefix); });
}

// "PREFIX-0a": as many hex digits as the highest number needs.
QString succinctName(const SuccinctRoles& pRoles, quint64 pNumber)
{
    const int tDigits = (pRoles.mBitLength + 3) / 4;
    return u"%1-%2"_s.arg(pRoles.mNamePrefix).arg(pNumber, tDigits, 16, '0'_L1);
}

} // namespace

QList<RoleChoice> rolesForTarget(const Delegations& pDelegations, const QString& pPath)
{
    const QString tHash = QString::fromLatin1(sha256(pPath.toUtf8()));
    if (pDelegations.mSuccinct) {
        const quint64 tLead = tHash.left(8).toULongLong(nullptr, 16);
        return {{succinctName(*pDelegations.mSuccinct, tLead >> (32 - pDelegations.mSuccinct->mBitLength)),
                 true}};
    }
    QList<RoleChoice> tChoices;
    for (const DelegatedRole& tRole : pDelegations.mRoles) {
        if (isFor(tRole, pPath, tHash)) {
            tChoices.append({tRole.mName, tRole.mTerminating});
            if (tRole.mTerminating) {
                break;
            }
        }
    }
    return tChoices;
}

QStringList delegatedRoleNames(const Delegations& pDelegations, int pMax)
{
    QStringList tNames;
    if (pDelegations.mSuccinct) {
        const quint64 tCount = quint64(1) << pDelegations.mSuccinct->mBitLength;
        for (quint64 i = 0; i < tCount && tNames.size() < pMax; ++i) {
            tNames.append(succinctName(*pDelegations.mSuccinct, i));
        }
        return tNames;
    }
    for (qsizetype i = 0; i < pDelegations.mRoles.size() && tNames.size() < pMax; ++i) {
        tNames.append(pDelegations.mRoles[i].mName);
    }
    return tNames;
}

const RoleKeys* keysOfRole(const Delegations& pDelegations, const QString& pRole)
{
    if (pDelegations.mSuccinct) {
        // Only rolesForTarget and delegatedRoleNames make these names, so checking the prefix is enough.
        return pRole.startsWith(pDelegations.mSuccinct->mNamePrefix + u'-') ? &pDelegations.mSuccinct->mKeys
                                                                            : nullptr;
    }
    const auto tFound = std::find_if(pDelegations.mRoles.begin(), pDelegations.mRoles.end(),
                                     [&](const DelegatedRole& pOther) { return pOther.mName == pRole; });
    return tFound != pDelegations.mRoles.end() ? &tFound->mKeys : nullptr;
}

} // namespace tarn::tuf

#pragma once

#include "tuf/Metadata.h"

#include <QtCore/QList>
#include <QtCore/QString>
#include <QtCore/QStringList>

namespace tarn::tuf {

struct RoleChoice
{
    QString mRole;
    bool mTerminating = false; // no role after this one is searched
};

// The roles that are responsible for a target's path, in search order; a terminating one is the last.
QList<RoleChoice> rolesForTarget(const Delegations& pDelegations, const QString& pPath);

// The names of all roles, or the first pMax of them.
QStringList delegatedRoleNames(const Delegations& pDelegations, int pMax);

// Who must sign the role; null if it is not delegated to.
const RoleKeys* keysOfRole(const Delegations& pDelegations, const QString& pRole);

} // namespace tarn::tuf

#pragma once

#include "tuf/Metadata.h"

#include <QtCore/QList>
#include <QtCore/QString>
#include <QtCore/QStringList>

namespace tarn::tuf {

struct RoleChoice
{
    QString mRole;
    bool mTerminating = false; // no role behind this one is to be asked
};

// The roles that may speak for a target's path, in the order to ask them; a terminating one is the last.
QList<RoleChoice> rolesForTarget(const Delegations& pDelegations, const QString& pPath);

// The names of all roles, or the first pMax of them.
QStringList delegatedRoleNames(const Delegations& pDelegations, int pMax);

// Who must sign the role; null if it is not delegated to.
const RoleKeys* keysOfRole(const Delegations& pDelegations, const QString& pRole);

} // namespace tarn::tuf

#pragma once

#include "internal/Failure.h"
#include "tuf/RoleFiles.h"
#include "tuf/TargetFile.h"

#include <QtCore/QList>
#include <QtCore/QString>
#include <QtCore/QStringList>

#include <optional>

namespace tarn::tuf {

// Searches the target roles, and brings delegated ones as needed: depth first, a role before those that it
// delegates to, these in their order.
class TargetSearch
{
public:
    // pRoles must be refreshed.
    TargetSearch(RoleFiles& pRoles, int pMaxDelegations) : mRoles(pRoles), mMaxDelegations(pMaxDelegations) {}

    // No value: no role offers it.
    Result<std::optional<TargetFile>> find(const QString& pPath);
    Result<QList<TargetFile>> all();

private:
    // In the order of find, as if every role might have the target.
    Result<QStringList> everyRole();
    TargetFile complete(TargetFile pTarget, const QString& pRole) const;

    RoleFiles& mRoles;
    int mMaxDelegations;
};

} // namespace tarn::tuf

#include "tuf/TargetSearch.h"

#include "tuf/DelegationSearch.h"
#include "tuf/Names.h"

#include <QtCore/QSet>

#include <algorithm>

using namespace Qt::StringLiterals;

namespace tarn::tuf {

namespace {

struct Visit
{
    QString mRole;
    QString mDelegator;
};

} // namespace

Result<std::optional<TargetFile>> TargetSearch::find(const QString& pPath)
{
    QList<Visit> tToVisit{{sTargets, sRoot}}; // the last one is next
    QSet<QString> tVisited;
    while (!tToVisit.isEmpty() && tVisited.size() <= mMaxDelegations) {
        const auto [tRole, tDelegator] = tToVisit.takeLast();
        if (tVisited.contains(tRole)) {
            continue;
        }
        if (Failure tFailure = mRoles.bringTargets(tRole, tDelegator)) {
            return tFailure;
        }
        tVisited.insert(tRole);
        const Targets* tTargets = mRoles.trusted().targets(tRole);
        const auto tFound = tTargets->mTargets.constFind(pPath);
        if (tFound != tTargets->mTargets.constEnd()) {
            return std::optional(complete(*tFound, tRole));
        }
        const QList<RoleChoice> tChoices = rolesForTarget(tTargets->mDelegations, pPath);
        if (!tChoices.isEmpty() && tChoices.last().mTerminating) {
            tToVisit.clear();
        }
        for (auto tIt = tChoices.crbegin(); tIt != tChoices.crend(); ++tIt) {
            tToVisit.append({tIt->mRole, tRole});
        }
    }
    return std::optional<TargetFile>();
}

Result<QStringList> TargetSearch::everyRole()
{
    QStringList tRoles;
    QList<Visit> tToVisit{{sTargets, sRoot}};
    while (!tToVisit.isEmpty()) {
        const auto [tRole, tDelegator] = tToVisit.takeLast();
        if (Failure tFailure = mRoles.bringTargets(tRole, tDelegator)) {
            return tFailure;
        }
        if (tRoles.contains(tRole)) {
            continue;
        }
        if (tRoles.size() > mMaxDelegations) {
            return Failure::untrusted(
                u"The repository has more than %1 delegated roles"_s.arg(mMaxDelegations));
        }
        tRoles.append(tRole);
        const QStringList tNames =
            delegatedRoleNames(mRoles.trusted().targets(tRole)->mDelegations, mMaxDelegations + 1);
        for (auto tIt = tNames.crbegin(); tIt != tNames.crend(); ++tIt) {
            tToVisit.append({*tIt, tRole});
        }
    }
    return tRoles;
}

Result<QList<TargetFile>> TargetSearch::all()
{
    const Result<QStringList> tRoles = everyRole();
    if (!tRoles) {
        return tRoles.failure();
    }
    QSet<QString> tPaths;
    for (const QString& tRole : *tRoles) {
        for (const TargetFile& tTarget : mRoles.trusted().targets(tRole)->mTargets) {
            tPaths.insert(tTarget.mPath);
        }
    }
    QList<TargetFile> tAll;
    for (const QString& tPath : tPaths) {
        const Result<std::optional<TargetFile>> tTarget = find(tPath);
        if (!tTarget) {
            return tTarget.failure();
        }
        if (*tTarget) {
            tAll.append(**tTarget);
            tAll.last().mRoleRank = static_cast<int>(tRoles->indexOf(tAll.last().mRole));
        }
    }
    std::sort(tAll.begin(), tAll.end(),
              [](const TargetFile& pA, const TargetFile& pB) { return pA.mPath < pB.mPath; });
    return tAll;
}

TargetFile TargetSearch::complete(TargetFile pTarget, const QString& pRole) const
{
    pTarget.mRole = pRole;
    pTarget.mFetchPath =
        targetFetchPath(pTarget.mPath, pTarget.mHashes, mRoles.trusted().root()->mConsistentSnapshot);
    return pTarget;
}

} // namespace tarn::tuf

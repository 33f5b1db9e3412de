#include "update/RefusedPackages.h"

#include "update/Eligibility.h"

#include <algorithm>

namespace tarn::vkservice::update {

using vkcore::protocol::LeftOutPackage;
using vkcore::protocol::PackageVersion;

LeftOutPackages withRefused(LeftOutPackages pBefore, const QList<packages::Refusal>& pRefused)
{
    for (const packages::Refusal& tRefusal : pRefused) {
        pBefore = withoutRefused(std::move(pBefore), tRefusal.mName);
        pBefore.removeIf([&tRefusal](const LeftOutPackage& pPackage) { // what it waited for has come
            return pPackage.mName == tRefusal.mName && pPackage.mVersion == tRefusal.mVersion;
        });
    }
    for (const packages::Refusal& tRefusal : pRefused) {
        pBefore.append({.mName = tRefusal.mName,
                        .mVersion = tRefusal.mVersion,
                        .mReason = wordOf(Reason::Refused),
                        .mRequired = {},
                        .mDate = {},
                        .mSecurity = tRefusal.mIsFix ? std::optional(true) : std::nullopt});
    }
    return pBefore;
}

QList<PackageVersion> withLost(QList<PackageVersion> pPending, const QList<packages::Refusal>& pRefused)
{
    for (const packages::Refusal& tRefusal : pRefused) {
        const auto tIsKnown = std::any_of(pPending.begin(), pPending.end(), [&](const PackageVersion& pFix) {
            return pFix.mName == tRefusal.mName;
        });
        if (tRefusal.mIsFix && !tIsKnown) {
            pPending.append({tRefusal.mName, tRefusal.mVersion});
        }
    }
    return pPending;
}

LeftOutPackages withoutRefused(LeftOutPackages pBefore, const QString& pPackage)
{
    pBefore.removeIf([&pPackage](const LeftOutPackage& pLeftOut) {
        return pLeftOut.mName == pPackage && pLeftOut.mReason == wordOf(Reason::Refused);
    });
    return pBefore;
}

} // namespace tarn::vkservice::update

#include "update/Offers.h"

#include <QtCore/QHash>

using namespace Qt::StringLiterals;

namespace tarn::vkservice::update {

namespace {

using tuf::TargetFile;

constexpr qsizetype sMaxWarnings = 20;

// The name in the target's data, even if the target is unusable.
QString claimedName(const TargetFile& pTarget)
{
    return pTarget.mCustom.value("name"_L1).toString();
}

using OwnerMap = QHash<QString, const TargetFile*>; // package name -> a target of the role that has it

OwnerMap findOwners(const QList<TargetFile>& pTargets)
{
    OwnerMap tOwners;
    for (const TargetFile& tTarget : pTargets) {
        const TargetFile*& tOwner = tOwners[claimedName(tTarget)];
        if (tOwner == nullptr || tTarget.mRoleRank < tOwner->mRoleRank) {
            tOwner = &tTarget;
        }
    }
    return tOwners;
}

// A failure if the target is not an installable package.
Result<Offer> readOffer(const TargetFile& pTarget, const OwnerMap& pOwners)
{
    const auto tInfo = packages::PackageInfo::fromJson(pTarget.mCustom);
    if (!tInfo) {
        return tInfo.failure();
    }
    const QString tFileName = packages::archiveName(*tInfo);
    if (pTarget.mPath.section(u'/', -1) != tFileName) {
        return Failure::content(u"the file of this package must be named \"%1\""_s.arg(tFileName));
    }
    const TargetFile* tOwner = pOwners.value(tInfo->mName);
    if (tOwner->mRoleRank != pTarget.mRoleRank) {
        return Failure::content(
            u"the package name \"%1\" belongs to the role \"%2\", and the role \"%3\" may not "
            "use it"_s.arg(tInfo->mName, tOwner->mRole, pTarget.mRole));
    }
    return Offer{*tInfo, pTarget};
}

} // namespace

QList<Offer> usableOffers(const QList<TargetFile>& pTargets, QStringList* pWarnings)
{
    const OwnerMap tOwners = findOwners(pTargets);
    QList<Offer> tOffers;
    qsizetype tUnusable = 0;
    for (const TargetFile& tTarget : pTargets) {
        if (tTarget.mCustom.isEmpty()) {
            continue;
        }
        const Result<Offer> tOffer = readOffer(tTarget, tOwners);
        if (tOffer) {
            tOffers.append(*tOffer);
        } else if (++tUnusable <= sMaxWarnings) {
            pWarnings->append(u"%1: %2"_s.arg(tTarget.mPath, tOffer.failure().mText));
        }
    }
    if (tUnusable > sMaxWarnings) {
        pWarnings->append(u"%1 more files"_s.arg(tUnusable - sMaxWarnings));
    }
    return tOffers;
}

} // namespace tarn::vkservice::update

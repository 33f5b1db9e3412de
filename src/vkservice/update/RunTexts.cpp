#include "update/RunTexts.h"

#include <algorithm>

using namespace Qt::StringLiterals;

namespace tarn::vkservice::update {

Trouble serversFault(const Plan& pPlan)
{
    for (const PlannedPackage& tPackage : pPlan.mPackages) {
        if (tPackage.mTrouble.isServersFault() && !tPackage.mIsFollowUp) {
            return tPackage.mTrouble;
        }
    }
    return {};
}

QString successText(int pInstalled)
{
    if (pInstalled == 0) {
        return u"All packages are up to date."_s;
    }
    return pInstalled == 1 ? u"1 package was updated."_s : u"%1 packages were updated."_s.arg(pInstalled);
}

QString troubleText(const Trouble& pTrouble)
{
    const QString tText = pTrouble.mKind == Trouble::Kind::OutOfDate
                              ? u"Every update server that answered is out of date."_s
                              : resultText(pTrouble.code());
    if (pTrouble.mText.isEmpty() || pTrouble.mKind == Trouble::Kind::Canceled) {
        return tText;
    }
    return u"%1 %2."_s.arg(tText, pTrouble.mText);
}

ResultCode failedPackagesCode(const Plan& pPlan)
{
    bool tAllUnreachable = true;
    for (const PlannedPackage& tPackage : pPlan.mPackages) {
        if (tPackage.mTrouble.code() == ResultVerificationFailed) {
            return ResultVerificationFailed;
        }
        tAllUnreachable = tAllUnreachable && tPackage.mTrouble.code() == ResultUnreachable;
    }
    return tAllUnreachable ? ResultUnreachable : ResultInstallFailed;
}

QString failedPackagesText(const Plan& pPlan)
{
    const auto tIt =
        std::find_if(pPlan.mPackages.begin(), pPlan.mPackages.end(), [](const PlannedPackage& pPackage) {
            return pPackage.mTrouble && !pPackage.mIsFollowUp;
        });
    return u"%1 %2 of %3 packages could not be updated. %4: %5."_s.arg(resultText(failedPackagesCode(pPlan)))
        .arg(pPlan.failedCount())
        .arg(pPlan.mPackages.size())
        .arg(tIt->name(), tIt->mTrouble.mText);
}

} // namespace tarn::vkservice::update

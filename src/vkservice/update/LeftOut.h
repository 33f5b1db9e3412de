#pragma once

#include "internal/PackageValues.h"
#include "update/Eligibility.h"
#include "update/Selection.h"

#include <QtCore/QDateTime>
#include <QtCore/QList>
#include <QtCore/QString>

namespace tarn::vkservice::update {

struct Plan;

struct LeftOutParts
{
    const QList<Offer>& mOffers;
    const QList<Verdict>& mVerdicts; // of the offers
    const OfferMap& mChosen;
    const packages::Manifest& mInstalled;
    const packages::PackageFolders& mFolders;
    const Wishes& mWishes;
};

// The packages that this machine would install if nothing kept them back: for each name and reason the best
// one that is better than what is chosen. At most 10000. Packages of other channels are not for this machine
// and not in it.
QList<vkcore::protocol::LeftOutPackage> leftOut(const LeftOutParts& pParts);
// When the first phase reaches this machine; invalid: it waits for none.
QDateTime nextTurn(const QList<Verdict>& pVerdicts);

// The security fixes of the plan that are not installed, each name once.
QList<vkcore::protocol::PackageVersion> pendingFixes(const Plan& pPlan, const packages::Manifest& pInstalled);

// "2 packages are held or wait for their phase."; empty for an empty list.
QString leftOutText(const QList<vkcore::protocol::LeftOutPackage>& pPackages);

} // namespace tarn::vkservice::update

#include "update/Admission.h"

#include "update/Plan.h"

namespace tarn::vkservice::update {

QList<Offer> admitted(const QList<Offer>& pOffers, const packages::Refusals& pRefusals)
{
    QList<Offer> tAdmitted = pOffers;
    tAdmitted.removeIf([&](const Offer& pOffer) { return pRefusals.has(pOffer.hash()); });
    return tAdmitted;
}

QStringList leftOut(const QList<Offer>& pOffers, const packages::Refusals& pRefusals, const Plan& pPlan)
{
    QStringList tNames;
    for (const Offer& tOffer : pOffers) {
        const auto tChosen = pPlan.mChosen.constFind(tOffer.mInfo.mName);
        if (pRefusals.has(tOffer.hash()) &&
            (tChosen == pPlan.mChosen.constEnd() || tChosen->mVersion < tOffer.mInfo.mVersion)) {
            tNames.append(tOffer.mInfo.mName + u' ' + tOffer.mInfo.mVersion.version().toString());
        }
    }
    tNames.sort();
    return tNames;
}

} // namespace tarn::vkservice::update

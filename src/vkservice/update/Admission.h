#pragma once

#include "packages/Refusals.h"
#include "update/Offers.h"

namespace tarn::vkservice::update {

struct Plan;

// The offers without those that this machine has refused.
QList<Offer> admitted(const QList<Offer>& pOffers, const packages::Refusals& pRefusals);

// The refused offers that the plan would have preferred: "viewer 2.0.0.0".
QStringList leftOut(const QList<Offer>& pOffers, const packages::Refusals& pRefusals, const Plan& pPlan);

} // namespace tarn::vkservice::update

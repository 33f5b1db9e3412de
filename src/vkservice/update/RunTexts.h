#pragma once

#include "update/Plan.h"

namespace tarn::vkservice::update {

// The trouble that a server is to blame for, if any of the plan's packages has one; another server may
// have what is missing.
Trouble serversFault(const Plan& pPlan);

// For the result of a run.
QString successText(int pInstalled);
QString troubleText(const Trouble& pTrouble);
ResultCode failedPackagesCode(const Plan& pPlan);
QString failedPackagesText(const Plan& pPlan);

} // namespace tarn::vkservice::update

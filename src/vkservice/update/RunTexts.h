#pragma once

#include "update/Plan.h"
#include "values/ResultCode.h"

namespace tarn::vkservice::update {

// The failure that a server is to blame for, if any of the plan's packages has one; another server may
// have what is missing.
Failure serversFault(const Plan& pPlan);

// For the result of a run.
QString successText(int pInstalled);
QString failureText(const Failure& pFailure);
ResultCode failedPackagesCode(const Plan& pPlan);
QString failedPackagesText(const Plan& pPlan);

} // namespace tarn::vkservice::update

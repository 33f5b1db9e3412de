#pragma once

#include "update/RunRequest.h"

namespace tarn::vkservice::update {

class RunParts;
struct Attempt;
struct Plan;

RunResult failed(const Failure& pFailure);
// Records what the run has done, and says so.
RunResult concluded(RunParts& pParts, Attempt* pAttempt);
// Of the archives of the packages that were installed.
qint64 installedBytes(const Plan& pPlan);

} // namespace tarn::vkservice::update

#pragma once

#include "internal/Failure.h"
#include "packages/Manifest.h"

namespace tarn::vkservice::update {

class RunParts;
class Workplace;
struct Plan;

// The generation that the plan leads to.
packages::Manifest nextGeneration(Workplace& pWorkplace, const Plan& pPlan);

// Makes it the current one, and proves it. A failure, and the one before is in use.
Failure switchTo(RunParts& pParts, const Plan& pPlan);

} // namespace tarn::vkservice::update

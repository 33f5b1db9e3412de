#pragma once

#include "internal/Failure.h"

namespace tarn::vkservice::update {

class Orders;
struct Plan;
struct SupplyParts;

// Downloads what the publisher has to say about the security fixes in the plan, for the install log. Without
// its advisory a package is installed all the same, and the log says that it is missing. A returned failure
// is one of this machine or an abort, and ends the run.
Failure fetchAdvisories(const SupplyParts& pParts, Orders& pOrders, Plan* pPlan);

} // namespace tarn::vkservice::update

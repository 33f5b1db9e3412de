#pragma once

#include "deltas/PackageVersion.h"

namespace tarn::vkpublish {

// Which segments a delta has, without their bytes: first the text of the index, then every file whose hash
// the old version does not have, once.
std::vector<trees::Segment> planDelta(const PackageVersion& pOld, const PackageVersion& pNew);

} // namespace tarn::vkpublish

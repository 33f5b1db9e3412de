#pragma once

#include "trees/Tree.h"

#include <vector>

namespace tarn::vkpublish {

// Finds the old files that new ones were probably made from: each time the one at the same path, else one
// whose path or name differs in its digits alone, else one that is gone, has the same suffix and nearly the
// same size.
//
// For each of pFiles, which are entries of the new version, the place of the old file; -1 for none. Needs
// memory for pFiles, not for what has not changed.
std::vector<qint64> counterparts(const trees::Tree& pOld, const trees::Tree& pNew,
                                 const std::vector<size_t>& pFiles);

} // namespace tarn::vkpublish

#pragma once

#include "packages/PackageInfo.h"

namespace tarn::vkpublish {

struct Record;

// Marks a later version of a security fix like the version that brought it, unless it has a later fix of its
// own, so that it does not hide the fix from machines that take fixes alone. Lower versions of the same name
// and language count, withdrawn ones included. It gets the advisory of that version, too, if it has none and
// the file is still there.
void carryFixOn(const Record& pRecord, const QString& pTargets, packages::PackageInfo* pInfo);

} // namespace tarn::vkpublish

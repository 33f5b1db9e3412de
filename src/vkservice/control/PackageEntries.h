#pragma once

#include "internal/PackageValues.h"

namespace tarn::packages {
struct InstalledPackage;
struct PackageCheck;
} // namespace tarn::packages

namespace tarn::vkservice::control {

// An installed package for clients, with its title in this language. Not checked, so far.
vkcore::protocol::PackageEntry entryOf(const packages::InstalledPackage& pPackage, const QString& pLanguage);
// What a verification has said about it. pInDetail: with what is wrong.
void addCheck(const packages::PackageCheck& pCheck, bool pInDetail, vkcore::protocol::PackageEntry* pTo);

} // namespace tarn::vkservice::control

#pragma once

#include "packages/Manifest.h"
#include "packages/PackageFolders.h"
#include "update/Plan.h"

namespace tarn::vkservice::update {

// The entries of the install log for what a run did: one for each package of the plan, and one for each other
// package of which only children were updated.
QList<vkcore::LogRecord> runRecords(const Plan& pPlan);

// The plan's packages without trouble, as they will be installed.
QList<packages::InstalledPackage> newPackages(const Plan& pPlan, const packages::PackageFolders& pFolders);

// What is installed when the plan's packages without trouble are: these, and all others as they were.
QList<packages::InstalledPackage> packagesAfter(const packages::Manifest& pBefore, const Plan& pPlan,
                                                const packages::PackageFolders& pFolders);

} // namespace tarn::vkservice::update

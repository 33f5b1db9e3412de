#pragma once

#include "packages/Manifest.h"

namespace tarn::packages {
class PackageFolders;
class Refusals;
} // namespace tarn::packages

namespace tarn::vkservice::update {

struct Plan;

// The entries of the install log for a run: one for each package of the plan, and one for each other package
// of which only children were updated.
QList<vkcore::LogRecord> runRecords(const Plan& pPlan);

// Those for the way back from a run: its entries, of which pChanged, the packages that it had installed, say
// why they are not in use.
QList<vkcore::LogRecord> recordsOfWayBack(const packages::Manifest& pRun,
                                          const QList<packages::InstalledPackage>& pChanged,
                                          const packages::Refusals& pRefusals);

// The plan's packages that have not failed, as they will be installed.
QList<packages::InstalledPackage> newPackages(const Plan& pPlan, const packages::PackageFolders& pFolders);

// The installed packages after the run: the plan's packages that have not failed, and all others unchanged.
QList<packages::InstalledPackage> packagesAfter(const packages::Manifest& pBefore, const Plan& pPlan,
                                                const packages::PackageFolders& pFolders);

} // namespace tarn::vkservice::update

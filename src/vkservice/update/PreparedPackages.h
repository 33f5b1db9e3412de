#pragma once

#include "internal/Failure.h"

namespace tarn::packages {
struct InstalledPackage;
}
namespace tarn::trees {
class IndexStore;
}
namespace tarn::os {
class AbortFlag;
class FileSystem;
} // namespace tarn::os

namespace tarn::vkservice::update {

class Reporter;
class Workplace;
struct Plan;
struct PlannedPackage;

struct PreparedParts
{
    os::FileSystem& mFileSystem;
    Workplace& mWorkplace;
    const trees::IndexStore& mIndexes;
    Reporter& mReporter;
    const os::AbortFlag& mAbort;
};

// Packages that stand in their staging folders from one run to a later one, which installs them. What was
// recorded about them is never trusted: each file is compared with the signed index of the plan first. A
// package without an index can't be proven so, and is unpacked again from its verified archive.
class PreparedPackages
{
public:
    explicit PreparedPackages(const PreparedParts& pParts) : mParts(pParts) {}

    // Marks those packages of the plan that an earlier run has prepared, and removes all others that it has.
    // A failure only after an abort.
    Failure adopt(Plan* pPlan);
    // Keeps what is staged now for the next run. What can't be proven is left to the next tidying.
    Failure keep(const Plan& pPlan);
    // To be called when they are installed.
    void forget();

private:
    Result<bool> isProven(const PlannedPackage& pPackage) const;

    PreparedParts mParts;
};

} // namespace tarn::vkservice::update

#pragma once

#include "packages/Generations.h"

#include <functional>

namespace tarn::packages {
class PackageFolders;
}
namespace tarn::os {
class AbortFlag;
class FileSystem;
} // namespace tarn::os

namespace tarn::vkservice::update {

class Reporter;
struct Offer;
struct Plan;
struct PlannedPackage;

// Unpacks the verified archives of a plan into staging folders, several at a time. Packages that are staged
// already are left alone.
class Preparation
{
public:
    Preparation(os::FileSystem& pFileSystem, const packages::PackageFolders& pFolders, Reporter& pReporter,
                const os::AbortFlag& pAbort);

    // If the contents of a package cannot be unpacked, its failure is stored in the plan. The return value is
    // a failure of this machine or an abort, and ends the run.
    Failure unpack(Plan* pPlan, const std::function<QString(const Offer&)>& pArchiveOf);

    // Marks what an earlier plan of this run has staged.
    static void takeOver(const Plan& pEarlier, const packages::PackageFolders& pFolders, Plan* pPlan);
    static QList<packages::StagedPackage> staged(const Plan& pPlan, const packages::PackageFolders& pFolders);

private:
    struct Work;
    void unpackOne(PlannedPackage* pPackage, const QString& pArchive, Work* pWork);

    os::FileSystem& mFileSystem;
    const packages::PackageFolders& mFolders;
    Reporter& mReporter;
    const os::AbortFlag& mAbort;
};

} // namespace tarn::vkservice::update

#pragma once

namespace tarn::os {
class AbortFlag;
class FileSystem;
} // namespace tarn::os
namespace tarn::packages {
class PackageFolders;
struct Manifest;
} // namespace tarn::packages
namespace tarn::trees {
class IndexStore;
}

namespace tarn::vkservice::update {

class Budget;
class Downloads;
class Reporter;

// The parts of the machine that a supply works with. They outlive it.
struct SupplyParts
{
    os::FileSystem& mFileSystem;
    const packages::PackageFolders& mFolders;
    const packages::Manifest& mInstalled;
    Downloads& mDownloads;
    Budget& mBudget;
    trees::IndexStore& mIndexes;
    Reporter& mReporter;
    const os::AbortFlag& mAbort;
};

} // namespace tarn::vkservice::update

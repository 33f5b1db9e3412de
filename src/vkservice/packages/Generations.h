#pragma once

#include "os/Failure.h"
#include "packages/Manifest.h"
#include "packages/PackageFolders.h"

#include <functional>

namespace tarn::vkservice::os {
class FileSystem;
}

namespace tarn::vkservice::packages {

// A package that is unpacked in its staging folder and now takes its place.
struct StagedPackage
{
    QString mStagingFolder; // absolute
    QString mFolder;        // as PackageFolders::folder
};

// The generations below one install folder. The link "current" is the only thing that ever changes in place,
// with one rename, so whoever reads through it sees the old state or the new one and nothing between. One
// process at a time may use the folder: InstallLock.
class Generations
{
public:
    Generations(os::FileSystem& pFileSystem, const PackageFolders& pFolders);

    // The manifest of the current generation; an empty one where nothing was ever installed.
    os::Failure readCurrent(Manifest* pTo);

    // Makes pNext the current generation: moves the staged packages to their folders, writes the generation,
    // brings all of it to the disk, and switches. pNext has the number of nextNumber(). On failure the old
    // generation is still the current one, and what was begun is left to removeLeftovers().
    os::Failure install(const Manifest& pNext, const QList<StagedPackage>& pStaged);
    qint64 nextNumber(const Manifest& pCurrent);

    // Removes every generation, package folder and staging folder that neither the current generation nor the
    // one before it needs: what is obsolete, and what a killed or failed run left. Goes on behind a failure.
    // pProgress gets how many of how many are done.
    os::Failure removeLeftovers(const std::function<void(int, int)>& pProgress = nullptr);

private:
    os::Failure moveIntoPlace(const StagedPackage& pStaged);
    os::Failure writeGeneration(const Manifest& pNext);
    os::Failure syncRoots();
    os::Failure switchTo(qint64 pNumber);
    os::Failure readManifest(qint64 pNumber, Manifest* pTo);

    os::FileSystem& mFileSystem;
    PackageFolders mFolders;
};

} // namespace tarn::vkservice::packages

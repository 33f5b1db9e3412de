#pragma once

#include "internal/Failure.h"
#include "packages/GenerationReader.h"
#include "packages/Leftovers.h"
#include "packages/Manifest.h"
#include "packages/PackageFolders.h"

#include <functional>

namespace tarn::os {
class FileSystem;
}

namespace tarn::packages {

class Roots;

// A package that is unpacked in its staging folder and now takes its place.
struct StagedPackage
{
    QString mStagingFolder; // absolute
    QString mFolder;        // as PackageFolders::folder
};

// The generations below one install folder. The link "current" is the only thing that ever changes in place,
// with one rename, so whoever reads through it sees the old state or the new one and nothing between. Changes
// nothing outside of the claimed roots, which must outlive the object.
class Generations
{
public:
    Generations(os::FileSystem& pFileSystem, const PackageFolders& pFolders, const Roots& pRoots);

    GenerationReader& reader() { return mReader; }

    // To be called before the first of these packages is unpacked: notes their folders on the disk, so that
    // what a run leaves that ends too early can be told from what others put there. Empties their staging
    // folders.
    Failure announce(const QList<InstalledPackage>& pPackages);

    // Makes pNext the current generation: moves the staged packages to their folders, writes the generation,
    // brings all of it to the disk, and switches. pNext has the number of nextNumber(). On failure the old
    // generation is still the current one, and what was begun is left to removeLeftovers().
    Failure install(const Manifest& pNext, const QList<StagedPackage>& pStaged);
    qint64 nextNumber(const Manifest& pCurrent);

    // Removes every generation, package folder and staging folder that was made here and that neither the
    // current generation nor the one before it needs: what is obsolete, and what a killed or failed run left.
    // Goes on behind a failure. pProgress gets how many of how many are done.
    Failure removeLeftovers(const std::function<void(int, int)>& pProgress = nullptr,
                            const PutOff& pPutOff = nullptr);

private:
    Failure moveIntoPlace(const StagedPackage& pStaged, const GenerationReader::Kept& pKept);
    Failure writeGeneration(const Manifest& pNext);
    Failure syncRoots();
    Failure switchTo(qint64 pNumber);

    os::FileSystem& mFileSystem;
    PackageFolders mFolders;
    GenerationReader mReader;
    Leftovers mLeftovers;
};

} // namespace tarn::packages

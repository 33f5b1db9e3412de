#pragma once

#include "internal/Failure.h"
#include "packages/GenerationReader.h"
#include "packages/Leftovers.h"
#include "packages/Manifest.h"
#include "packages/PackageFolders.h"

#include <QtCore/QSet>

#include <functional>

namespace tarn::os {
class FileSystem;
}

namespace tarn::packages {

class Roots;

// A package that is unpacked in its staging folder.
struct StagedPackage
{
    QString mStagingFolder; // absolute
    QString mFolder;        // as PackageFolders::folder
};

// The generations of one install folder. Only the link "current" ever changes in place, with one rename, so
// readers see either the old or the new state. Changes nothing outside the claimed roots, which must outlive
// the object.
class Generations
{
public:
    // pKept: how many generations before the current one are kept.
    Generations(os::FileSystem& pFileSystem, const PackageFolders& pFolders, const Roots& pRoots,
                int pKept = 1);

    GenerationReader& reader() { return mReader; }

    // To be called before the first of these packages is unpacked: records their folders on disk, so that
    // leftovers of an interrupted run can be distinguished from foreign files. Empties their staging folders,
    // except for those of the packages in pStaged (folders in manifest form).
    Failure announce(const QList<InstalledPackage>& pPackages, const QSet<QString>& pStaged = {});
    // Writes the staging folders of these announced packages to the disk and keeps removeLeftovers() away
    // from them, and from no others. The next run must prove them before it uses them.
    Failure setPrepared(const QList<InstalledPackage>& pPackages);

    // Makes pNext the current generation: moves the staged packages to their folders, writes the generation,
    // syncs everything, and switches. pNext has the number of nextNumber(). On failure the old generation
    // stays current, and removeLeftovers() cleans up.
    Failure install(const Manifest& pNext, const QList<StagedPackage>& pStaged);
    // Makes an earlier generation, which is kept, the current one again. 0: nothing is installed.
    Failure switchBack(qint64 pNumber);
    // Takes their manifests from all generations above one, so that they never count again, not even when the
    // current one is damaged. Their packages are leftovers then.
    void retireAbove(qint64 pNumber);
    qint64 nextNumber(const Manifest& pCurrent);

    // Removes every generation, package folder and staging folder that was created here and that neither the
    // current generation nor those before it need: obsolete ones, and leftovers of killed or failed runs.
    // Continues after a failure. pProgress receives how many of how many are done.
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

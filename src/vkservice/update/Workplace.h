#pragma once

#include "internal/Failure.h"
#include "packages/Generations.h"
#include "packages/Manifest.h"
#include "packages/PackageFolders.h"
#include "packages/Roots.h"
#include "update/RunLog.h"

namespace tarn::os {
class ProcessList;
}

namespace tarn::vkservice::update {

struct RunRequest;

// The folders of this machine that a run works in. They belong to this installation, and are locked against a
// second service for the lifetime of the object. After open() nothing outside of writableFolders() is
// written.
class Workplace
{
public:
    Workplace(os::FileSystem& pFileSystem, os::ProcessList& pProcesses, const RunRequest& pRequest);

    // Claims the folders and reads the installed packages.
    Failure open(packages::NewRoots pNew);
    // The warnings of open() for users, each a sentence without its full stop.
    const QStringList& warnings() const { return mWarnings; }
    // True if the current generation is damaged and an earlier one counts as installed.
    bool needsNewGeneration() const { return mNeedsNewGeneration; }
    // The state folder and all claimed roots, also those of earlier data folders; absolute paths.
    QStringList writableFolders() const;

    // Removes what neither the current generation nor the one before it needs, and what killed runs left.
    // What a process uses remains for a later time and is listed in *pInUse; all of it remains if nobody can
    // say what is in use. Continues after a failure, which does not harm the next run. pProgress gets the
    // number done and the total.
    Failure removeLeftovers(const std::function<void(int, int)>& pProgress, QStringList* pInUse);
    // The same, with a text for users.
    QString tidyUp();
    // Writes the run that created the current generation to the install log, unless it is already there, or
    // stores it for later. A failure if neither worked: then only the manifest records the run.
    Failure updateInstallLog(QString* pWarning);
    // Writes or stores a run that changed nothing.
    Failure logRun(const packages::Manifest& pRun, QString* pWarning);

    const packages::PackageFolders& folders() const { return mFolders; }
    packages::Generations& generations() { return mGenerations; }
    const packages::Manifest& installed() const { return mInstalled; }
    void setInstalled(const packages::Manifest& pManifest) { mInstalled = pManifest; }

private:
    Failure claimRoots();
    Failure claimInstallDir();
    void claimEarlierRoots();
    packages::Vouched vouchedInstallDir();
    packages::Vouched vouchedData(const QString& pRoot) const;
    void forgetMissingPackages();

    os::FileSystem& mFileSystem;
    os::ProcessList& mProcesses;
    const RunRequest& mRequest;
    packages::PackageFolders mFolders;
    packages::Roots mRoots;
    packages::Generations mGenerations;
    RunLog mRunLog;
    packages::GenerationReader::Kept mKept;
    packages::Manifest mInstalled;
    QStringList mWarnings;
    bool mNeedsNewGeneration = false;
};

} // namespace tarn::vkservice::update

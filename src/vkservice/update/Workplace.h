#pragma once

#include "internal/Failure.h"
#include "packages/Generations.h"
#include "packages/Manifest.h"
#include "packages/PackageFolders.h"
#include "packages/Roots.h"
#include "update/RunLog.h"
#include "update/RunRequest.h"

namespace tarn::os {
class ProcessList;
}

namespace tarn::vkservice::update {

// The folders of this machine that a run works in, this installation's and locked against a second service
// for as long as the object lives. Behind open() nothing outside of writableFolders() is written to.
class Workplace
{
public:
    Workplace(os::FileSystem& pFileSystem, os::ProcessList& pProcesses, const RunRequest& pRequest);

    // Claims the folders and reads what is installed.
    Failure open(packages::NewRoots pNew);
    // What open() found that people should know of, each a sentence without its full stop.
    const QStringList& warnings() const { return mWarnings; }
    // True where the current generation is damaged, and an earlier one counts as installed.
    bool needsNewGeneration() const { return mNeedsNewGeneration; }
    // The state folder and all claimed roots, also those of earlier data folders; absolute paths.
    QStringList writableFolders() const;

    // Removes what neither the current generation nor the one before it needs, and what killed runs left;
    // what a process uses stays for a later time and comes in *pInUse. Goes on behind a failure, which does
    // no harm to the next run. pProgress gets how many of how many are done.
    Failure removeLeftovers(const std::function<void(int, int)>& pProgress, QStringList* pInUse);
    // The same, with a text for people.
    QString tidyUp();
    // Enters the run that made the current generation into the install log, unless it is there already, or
    // keeps it for later. A failure where neither worked: the manifest is then the only one to know of the
    // run.
    Failure updateInstallLog(QString* pWarning);
    // Enters or keeps a run that changed nothing.
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

#pragma once

#include "packages/Generations.h"
#include "packages/InstallLock.h"
#include "packages/Manifest.h"
#include "packages/PackageFolders.h"
#include "update/RunLog.h"
#include "update/Trouble.h"

namespace tarn::vkservice::update {

// The folders of this machine that a run works in, locked against a second service for as long as the object
// lives.
class Workplace
{
public:
    Workplace(os::FileSystem& pFileSystem, const RunRequest& pRequest);

    // Makes and locks the folders, and reads what is installed.
    Trouble open();
    // Removes what killed runs left. A failure does no harm to the next run; its text is for people.
    QString tidyUp();
    // Enters the run that made the current generation into the install log, unless it is there already, or
    // keeps it for later. A failure where neither worked: the manifest is then the only one to know of the
    // run.
    os::Failure updateInstallLog(QString* pWarning);
    // Enters or keeps a run that changed nothing.
    os::Failure logRun(const packages::Manifest& pRun, QString* pWarning);

    const packages::PackageFolders& folders() const { return mFolders; }
    packages::Generations& generations() { return mGenerations; }
    const packages::Manifest& installed() const { return mInstalled; }
    void setInstalled(const packages::Manifest& pManifest) { mInstalled = pManifest; }

private:
    os::FileSystem& mFileSystem;
    const RunRequest& mRequest;
    packages::PackageFolders mFolders;
    packages::Generations mGenerations;
    RunLog mRunLog;
    packages::InstallLock mLock;
    packages::Manifest mInstalled;
};

} // namespace tarn::vkservice::update

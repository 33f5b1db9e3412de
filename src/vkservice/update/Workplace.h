#pragma once

#include "packages/Generations.h"
#include "packages/InstallLock.h"
#include "packages/Manifest.h"
#include "packages/PackageFolders.h"
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
    // Enters the run that made the current generation into the install log, unless it is there already. Null,
    // or why that did not work.
    QString updateInstallLog();
    // Enters a run that changed nothing.
    QString logRun(const packages::Manifest& pRun);

    const packages::PackageFolders& folders() const { return mFolders; }
    packages::Generations& generations() { return mGenerations; }
    const packages::Manifest& installed() const { return mInstalled; }
    void setInstalled(const packages::Manifest& pManifest) { mInstalled = pManifest; }

private:
    os::FileSystem& mFileSystem;
    const RunRequest& mRequest;
    packages::PackageFolders mFolders;
    packages::Generations mGenerations;
    packages::InstallLock mLock;
    packages::Manifest mInstalled;
};

} // namespace tarn::vkservice::update

#pragma once

#include "os/CheckRunner.h"
#include "trees/IndexStore.h"
#include "update/Downloads.h"
#include "update/PreparedPackages.h"
#include "update/RunRequest.h"
#include "update/Trial.h"
#include "update/Workplace.h"

namespace tarn::os {
class AbortFlag;
class FileSystem;
class ProcessList;
} // namespace tarn::os

namespace tarn::vkservice::update {

class Reporter;

// What the steps of a run share: its request, this machine, and what they know of it so far.
class RunParts
{
public:
    RunParts(const RunRequest& pRequest, os::FileSystem& pFileSystem, os::ProcessList& pProcesses,
             Reporter& pReporter, const os::AbortFlag& pAbort, os::CheckRunner& pChecks);

    void warn(const QString& pText); // nothing to say if it is empty
    void tidyUp() { warn(mWorkplace.tidyUp()); }
    // A failure is a warning as well.
    Failure updateInstallLog();
    // Without its index a package can't be proven, and its next update costs more.
    void findLostIndexes();
    // Of packages that are in no kept generation.
    void forgetOldIndexes();
    // Identifies what a plan depends on besides the offers.
    QByteArray machineState() const;

    RunRequest mRequest; // with the refused packages, once they are read
    os::FileSystem& mFileSystem;
    os::ProcessList& mProcesses;
    Reporter& mReporter;
    const os::AbortFlag& mAbort;
    Workplace mWorkplace;
    Downloads mDownloads;
    trees::IndexStore mIndexes;
    PreparedPackages mPrepared;
    Trial mTrial;
    Failure mUnlogged;                              // why the run before is in no install log
    QList<packages::InstalledPackage> mLostIndexes; // of these the index is missing or damaged
};

} // namespace tarn::vkservice::update

#pragma once

#include "internal/Failure.h"
#include "os/ProcessList.h"

#include <QtCore/QList>
#include <QtCore/QString>
#include <QtCore/QStringList>

namespace tarn::packages {
class PackageFolders;
struct InstalledPackage;
struct Manifest;
} // namespace tarn::packages
namespace tarn::os {
class AbortFlag;
} // namespace tarn::os

namespace tarn::vkservice::update {

class Reporter;
struct Plan;

// Waits until no process runs an executable of a package that is about to be replaced.
class AppWait
{
public:
    AppWait(os::ProcessList& pProcesses, const packages::Manifest& pInstalled,
            const packages::PackageFolders& pFolders, const Plan& pPlan, Reporter& pReporter,
            const os::AbortFlag& pAbort);

    // Failure of the kind AppsRunning with their names if some still run after pSeconds.
    Failure wait(int pSeconds);

private:
    struct Watched
    {
        QString mTitle;
        QString mPrefix; // absolute path of the folder with the package's versions, with a slash
        QStringList mExecutables;
    };

    void watch(const packages::InstalledPackage& pPackage, const packages::PackageFolders& pFolders);
    const Watched* watchedOf(const os::Process& pProcess) const;
    void look();
    // "Title (process, 123)" for each that runs.
    QStringList names() const;
    void waitForEnd(int pMilliseconds);

    os::ProcessList& mProcesses;
    Reporter& mReporter;
    const os::AbortFlag& mAbort;
    QList<Watched> mWatched;
    os::ProgramSearch mSearch;
    QList<os::Process> mRunning;
    bool mHasWarned = false;
};

} // namespace tarn::vkservice::update

#pragma once

#include "internal/Failure.h"
#include "packages/Manifest.h"
#include "sqlite/InstallLogStore.h"

#include <QtCore/QString>
#include <QtCore/QStringList>

namespace tarn::os {
class FileSystem;
}

namespace tarn::vkservice::update {

// The way of the runs into the install log. Anybody may read the log, and so can hold a lock that keeps the
// service from writing it; a disk may be full. A run that can't be entered now waits in a file of its own, in
// the folder install-log.waiting beside the log, and is entered by a later run: in order, and once.
class RunLog
{
public:
    enum class Kind
    {
        Installed,      // the run made the current generation
        ChangedNothing, // where 1000 runs wait already, such a run is not kept
    };

    RunLog(os::FileSystem& pFileSystem, const QString& pStateDir);

    // Enters all runs that wait, and then pRun. A failure: pRun is neither in the log nor kept. *pWarning is
    // for people: which runs wait and why, or what became of a damaged log. All calls together wait one
    // second for the locks of others.
    Failure enter(const packages::Manifest& pRun, Kind pKind, QString* pWarning);

private:
    bool enterAll(const packages::Manifest& pRun);
    bool tryToEnterAll(vkcore::InstallLogStore* pLog, const packages::Manifest& pRun);
    bool append(vkcore::InstallLogStore* pLog, const packages::Manifest& pRun);
    bool enterWaiting(vkcore::InstallLogStore* pLog, const QString& pPath);
    Failure keep(const packages::Manifest& pRun, Kind pKind);
    QStringList waiting() const;

    os::FileSystem& mFileSystem;
    QString mStateDir;
    QString mLogPath;
    QString mFolder;
    int mWaitMs;
    QString mReason;       // why the last attempt failed
    QStringList mWarnings; // sentences
};

} // namespace tarn::vkservice::update

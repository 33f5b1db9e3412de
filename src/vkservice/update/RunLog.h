#pragma once

#include "internal/Failure.h"

#include <QtCore/QString>
#include <QtCore/QStringList>

namespace tarn::vkcore {
class InstallLogStore;
}
namespace tarn::packages {
struct Manifest;
}
namespace tarn::os {
class FileSystem;
}

namespace tarn::vkservice::update {

// Writes the runs to the install log. All users may read the log, so any of them can hold a lock that stops
// the service from writing it; also, the disk may be full. A run that cannot be written now waits in its own
// file, in the folder install-log.waiting next to the log. A later run writes it: in order, and once.
class RunLog
{
public:
    enum class Kind
    {
        Installed,      // the run created the current generation
        ChangedNothing, // if 1000 runs already wait, such a run is dropped
    };

    RunLog(os::FileSystem& pFileSystem, const QString& pStateDir);

    // Writes all waiting runs, and then pRun. On failure pRun is neither in the log nor waiting. *pWarning is
    // for users: which runs wait and why, or how a damaged log was handled. All calls together wait one
    // second for the locks of other processes.
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

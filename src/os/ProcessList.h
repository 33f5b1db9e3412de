#pragma once

#include <QtCore/QByteArrayList>
#include <QtCore/QList>
#include <QtCore/QStringList>

#include <sys/types.h>

namespace tarn::os {

struct Process
{
    pid_t mPid = 0;
    QString mName;       // as the system's tools show it
    QString mExecutable; // absolute path of the file it runs, also when that file has been removed
    // The first ones, as absolute paths if they are paths; there may be no such files.
    QByteArrayList mArguments;
};

// The processes of this machine.
class ProcessList
{
public:
    virtual ~ProcessList() = default;

    // Those whose executable this process may read; without root's rights that is its own user's.
    virtual QList<Process> running() = 0;
    // Those of the folders that a process uses: something in them is what it runs, has open or mapped, stands
    // in or has for its root, or is named by its arguments. Processes that this one may not look into count
    // as using nothing. Without CAP_SYS_PTRACE these are all of other users, and without CAP_DAC_READ_SEARCH
    // the open files of other users stay hidden: those outlive their names, only what such a process opens
    // later is missing.
    virtual QStringList inUse(const QStringList& pFolders) = 0;
    // A descriptor that becomes readable when the process ends; the caller closes it. -1 and errno where
    // there is no such process (ESRCH) or the kernel has no such descriptors (ENOSYS).
    virtual int openProcess(pid_t pPid) = 0;
};

// The real one, from /proc. It has no state and may be used from any thread.
ProcessList& realProcessList();

} // namespace tarn::os

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
    // The first ones, as absolute paths if they are paths; the files need not exist.
    QByteArrayList mArguments;
};

// The processes of this machine.
class ProcessList
{
public:
    virtual ~ProcessList() = default;

    // Those whose executable this process may read: without root's rights only its own user's.
    virtual QList<Process> running() = 0;
    // Those of the folders that any process uses: by its executable, open or mapped files, working or root
    // directory, or arguments. Processes that can't be inspected count as using nothing. Without
    // CAP_SYS_PTRACE these are all of other users; without CAP_DAC_READ_SEARCH their open files are hidden.
    // Open files survive a deletion, but what such a process opens later is missing.
    virtual QStringList inUse(const QStringList& pFolders) = 0;
    // A descriptor that becomes readable when the process ends; the caller closes it. -1 and errno if there
    // is no such process (ESRCH) or the kernel has no such descriptors (ENOSYS).
    virtual int openProcess(pid_t pPid) = 0;
};

// The real one, from /proc. It has no state and may be used from any thread.
ProcessList& realProcessList();

} // namespace tarn::os

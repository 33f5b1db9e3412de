#pragma once

#include <QtCore/QList>
#include <QtCore/QString>

#include <sys/types.h>

namespace tarn::vkservice::os {

struct Process
{
    pid_t mPid = 0;
    QString mName;       // as the system's tools show it
    QString mExecutable; // absolute path of the file it runs, also when that file has been removed
};

// The processes of this machine.
class ProcessList
{
public:
    virtual ~ProcessList() = default;

    // Those whose executable this process may read; without root's rights that is its own user's.
    virtual QList<Process> running() = 0;
    // A descriptor that becomes readable when the process ends; the caller closes it. -1 and errno where
    // there is no such process (ESRCH) or the kernel has no such descriptors (ENOSYS).
    virtual int openProcess(pid_t pPid) = 0;
};

// The real one, from /proc. It has no state and may be used from any thread.
ProcessList& realProcessList();

} // namespace tarn::vkservice::os

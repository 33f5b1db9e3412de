#pragma once

#include "internal/Failure.h"

#include <QtCore/QList>
#include <QtCore/QStringList>

#include <sys/types.h>

#include <memory>

namespace tarn::os {

// Which programs are looked for; all paths are absolute.
struct ProgramSearch
{
    QStringList mFolders; // executables in these, or below
    QStringList mScripts; // files that an interpreter runs
    // Where the arguments of a process may name a script, besides the system's folders. They are chosen by
    // any user, so others are not looked up: they may be on disks and servers that never answer.
    QStringList mPlaces;

    bool operator==(const ProgramSearch&) const = default;
};

// A process that runs one of them.
struct Process
{
    pid_t mPid = 0;
    QString mName; // as the system's tools show it
    QString mFile; // the script, or else the executable, also when that has been removed

    bool operator==(const Process&) const = default;
};

// The processes of this machine.
class ProcessList
{
public:
    virtual ~ProcessList() = default;

    // Those of processes that may be inspected: without CAP_SYS_PTRACE only those of its own user.
    virtual Result<QList<Process>> running(const ProgramSearch& pSearch) = 0;
    // Those of the folders that any process uses: by its executable, open or mapped files, working or root
    // directory, or arguments. A folder that can't be read counts as used, a process that can't be inspected
    // as using nothing. Without CAP_SYS_PTRACE these are all of other users; without CAP_DAC_READ_SEARCH
    // their open files are hidden. Open files survive a deletion, but what such a process opens later is
    // missing. After a failure any folder may be in use.
    virtual Result<QStringList> inUse(const QStringList& pFolders) = 0;
    // A descriptor that becomes readable when the process ends; the caller closes it. -1 and errno if there
    // is no such process (ESRCH) or the kernel has no such descriptors (ENOSYS).
    virtual int openProcess(pid_t pPid) = 0;
};

// The real one, from /proc. It has no state and may be used from any thread.
ProcessList& realProcessList();
// The same, for somebody who is to learn nothing about other files than those of this user: a folder with a
// file of another one counts as used.
std::unique_ptr<ProcessList> processListFor(uid_t pOwner);

} // namespace tarn::os

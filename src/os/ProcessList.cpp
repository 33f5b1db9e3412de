#include "os/ProcessList.h"

#include "os/FolderUse.h"
#include "os/ProcFiles.h"
#include "os/ProgramFinder.h"

#include <sys/syscall.h>
#include <unistd.h>

namespace tarn::os {

namespace {

// "/proc/PID" of each process.
QByteArrayList processDirs()
{
    QByteArrayList tDirs;
    const QByteArrayList tNames = entries("/proc");
    for (const QByteArray& tName : tNames) {
        if (tName.toInt() > 0) {
            tDirs.append("/proc/" + tName);
        }
    }
    return tDirs;
}

class RealProcessList : public ProcessList
{
public:
    explicit RealProcessList(std::optional<uid_t> pOwner = {}) : mOwner(pOwner) {}

    Result<QList<Process>> running(const ProgramSearch& pSearch) override
    {
        const ProgramFinder tFinder(pSearch, mOwner);
        QList<Process> tFound;
        const QByteArrayList tDirs = processDirs();
        for (const QByteArray& tDir : tDirs) {
            if (const std::optional<Process> tProcess = tFinder.look(tDir)) {
                tFound.append(*tProcess);
            }
        }
        return tFound;
    }

    Result<QStringList> inUse(const QStringList& pFolders) override
    {
        FolderUse tUse(pFolders, mOwner);
        const QByteArrayList tDirs = processDirs();
        for (auto tDir = tDirs.begin(); tDir != tDirs.end() && !tUse.isAllUsed(); ++tDir) {
            tUse.look(*tDir);
        }
        return tUse.used();
    }

    int openProcess(pid_t pPid) override { return static_cast<int>(::syscall(SYS_pidfd_open, pPid, 0)); }

private:
    std::optional<uid_t> mOwner;
};

} // namespace

ProcessList& realProcessList()
{
    static RealProcessList sProcessList;
    return sProcessList;
}

std::unique_ptr<ProcessList> processListFor(uid_t pOwner)
{
    return std::make_unique<RealProcessList>(pOwner);
}

} // namespace tarn::os

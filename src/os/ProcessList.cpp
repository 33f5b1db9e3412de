#include "os/ProcessList.h"

#include "os/FolderUse.h"
#include "os/ProcFiles.h"

#include <QtCore/QFile>

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
    QList<Process> running() override
    {
        QList<Process> tFound;
        const QByteArrayList tDirs = processDirs();
        for (const QByteArray& tDir : tDirs) {
            const QByteArray tExecutable = linkTarget(tDir + "/exe");
            if (!tExecutable.isEmpty()) {
                tFound.append({tDir.mid(tDir.lastIndexOf('/') + 1).toInt(),
                               QString::fromLocal8Bit(readProcFile(tDir + "/comm").trimmed()),
                               QFile::decodeName(tExecutable), argumentPaths(tDir)});
            }
        }
        return tFound;
    }

    QStringList inUse(const QStringList& pFolders) override
    {
        FolderUse tUse(pFolders);
        const QByteArrayList tDirs = processDirs();
        for (auto tDir = tDirs.begin(); tDir != tDirs.end() && !tUse.isAllUsed(); ++tDir) {
            tUse.look(*tDir);
        }
        return tUse.used();
    }

    int openProcess(pid_t pPid) override { return static_cast<int>(::syscall(SYS_pidfd_open, pPid, 0)); }
};

} // namespace

ProcessList& realProcessList()
{
    static RealProcessList sProcessList;
    return sProcessList;
}

} // namespace tarn::os

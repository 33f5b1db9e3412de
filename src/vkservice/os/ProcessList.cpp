#include "os/ProcessList.h"

#include <QtCore/QByteArray>
#include <QtCore/QFile>

#include <dirent.h>
#include <limits.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cstdlib>

namespace tarn::vkservice::os {

namespace {

// What the kernel puts behind the path of a running file that was unlinked.
const QByteArray sDeletedMark(" (deleted)");

QByteArray executableOf(const QByteArray& pProcDir)
{
    char tBuffer[PATH_MAX];
    const ssize_t tLength = ::readlink((pProcDir + "/exe").constData(), tBuffer, sizeof tBuffer);
    if (tLength <= 0) {
        return {};
    }
    QByteArray tPath(tBuffer, tLength);
    if (tPath.endsWith(sDeletedMark)) {
        tPath.chop(sDeletedMark.size());
    }
    return tPath;
}

QString nameOf(const QByteArray& pProcDir)
{
    QFile tFile(QFile::decodeName(pProcDir + "/comm"));
    return tFile.open(QIODevice::ReadOnly) ? QString::fromLocal8Bit(tFile.readAll().trimmed()) : QString();
}

class RealProcessList : public ProcessList
{
public:
    QList<Process> running() override
    {
        QList<Process> tFound;
        DIR* tProc = ::opendir("/proc");
        while (const dirent* tEntry = tProc == nullptr ? nullptr : ::readdir(tProc)) {
            const pid_t tPid = std::atoi(tEntry->d_name);
            if (tPid <= 0) {
                continue;
            }
            const QByteArray tDir = QByteArray("/proc/") + tEntry->d_name;
            const QByteArray tExecutable = executableOf(tDir);
            if (!tExecutable.isEmpty()) {
                tFound.append({tPid, nameOf(tDir), QFile::decodeName(tExecutable)});
            }
        }
        if (tProc != nullptr) {
            ::closedir(tProc);
        }
        return tFound;
    }

    int openProcess(pid_t pPid) override { return static_cast<int>(::syscall(SYS_pidfd_open, pPid, 0)); }
};

} // namespace

ProcessList& realProcessList()
{
    static RealProcessList sProcessList;
    return sProcessList;
}

} // namespace tarn::vkservice::os

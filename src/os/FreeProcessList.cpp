#include "os/FreeProcessList.h"

namespace tarn::os {

QList<Process> FreeProcessList::running()
{
    QList<Process> tFound;
    mThread.call([&] { tFound = mList.running(); });
    return tFound;
}

QStringList FreeProcessList::inUse(const QStringList& pFolders)
{
    QStringList tFound;
    mThread.call([&] { tFound = mList.inUse(pFolders); });
    return tFound;
}

int FreeProcessList::openProcess(pid_t pPid)
{
    int tFd = -1;
    mThread.call([&] { tFd = mList.openProcess(pPid); });
    return tFd;
}

} // namespace tarn::os

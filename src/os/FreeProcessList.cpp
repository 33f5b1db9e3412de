#include "os/FreeProcessList.h"

namespace tarn::os {

Result<QList<Process>> FreeProcessList::running(const ProgramSearch& pSearch)
{
    Result<QList<Process>> tFound = QList<Process>();
    mThread.call([&] { tFound = mList.running(pSearch); });
    return tFound;
}

Result<QStringList> FreeProcessList::inUse(const QStringList& pFolders)
{
    Result<QStringList> tFound = QStringList();
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

#pragma once

#include "os/FreeThread.h"
#include "os/ProcessList.h"

namespace tarn::os {

// Runs the queries of another list on a free thread. A confined thread needs it, because the kernel does not
// let it inspect processes outside its confinement.
class FreeProcessList : public ProcessList
{
public:
    // Both must outlive this object.
    FreeProcessList(ProcessList& pList, FreeThread& pThread) : mList(pList), mThread(pThread) {}

    Result<QList<Process>> running(const ProgramSearch& pSearch) override;
    Result<QStringList> inUse(const QStringList& pFolders) override;
    int openProcess(pid_t pPid) override;

private:
    ProcessList& mList;
    FreeThread& mThread;
};

} // namespace tarn::os

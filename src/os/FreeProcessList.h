#pragma once

#include "os/ProcessList.h"

#include <condition_variable>
#include <functional>
#include <mutex>
#include <thread>

namespace tarn::os {

// Runs the queries of another list on a separate thread with the rights of the thread that created this
// object. A confined thread needs it, because the kernel does not let it inspect processes outside its
// confinement. Calls from several threads are serialized.
class FreeProcessList : public ProcessList
{
public:
    explicit FreeProcessList(ProcessList& pList);
    ~FreeProcessList() override;

    QList<Process> running() override;
    QStringList inUse(const QStringList& pFolders) override;
    int openProcess(pid_t pPid) override;

private:
    void work();
    // Runs it on the thread, waits, and restores its errno.
    void call(const std::function<void()>& pWhat);

    ProcessList& mList;
    std::mutex mCalls; // held during a call
    std::mutex mMutex;
    std::condition_variable mChanged;
    const std::function<void()>* mWhat = nullptr;
    int mErrno = 0;
    bool mEnds = false;
    std::thread mThread;
};

} // namespace tarn::os

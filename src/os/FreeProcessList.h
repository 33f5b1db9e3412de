#pragma once

#include "os/ProcessList.h"

#include <condition_variable>
#include <functional>
#include <mutex>
#include <thread>

namespace tarn::os {

// Another list whose look-ups are done by a thread of its own, which may do what the thread may that made
// this object. A confined thread needs it: the kernel lets it look into no process outside of its
// confinement. Calls from several threads wait for each other.
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
    // Has the thread do it, and comes back with its errno when that is done.
    void call(const std::function<void()>& pWhat);

    ProcessList& mList;
    std::mutex mCalls; // held for the whole of a call
    std::mutex mMutex;
    std::condition_variable mChanged;
    const std::function<void()>* mWhat = nullptr;
    int mErrno = 0;
    bool mEnds = false;
    std::thread mThread;
};

} // namespace tarn::os

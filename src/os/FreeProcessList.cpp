#include "os/FreeProcessList.h"

#include <cerrno>

namespace tarn::os {

FreeProcessList::FreeProcessList(ProcessList& pList) : mList(pList), mThread([this] { work(); }) {}

FreeProcessList::~FreeProcessList()
{
    {
        const std::lock_guard tLock(mMutex);
        mEnds = true;
    }
    mChanged.notify_all();
    mThread.join();
}

QList<Process> FreeProcessList::running()
{
    QList<Process> tFound;
    call([&] { tFound = mList.running(); });
    return tFound;
}

QStringList FreeProcessList::inUse(const QStringList& pFolders)
{
    QStringList tFound;
    call([&] { tFound = mList.inUse(pFolders); });
    return tFound;
}

int FreeProcessList::openProcess(pid_t pPid)
{
    int tFd = -1;
    call([&] { tFd = mList.openProcess(pPid); });
    return tFd;
}

void FreeProcessList::work()
{
    std::unique_lock tLock(mMutex);
    for (;;) {
        mChanged.wait(tLock, [this] { return mWhat != nullptr || mEnds; });
        if (mWhat == nullptr) {
            return;
        }
        (*mWhat)();
        mErrno = errno;
        mWhat = nullptr;
        mChanged.notify_all();
    }
}

void FreeProcessList::call(const std::function<void()>& pWhat)
{
    const std::lock_guard tCall(mCalls);
    std::unique_lock tLock(mMutex);
    mWhat = &pWhat;
    mChanged.notify_all();
    mChanged.wait(tLock, [this] { return mWhat == nullptr; });
    errno = mErrno;
}

} // namespace tarn::os

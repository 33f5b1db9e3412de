#include "os/FreeThread.h"

#include <cerrno>

namespace tarn::os {

FreeThread::FreeThread() : mThread([this] { work(); }) {}

FreeThread::~FreeThread()
{
    {
        const std::lock_guard tLock(mMutex);
        mEnds = true;
    }
    mChanged.notify_all();
    mThread.join();
}

void FreeThread::work()
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

void FreeThread::call(const std::function<void()>& pWhat)
{
    const std::lock_guard tCall(mCalls);
    std::unique_lock tLock(mMutex);
    mWhat = &pWhat;
    mChanged.notify_all();
    mChanged.wait(tLock, [this] { return mWhat == nullptr; });
    errno = mErrno;
}

} // namespace tarn::os

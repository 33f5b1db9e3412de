#pragma once

#include <condition_variable>
#include <functional>
#include <mutex>
#include <thread>

namespace tarn::os {

// A thread with the rights of the thread that created this object. A confined thread runs on it what its
// confinement would refuse, and what children of it must not inherit. Calls from several threads are
// serialized.
class FreeThread
{
public:
    FreeThread();
    ~FreeThread();
    FreeThread(const FreeThread&) = delete;
    FreeThread& operator=(const FreeThread&) = delete;

    // Runs it on the thread, waits, and restores its errno.
    void call(const std::function<void()>& pWhat);

private:
    void work();

    std::mutex mCalls; // held during a call
    std::mutex mMutex;
    std::condition_variable mChanged;
    const std::function<void()>* mWhat = nullptr;
    int mErrno = 0;
    bool mEnds = false;
    std::thread mThread;
};

} // namespace tarn::os

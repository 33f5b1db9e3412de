#pragma once

#include <csignal>
#include <initializer_list>

namespace tarn::vkpublish {

// Signals that wait on a descriptor instead of acting on the process, as long as the object lives. Ignored
// ones stay ignored. Only for a process with one thread.
class SignalQueue
{
public:
    explicit SignalQueue(std::initializer_list<int> pSignals);
    ~SignalQueue();
    SignalQueue(const SignalQueue&) = delete;
    SignalQueue& operator=(const SignalQueue&) = delete;

    int fd() const { return mFd; } // readable if there is one
    int take();                    // 0 if there is none
    // Lets a signal act on the process. Returns if the process goes on after it.
    void deliver(int pSignal) const;

private:
    sigset_t mSignals;
    sigset_t mBefore;
    int mFd;
};

} // namespace tarn::vkpublish

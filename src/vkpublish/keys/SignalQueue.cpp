#include "keys/SignalQueue.h"

#include <sys/signalfd.h>
#include <unistd.h>

namespace tarn::vkpublish {

SignalQueue::SignalQueue(std::initializer_list<int> pSignals)
{
    ::sigemptyset(&mSignals);
    for (const int tSignal : pSignals) {
        struct sigaction tAction = {};
        if (::sigaction(tSignal, nullptr, &tAction) == 0 && tAction.sa_handler != SIG_IGN) {
            ::sigaddset(&mSignals, tSignal);
        }
    }
    ::sigprocmask(SIG_BLOCK, &mSignals, &mBefore);
    mFd = ::signalfd(-1, &mSignals, SFD_CLOEXEC | SFD_NONBLOCK);
}

SignalQueue::~SignalQueue()
{
    ::close(mFd);
    ::sigprocmask(SIG_SETMASK, &mBefore, nullptr);
}

int SignalQueue::take()
{
    signalfd_siginfo tInfo = {};
    return ::read(mFd, &tInfo, sizeof tInfo) == sizeof tInfo ? static_cast<int>(tInfo.ssi_signo) : 0;
}

void SignalQueue::deliver(int pSignal) const
{
    sigset_t tOne;
    ::sigemptyset(&tOne);
    ::sigaddset(&tOne, pSignal);
    ::raise(pSignal);
    ::sigprocmask(SIG_UNBLOCK, &tOne, nullptr); // it acts here
    ::sigprocmask(SIG_BLOCK, &tOne, nullptr);
}

} // namespace tarn::vkpublish

#include "Interrupt.h"

#include <sys/eventfd.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdint>

namespace tarn::vkctl {

namespace {

constexpr int sSignals[] = {SIGINT, SIGTERM, SIGHUP};
volatile std::sig_atomic_t sFd = -1;

void onSignal(int)
{
    const int tErrno = errno;
    const std::uint64_t tOne = 1;
    (void)!::write(sFd, &tOne, sizeof tOne);
    errno = tErrno;
}

void handle(void (*pHandler)(int))
{
    struct sigaction tAction
    {
    };
    tAction.sa_handler = pHandler;
    tAction.sa_flags = SA_RESTART;
    sigemptyset(&tAction.sa_mask);
    for (const int tSignal : sSignals) {
        ::sigaction(tSignal, &tAction, nullptr);
    }
}

} // namespace

Interrupt::Interrupt() : mFd(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)), mNotifier(mFd, QSocketNotifier::Read)
{
    sFd = mFd;
    handle(&onSignal);
    connect(&mNotifier, &QSocketNotifier::activated, this, [this] {
        std::uint64_t tCount = 0;
        (void)!::read(mFd, &tCount, sizeof tCount);
        Q_EMIT received();
    });
}

Interrupt::~Interrupt()
{
    handle(SIG_DFL);
    ::close(mFd);
}

} // namespace tarn::vkctl

#include "process/SignalWatch.h"

#include <QtCore/QSocketNotifier>

#include <pthread.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include <csignal>

namespace tarn::vkservice::process {

namespace {

sigset_t watchedSignals()
{
    sigset_t tSet;
    sigemptyset(&tSet);
    sigaddset(&tSet, SIGTERM);
    sigaddset(&tSet, SIGINT);
    sigaddset(&tSet, SIGHUP);
    return tSet;
}

} // namespace

void SignalWatch::blockSignals()
{
    const sigset_t tSet = watchedSignals();
    ::pthread_sigmask(SIG_BLOCK, &tSet, nullptr);
    std::signal(SIGPIPE, SIG_IGN);
}

bool SignalWatch::isEndPending()
{
    sigset_t tPending;
    ::sigpending(&tPending);
    return ::sigismember(&tPending, SIGTERM) == 1 || ::sigismember(&tPending, SIGINT) == 1;
}

SignalWatch::SignalWatch(QObject* pParent) : QObject(pParent)
{
    const sigset_t tSet = watchedSignals();
    mFd = ::signalfd(-1, &tSet, SFD_NONBLOCK | SFD_CLOEXEC);
    if (mFd >= 0) {
        mNotifier = std::make_unique<QSocketNotifier>(mFd, QSocketNotifier::Read);
        connect(mNotifier.get(), &QSocketNotifier::activated, this, &SignalWatch::read);
    }
}

SignalWatch::~SignalWatch()
{
    mNotifier.reset();
    if (mFd >= 0) {
        ::close(mFd);
    }
}

void SignalWatch::read()
{
    signalfd_siginfo tInfo = {};
    while (::read(mFd, &tInfo, sizeof(tInfo)) == static_cast<ssize_t>(sizeof(tInfo))) {
        if (tInfo.ssi_signo == SIGHUP) {
            Q_EMIT reloadRequested();
        } else {
            Q_EMIT endRequested();
        }
    }
}

} // namespace tarn::vkservice::process

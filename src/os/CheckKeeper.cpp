#include "os/CheckKeeper.h"

#include "os/Confinement.h"

#include <fcntl.h>
#include <linux/close_range.h>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/signalfd.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <ctime>

// All of this runs in the child of a process with many threads: it calls only what is safe there, and
// allocates nothing.
namespace tarn::os {

namespace {

// The keeper's descriptors; 0 to 2 are those of the program.
enum Place : int
{
    LifePlace = 3,
    ReportPlace = 4,
    StartPlace = 5, // the program's errno if it can't be started
    SignalPlace = 6,
    FirstFree = 7,
};

constexpr int sSpare = 20; // above all places
constexpr int sKillSeconds = 5;
constexpr int sKillPauseMs = 5;

time_t now()
{
    timespec tTime = {};
    ::clock_gettime(CLOCK_MONOTONIC, &tTime);
    return tTime.tv_sec;
}

void closeFrom(int pFirst)
{
    ::syscall(SYS_close_range, pFirst, ~0U, 0);
}

// Puts the descriptors in their places and closes all others. First out of each other's way.
void arrange(const KeeperOrder& pOrder)
{
    const int tFds[] = {pOrder.mNoInput, pOrder.mOutput, pOrder.mOutput, pOrder.mLife, pOrder.mReport};
    int tSpares[std::size(tFds)];
    for (size_t i = 0; i < std::size(tFds); ++i) {
        tSpares[i] = ::fcntl(tFds[i], F_DUPFD, sSpare);
    }
    for (size_t i = 0; i < std::size(tFds); ++i) {
        ::dup2(tSpares[i], static_cast<int>(i));
    }
    closeFrom(StartPlace);
}

void resetSignals()
{
    for (int tSignal = 1; tSignal < NSIG; ++tSignal) {
        ::signal(tSignal, SIG_DFL);
    }
    sigset_t tNone;
    ::sigemptyset(&tNone);
    ::sigprocmask(SIG_SETMASK, &tNone, nullptr);
}

[[noreturn]] void becomeProgram(const KeeperOrder& pOrder)
{
    ::setsid();
    resetSignals();
    ::umask(077);
    if (::chdir(pOrder.mFolder) == 0) {
        ::fcntl(StartPlace, F_SETFD, FD_CLOEXEC);
        ::close(LifePlace);
        ::close(ReportPlace);
        ::close(SignalPlace);
        closeFrom(FirstFree);
        ::execve(pOrder.mProgram, pOrder.mArguments, pOrder.mEnvironment);
    }
    const int tErrno = errno;
    [[maybe_unused]] const ssize_t tDone = ::write(StartPlace, &tErrno, sizeof tErrno);
    ::_exit(127);
}

// Kills the children of this process, which are all that is left: an orphan becomes its child.
void killChildren()
{
    char tText[4096];
    const int tFd = ::open("/proc/thread-self/children", O_RDONLY | O_CLOEXEC);
    const ssize_t tSize = tFd < 0 ? 0 : ::read(tFd, tText, sizeof tText);
    ::close(tFd);
    pid_t tPid = 0;
    for (ssize_t i = 0; i < tSize; ++i) {
        if (tText[i] >= '0' && tText[i] <= '9') {
            tPid = tPid * 10 + (tText[i] - '0');
        } else {
            if (tPid > 0) {
                ::kill(tPid, SIGKILL);
            }
            tPid = 0;
        }
    }
}

// True if the program has ended. It is not waited for: its number keeps standing for it and its group.
bool hasEnded(pid_t pProgram, KeeperReport* pReport)
{
    siginfo_t tInfo = {};
    if (::waitid(P_PID, static_cast<id_t>(pProgram), &tInfo, WEXITED | WNOHANG | WNOWAIT) != 0 ||
        tInfo.si_pid != pProgram) {
        return false;
    }
    pReport->mHasEnded = true;
    pReport->mSignal = tInfo.si_code == CLD_EXITED ? 0 : tInfo.si_status;
    pReport->mStatus = tInfo.si_code == CLD_EXITED ? tInfo.si_status : 0;
    return true;
}

// Orphans of the program that have ended.
void reapOthers(pid_t pProgram)
{
    siginfo_t tInfo = {};
    while (::waitid(P_ALL, 0, &tInfo, WEXITED | WNOHANG | WNOWAIT) == 0 && tInfo.si_pid > 0 &&
           tInfo.si_pid != pProgram) {
        ::waitpid(tInfo.si_pid, nullptr, 0);
        tInfo = {};
    }
}

// A process that may not be killed, since it has another user by now, does not hold this up for long.
void killAll(pid_t pProgram)
{
    ::kill(-pProgram, SIGKILL); // all at once, also those that fork
    for (const time_t tEnd = now() + sKillSeconds; now() <= tEnd;) {
        killChildren();
        pid_t tEnded = 0;
        while ((tEnded = ::waitpid(-1, nullptr, WNOHANG)) > 0) {
        }
        if (tEnded < 0) {
            return;
        }
        ::poll(nullptr, 0, sKillPauseMs);
    }
}

// Until the program ends, or the other end of the life pipe is closed.
void await(pid_t pProgram, KeeperReport* pReport)
{
    while (!hasEnded(pProgram, pReport)) {
        reapOthers(pProgram);
        pollfd tPolls[] = {{LifePlace, POLLIN, 0}, {SignalPlace, POLLIN, 0}};
        ::poll(tPolls, std::size(tPolls), -1);
        if (tPolls[0].revents != 0) {
            return;
        }
        signalfd_siginfo tSignal;
        [[maybe_unused]] const ssize_t tRead = ::read(SignalPlace, &tSignal, sizeof tSignal);
    }
}

[[noreturn]] void keep(const KeeperOrder& pOrder)
{
    // Before the descriptors of its folders are closed. The program inherits it, and this needs no more.
    const bool tIsConfined = pOrder.mConfinement == nullptr || !pOrder.mConfinement->enter();
    arrange(pOrder);
    ::setsid();
    ::prctl(PR_SET_CHILD_SUBREAPER, 1, 0, 0, 0);
    sigset_t tChild;
    ::sigfillset(&tChild);
    ::sigprocmask(SIG_SETMASK, &tChild, nullptr);
    ::signal(SIGCHLD, SIG_DFL); // an inherited SIG_IGN would hide the status
    ::sigemptyset(&tChild);
    ::sigaddset(&tChild, SIGCHLD);
    int tStart[2] = {-1, -1};
    KeeperReport tReport = {};
    if (::pipe2(tStart, O_CLOEXEC) != 0) {
        ::_exit(1);
    }
    const int tRead = ::fcntl(tStart[0], F_DUPFD_CLOEXEC, sSpare);
    const int tWrite = ::fcntl(tStart[1], F_DUPFD_CLOEXEC, sSpare);
    ::dup2(::signalfd(-1, &tChild, SFD_CLOEXEC), SignalPlace);
    ::dup2(tWrite, StartPlace);
    ::close(tWrite);
    errno = EPERM;
    const pid_t tProgram = tIsConfined ? ::fork() : -1;
    if (tProgram == 0) {
        becomeProgram(pOrder);
    }
    ::close(StartPlace);
    if (tProgram > 0) {
        // Closed by a successful execve().
        if (::read(tRead, &tReport.mStartErrno, sizeof tReport.mStartErrno) < 0) {
            tReport.mStartErrno = errno;
        }
        await(tProgram, &tReport);
        killAll(tProgram);
    } else {
        tReport.mStartErrno = errno;
    }
    [[maybe_unused]] const ssize_t tDone = ::write(ReportPlace, &tReport, sizeof tReport);
    ::_exit(0);
}

} // namespace

pid_t startKeeper(const KeeperOrder& pOrder)
{
    const pid_t tKeeper = ::fork();
    if (tKeeper == 0) {
        keep(pOrder);
    }
    return tKeeper;
}

} // namespace tarn::os

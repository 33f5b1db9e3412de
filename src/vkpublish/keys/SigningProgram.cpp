#include "keys/SigningProgram.h"

#include "keys/SignalQueue.h"
#include "keys/Terminal.h"

#include "os/Descriptor.h"
#include "os/FileSystem.h"

#include <QtCore/QDeadlineTimer>

#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <vector>

using namespace Qt::StringLiterals;

namespace tarn::vkpublish {

namespace {

struct Pipe
{
    os::Descriptor mRead;
    os::Descriptor mWrite;

    bool open()
    {
        int tFds[2];
        if (::pipe2(tFds, O_CLOEXEC) != 0) {
            return false;
        }
        mRead = os::Descriptor(os::realFileSystem(), tFds[0]);
        mWrite = os::Descriptor(os::realFileSystem(), tFds[1]);
        return true;
    }
};

// How a signal acts on this process, as long as the object lives.
class SignalAction
{
public:
    SignalAction(int pSignal, sighandler_t pAction) : mSignal(pSignal)
    {
        struct sigaction tAction = {};
        tAction.sa_handler = pAction;
        ::sigaction(mSignal, &tAction, &mBefore);
    }
    ~SignalAction() { ::sigaction(mSignal, &mBefore, nullptr); }
    SignalAction(const SignalAction&) = delete;
    SignalAction& operator=(const SignalAction&) = delete;

private:
    int mSignal;
    struct sigaction mBefore = {};
};

// What a new process is made with.
class SpawnOrder
{
public:
    SpawnOrder()
    {
        ::posix_spawnattr_init(&mAttributes);
        ::posix_spawn_file_actions_init(&mActions);
        sigset_t tNone;
        sigset_t tIgnoredHere;
        ::sigemptyset(&tNone);
        ::sigemptyset(&tIgnoredHere);
        ::sigaddset(&tIgnoredHere, SIGPIPE);
        ::posix_spawnattr_setsigmask(&mAttributes, &tNone);
        ::posix_spawnattr_setsigdefault(&mAttributes, &tIgnoredHere);
        ::posix_spawnattr_setpgroup(&mAttributes, 0); // one of its own
        ::posix_spawnattr_setflags(&mAttributes,
                                   POSIX_SPAWN_SETPGROUP | POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF);
    }
    ~SpawnOrder()
    {
        ::posix_spawnattr_destroy(&mAttributes);
        ::posix_spawn_file_actions_destroy(&mActions);
    }
    SpawnOrder(const SpawnOrder&) = delete;
    SpawnOrder& operator=(const SpawnOrder&) = delete;

    posix_spawnattr_t mAttributes;
    posix_spawn_file_actions_t mActions;
};

// One run of one program.
class Run
{
public:
    Run(const QByteArrayList& pWords, const QByteArray& pInput, const ProgramLimits& pLimits)
        : mWords(pWords), mInput(pInput), mLimits(pLimits), mHasTerminal(mTerminal.isOurs())
    {
    }

    Result<QByteArray> run()
    {
        if (const int tErrno = start(); tErrno != 0) {
            return failure(u"can't be started: %1"_s.arg(qt_error_string(tErrno)));
        }
        const QString tReason = follow();
        ::kill(-mProgram, SIGKILL); // its number stands for its group until it is waited for
        ::kill(mProgram, SIGKILL);  // it may have left the group
        siginfo_t tEnd = {};
        ::waitid(P_PID, static_cast<id_t>(mProgram), &tEnd, WEXITED);
        if (mHasTerminal) {
            mTerminal.takeBack();
        }
        if (mEndedBy != 0) {
            mSignals.deliver(mEndedBy);
        }
        if (!tReason.isEmpty()) {
            return failure(tReason);
        }
        if (tEnd.si_code != CLD_EXITED) {
            return failure(u"was ended by signal %1"_s.arg(tEnd.si_status));
        }
        if (tEnd.si_status != 0) {
            return failure(u"ended with status %1"_s.arg(tEnd.si_status));
        }
        return mOutput.isEmpty() ? failure(u"wrote no signature"_s) : Result<QByteArray>(mOutput);
    }

private:
    // Without the arguments, which may have a PIN.
    Failure failure(const QString& pReason) const
    {
        return Failure::content(u"The command %1 %2"_s.arg(QString::fromUtf8(mWords.first()), pReason));
    }

    int start()
    {
        Pipe tInput;
        Pipe tOutput;
        if (!tInput.open() || !tOutput.open()) {
            return errno;
        }
        std::vector<char*> tArguments;
        for (QByteArray& tWord : mWords) {
            tArguments.push_back(tWord.data());
        }
        tArguments.push_back(nullptr);
        SpawnOrder tOrder;
        ::posix_spawn_file_actions_adddup2(&tOrder.mActions, tInput.mRead.fd(), STDIN_FILENO);
        ::posix_spawn_file_actions_adddup2(&tOrder.mActions, tOutput.mWrite.fd(), STDOUT_FILENO);
        if (mHasTerminal) {
            ::posix_spawn_file_actions_addtcsetpgrp_np(&tOrder.mActions, mTerminal.fd());
        }
        ::posix_spawn_file_actions_addclosefrom_np(&tOrder.mActions, STDERR_FILENO + 1);
        const int tErrno = ::posix_spawnp(&mProgram, tArguments[0], &tOrder.mActions, &tOrder.mAttributes,
                                          tArguments.data(), environ);
        if (tErrno != 0 && mHasTerminal) {
            mTerminal.takeBack();
        }
        // Another thread of this process may take the signal of its end.
        mEnd = os::Descriptor(os::realFileSystem(),
                              tErrno == 0 ? static_cast<int>(::syscall(SYS_pidfd_open, mProgram, 0)) : -1);
        mTo = std::move(tInput.mWrite);
        mFrom = std::move(tOutput.mRead);
        ::fcntl(mTo.fd(), F_SETFL, O_NONBLOCK);
        ::fcntl(mFrom.fd(), F_SETFL, O_NONBLOCK);
        return tErrno;
    }

    // Until it ends, or must not go on; then with the reason.
    QString follow()
    {
        const QDeadlineTimer tDeadline(mLimits.mSeconds * Q_INT64_C(1000));
        for (;;) {
            pollfd tPolls[] = {{mSignals.fd(), POLLIN, 0},
                               {mFrom.fd(), POLLIN, 0},
                               {mTo.fd(), POLLOUT, 0},
                               {mEnd.fd(), POLLIN, 0}};
            ::poll(tPolls, std::size(tPolls), static_cast<int>(tDeadline.remainingTime()));
            if (tPolls[2].revents != 0) {
                write();
            }
            // The signals first: one that comes later wakes this up again.
            while (const int tSignal = mSignals.take()) {
                if (tSignal != SIGCHLD) {
                    mEndedBy = tSignal;
                    return u"was ended"_s;
                }
            }
            // Then the end: what was written before it is in the pipe by now.
            const bool tHasEnded = hasEnded(CLD_EXITED);
            if (!read()) {
                return u"writes more than a signature"_s;
            }
            if (tHasEnded) {
                return QString();
            }
            if (hasEnded(CLD_STOPPED)) {
                return u"was stopped"_s;
            }
            if (tDeadline.hasExpired()) {
                return u"did not end within %1 seconds"_s.arg(mLimits.mSeconds);
            }
        }
    }

    // It is not waited for.
    bool hasEnded(int pHow) const
    {
        siginfo_t tInfo = {};
        const int tKind = pHow == CLD_STOPPED ? WSTOPPED : WEXITED;
        return ::waitid(P_PID, static_cast<id_t>(mProgram), &tInfo, tKind | WNOHANG | WNOWAIT) == 0 &&
               tInfo.si_pid == mProgram;
    }

    // A program may sign without reading to the end: whether it signed the right thing shows later.
    void write()
    {
        const ssize_t tSize =
            ::write(mTo.fd(), mInput.constData() + mWritten, static_cast<size_t>(mInput.size() - mWritten));
        mWritten += tSize > 0 ? tSize : 0;
        if (mWritten == mInput.size() || (tSize < 0 && errno != EAGAIN && errno != EINTR)) {
            mTo.close();
        }
    }

    // Reads what is there. False if it is too much.
    bool read()
    {
        char tBuffer[4096];
        ssize_t tSize = 1;
        while (mFrom.isOpen() && tSize > 0 && mOutput.size() <= mLimits.mOutput) {
            tSize = ::read(mFrom.fd(), tBuffer, sizeof tBuffer);
            mOutput.append(tBuffer, tSize > 0 ? tSize : 0);
        }
        if (tSize == 0) {
            mFrom.close();
        }
        return mOutput.size() <= mLimits.mOutput;
    }

    QByteArrayList mWords;
    const QByteArray& mInput;
    const ProgramLimits& mLimits;
    SignalAction mOnPipe{SIGPIPE, SIG_IGN};
    SignalAction mOnChild{SIGCHLD, SIG_DFL}; // if it were ignored, nobody could wait for the program
    SignalQueue mSignals{SIGCHLD, SIGINT, SIGTERM, SIGHUP, SIGQUIT};
    Terminal mTerminal;
    bool mHasTerminal;
    pid_t mProgram = -1;
    os::Descriptor mEnd;
    os::Descriptor mTo;
    os::Descriptor mFrom;
    qsizetype mWritten = 0;
    QByteArray mOutput;
    int mEndedBy = 0;
};

} // namespace

Result<QByteArray> runSigningProgram(const QByteArrayList& pWords, const QByteArray& pInput,
                                     const ProgramLimits& pLimits)
{
    return Run(pWords, pInput, pLimits).run();
}

} // namespace tarn::vkpublish

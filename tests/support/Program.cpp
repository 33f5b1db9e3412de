#include "Program.h"

#include <QtCore/QDeadlineTimer>
#include <QtCore/QFile>

#include <cerrno>
#include <csignal>
#include <vector>

#include <fcntl.h>
#include <poll.h>
#include <pty.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>

namespace {

std::vector<char*> pointersTo(QList<QByteArray>& pTexts)
{
    std::vector<char*> tPointers;
    for (QByteArray& tText : pTexts) {
        tPointers.push_back(tText.data());
    }
    tPointers.push_back(nullptr);
    return tPointers;
}

void makePipe(int* pRead, int* pWrite)
{
    int tEnds[2];
    if (::pipe2(tEnds, O_CLOEXEC) != 0) {
        qFatal("no pipe");
    }
    *pRead = tEnds[0];
    *pWrite = tEnds[1];
}

// False at the end of the stream.
bool readSome(int pFd, QByteArray* pTo)
{
    char tBytes[64 * 1024];
    const ssize_t tCount = ::read(pFd, tBytes, sizeof tBytes);
    if (tCount > 0) {
        pTo->append(tBytes, tCount);
    }
    return tCount > 0 || (tCount < 0 && errno == EINTR);
}

void closeFd(int* pFd)
{
    if (*pFd >= 0) {
        ::close(*pFd);
        *pFd = -1;
    }
}

} // namespace

Program::Program(const QString& pPath, const QList<QByteArray>& pArguments, const Environment& pEnvironment,
                 Console pConsole)
    : mTerminal(pConsole == Console::Terminal)
{
    QList<QByteArray> tArguments = pArguments;
    tArguments.prepend(QFile::encodeName(pPath));
    QList<QByteArray> tVariables;
    for (auto tIt = pEnvironment.cbegin(); tIt != pEnvironment.cend(); ++tIt) {
        tVariables.append(tIt.key() + '=' + tIt.value());
    }
    const std::vector<char*> tArgv = pointersTo(tArguments);
    const std::vector<char*> tEnvp = pointersTo(tVariables);

    int tChild[3];
    if (mTerminal) {
        if (::openpty(&mOut, &tChild[0], nullptr, nullptr, nullptr) != 0) {
            qFatal("no terminal");
        }
        ::fcntl(mOut, F_SETFD, FD_CLOEXEC);
        ::fcntl(tChild[0], F_SETFD, FD_CLOEXEC);
        termios tAttributes;
        ::tcgetattr(tChild[0], &tAttributes);
        tAttributes.c_oflag &= ~static_cast<tcflag_t>(OPOST);
        ::tcsetattr(tChild[0], TCSANOW, &tAttributes);
        mIn = mOut;
        tChild[1] = tChild[2] = tChild[0];
    } else {
        makePipe(&tChild[0], &mIn);
        makePipe(&mOut, &tChild[1]);
        makePipe(&mErr, &tChild[2]);
    }

    mPid = ::fork();
    if (mPid == 0) {
        if (mTerminal) {
            ::setsid();
            ::ioctl(tChild[0], TIOCSCTTY, 0);
        }
        for (int i = 0; i < 3; ++i) {
            ::dup2(tChild[i], i);
        }
        ::execve(tArgv[0], tArgv.data(), tEnvp.data());
        ::_exit(127);
    }
    ::close(tChild[0]);
    if (!mTerminal) {
        ::close(tChild[1]);
        ::close(tChild[2]);
    }
}

Program::~Program()
{
    if (mPid > 0) {
        ::kill(mPid, SIGKILL);
        ::waitpid(mPid, nullptr, 0);
    }
    if (!mTerminal) {
        closeFd(&mIn);
    }
    closeFd(&mOut);
    closeFd(&mErr);
}

void Program::signal(int pSignal) const
{
    ::kill(mPid, pSignal);
}

void Program::write(const QByteArray& pBytes) const
{
    if (::write(mIn, pBytes.constData(), static_cast<size_t>(pBytes.size())) != pBytes.size()) {
        qFatal("the program does not take its input");
    }
}

void Program::closeInput()
{
    if (!mTerminal) {
        closeFd(&mIn);
    }
}

bool Program::echoes() const
{
    termios tAttributes = {};
    ::tcgetattr(mOut, &tAttributes);
    return (tAttributes.c_lflag & ECHO) != 0;
}

bool Program::readUntil(const std::function<bool()>& pDone, int pTimeoutMs)
{
    const QDeadlineTimer tDeadline(pTimeoutMs);
    while (!pDone()) {
        pollfd tPolls[] = {{mOut, POLLIN, 0}, {mErr, POLLIN, 0}};
        if ((mOut < 0 && mErr < 0) || tDeadline.hasExpired()) {
            return false;
        }
        ::poll(tPolls, 2, static_cast<int>(tDeadline.remainingTime()));
        if (tPolls[0].revents != 0 && !readSome(mOut, &mResult.mOut)) {
            mResult.mEchoes = mTerminal && echoes();
            closeFd(&mOut);
        }
        if (tPolls[1].revents != 0 && !readSome(mErr, &mResult.mErr)) {
            closeFd(&mErr);
        }
    }
    return true;
}

bool Program::waitForOutput(const QByteArray& pText, int pCount, int pTimeoutMs)
{
    return readUntil([&] { return mResult.mOut.count(pText) >= pCount; }, pTimeoutMs);
}

Program::Result Program::wait(int pTimeoutMs)
{
    closeInput();
    readUntil([this] { return mOut < 0 && mErr < 0; }, pTimeoutMs);
    if (mOut >= 0 || mErr >= 0) {
        mResult.mTimedOut = true;
        ::kill(mPid, SIGKILL);
    }
    int tStatus = 0;
    ::waitpid(mPid, &tStatus, 0);
    mPid = -1;
    if (WIFEXITED(tStatus)) {
        mResult.mStatus = WEXITSTATUS(tStatus);
    } else {
        mResult.mSignal = WTERMSIG(tStatus);
    }
    return mResult;
}

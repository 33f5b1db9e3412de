#include "os/CheckRunner.h"

#include "os/AbortFlag.h"
#include "os/CheckKeeper.h"
#include "os/Confinement.h"
#include "os/Descriptor.h"
#include "os/FileTools.h"
#include "os/FreeThread.h"

#include <QtCore/QDeadlineTimer>
#include <QtCore/QDir>
#include <QtCore/QFile>
#include <QtCore/QRegularExpression>
#include <QtCore/QTemporaryDir>

#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <vector>

using namespace Qt::StringLiterals;

namespace tarn::os {

namespace {

constexpr qsizetype sMaxOutput = 4096;
constexpr qsizetype sReadSize = 16384;
constexpr int sReads = 8;            // more than a pipe holds
constexpr int sKeeperMs = 10 * 1000; // it needs less to end everything
constexpr const char* sOfAll[] = {"/dev/null", "/dev/zero",    "/dev/full",
                                  "/dev/tty",  "/dev/urandom", "/dev/random"};

bool isShortage(int pErrno)
{
    return pErrno == EAGAIN || pErrno == ENOMEM || pErrno == EMFILE || pErrno == ENFILE || pErrno == ENOSPC;
}

struct Pipe
{
    Descriptor mRead;
    Descriptor mWrite;

    bool open()
    {
        int tFds[2];
        if (::pipe2(tFds, O_CLOEXEC) != 0) {
            return false;
        }
        mRead = Descriptor(realFileSystem(), tFds[0]);
        mWrite = Descriptor(realFileSystem(), tFds[1]);
        return ::fcntl(mRead.fd(), F_SETFL, O_NONBLOCK) == 0;
    }
};

// One run of one program.
class Check
{
public:
    Check(const CheckProgram& pProgram, const AbortFlag& pAbort)
        : mProgram(pProgram), mAbort(pAbort), mPath(QFile::encodeName(pProgram.mProgram)),
          mFolder(QFile::encodeName(pProgram.mFolder))
    {
    }

    CheckOutcome run()
    {
        if (!mTemporary.isValid() || !start()) {
            mOutcome.mReason = u"can't be started: %1"_s.arg(qt_error_string(errno));
            mOutcome.mIsMachinesFault = true;
            return mOutcome;
        }
        follow();
        ::waitpid(mKeeper, nullptr, 0);
        readOutput();
        judge();
        (void)removeTree(realFileSystem(), mTemporary.path()); // also what is read-only
        return mOutcome;
    }

private:
    bool start()
    {
        Pipe tReport;
        Pipe tOutput;
        Pipe tLife;
        const Descriptor tNull(realFileSystem(), ::open("/dev/null", O_RDONLY | O_CLOEXEC));
        if (!tReport.open() || !tOutput.open() || !tLife.open() || !tNull.isOpen()) {
            return false;
        }
        Confinement tConfinement;
        const bool tConfine = !mProgram.mMayChangeFiles && Confinement::isAvailable();
        if (tConfine) {
            confine(&tConfinement);
        }
        QByteArrayList tVariables = mProgram.mVariables;
        tVariables += {"PATH=/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin", "LANG=C.UTF-8",
                       "TMPDIR=" + QFile::encodeName(mTemporary.path())};
        std::vector<char*> tEnvironment;
        for (QByteArray& tVariable : tVariables) {
            tEnvironment.push_back(tVariable.data());
        }
        tEnvironment.push_back(nullptr);
        char* tArguments[] = {mPath.data(), nullptr};
        mKeeper = startKeeper({.mProgram = mPath.constData(),
                               .mFolder = mFolder.constData(),
                               .mArguments = tArguments,
                               .mEnvironment = tEnvironment.data(),
                               .mConfinement = tConfine ? &tConfinement : nullptr,
                               .mNoInput = tNull.fd(),
                               .mOutput = tOutput.mWrite.fd(),
                               .mLife = tLife.mRead.fd(),
                               .mReport = tReport.mWrite.fd()});
        mOutput = std::move(tOutput.mRead);
        mReport = std::move(tReport.mRead);
        mLife = std::move(tLife.mWrite);
        return mKeeper > 0;
    }

    // The program of a package has no business with the files of this machine.
    void confine(Confinement* pTo) const
    {
        pTo->allowPrograms(u"/"_s);
        pTo->allowWriting(mTemporary.path());
        for (const char* tPath : sOfAll) {
            pTo->allowWriting(QLatin1String(tPath));
        }
    }

    void follow()
    {
        QDeadlineTimer tDeadline(mProgram.mSeconds * Q_INT64_C(1000));
        for (;;) {
            pollfd tPolls[] = {{mReport.fd(), POLLIN, 0},
                               {mOutput.fd(), POLLIN, 0},
                               {mLife.isOpen() ? mAbort.fd() : -1, POLLIN, 0}};
            ::poll(tPolls, std::size(tPolls), static_cast<int>(tDeadline.remainingTime()));
            if (!readOutput()) {
                mOutput = {};
            }
            if (tPolls[0].revents != 0) {
                mIsReported = ::read(mReport.fd(), &mResult, sizeof mResult) == sizeof mResult;
                return;
            }
            if (mLife.isOpen() && (mAbort.isSet() || tDeadline.hasExpired())) {
                mOutcome.mIsAborted = mAbort.isSet();
                mLife.close();
                tDeadline.setRemainingTime(sKeeperMs);
            } else if (tDeadline.hasExpired()) {
                ::kill(mKeeper, SIGKILL);
                return;
            }
        }
    }

    // False at its end. The pipe is kept empty, so that no program waits for this.
    bool readOutput()
    {
        char tBuffer[sReadSize];
        ssize_t tSize = mOutput.isOpen() ? 1 : -1;
        for (int i = 0; i < sReads && tSize > 0; ++i) {
            tSize = ::read(mOutput.fd(), tBuffer, sizeof tBuffer);
            mOutcome.mOutput.append(tBuffer, std::max<ssize_t>(tSize, 0));
            mOutcome.mOutput = mOutcome.mOutput.right(sMaxOutput);
        }
        return tSize != 0;
    }

    void judge()
    {
        if (mOutcome.mIsAborted) {
            mOutcome.mReason = u"was aborted"_s;
        } else if (!mIsReported) {
            mOutcome.mReason = u"ended together with its keeper"_s;
        } else if (mResult.mStartErrno == ENOEXEC) {
            mOutcome.mReason = u"is no program"_s;
        } else if (mResult.mStartErrno != 0) {
            mOutcome.mIsMachinesFault = isShortage(mResult.mStartErrno);
            mOutcome.mReason = u"can't be started: %1"_s.arg(qt_error_string(mResult.mStartErrno));
        } else if (!mResult.mHasEnded) {
            mOutcome.mReason = u"did not end within %1 seconds"_s.arg(mProgram.mSeconds);
        } else if (mResult.mSignal != 0) {
            mOutcome.mReason = u"was ended by signal %1"_s.arg(mResult.mSignal);
        } else if (mResult.mStatus != 0) {
            mOutcome.mReason = u"ended with status %1"_s.arg(mResult.mStatus);
        }
        mOutcome.mPassed = mOutcome.mReason.isEmpty();
    }

    const CheckProgram& mProgram;
    const AbortFlag& mAbort;
    QByteArray mPath;
    QByteArray mFolder;
    QTemporaryDir mTemporary;
    Descriptor mOutput;
    Descriptor mReport;
    Descriptor mLife;
    pid_t mKeeper = -1;
    bool mIsReported = false;
    KeeperReport mResult = {};
    CheckOutcome mOutcome;
};

// Empty if only root and this process's user can change it.
QString whyUnsafe(const QString& pPath, mode_t pKind)
{
    struct stat tStat;
    if (::lstat(QFile::encodeName(pPath).constData(), &tStat) != 0) {
        return qt_error_string(errno);
    }
    if ((tStat.st_mode & S_IFMT) != pKind) {
        return pKind == S_IFDIR ? u"it is no folder"_s : u"it is no plain file"_s;
    }
    if (tStat.st_uid != 0 && tStat.st_uid != ::geteuid()) {
        return u"it belongs to another user"_s;
    }
    if ((tStat.st_mode & (S_IWGRP | S_IWOTH)) != 0) {
        return u"others may change it"_s;
    }
    const int tNeeded = pKind == S_IFDIR ? R_OK | X_OK : X_OK;
    return ::access(QFile::encodeName(pPath).constData(), tNeeded) == 0 ? QString()
                                                                        : u"the service may not use it"_s;
}

class RealCheckRunner : public CheckRunner
{
public:
    QStringList programs(const QString& pFolder, QStringList* pWarnings) override
    {
        static const QRegularExpression sName(u"\\A[A-Za-z0-9_-]+\\z"_s);
        QStringList tPrograms;
        const auto tIsSafe = [pWarnings](const QString& pPath, mode_t pKind) {
            const QString tWhy = whyUnsafe(pPath, pKind);
            if (!tWhy.isEmpty()) {
                pWarnings->append(u"%1 is not run: %2"_s.arg(pPath, tWhy));
            }
            return tWhy.isEmpty();
        };
        if (!QFileInfo::exists(pFolder) || !tIsSafe(pFolder, S_IFDIR)) {
            return {};
        }
        const QStringList tNames =
            QDir(pFolder).entryList(QDir::AllEntries | QDir::System | QDir::NoDotAndDotDot, QDir::Name);
        for (const QString& tName : tNames) {
            const QString tPath = pFolder + u'/' + tName;
            if (sName.match(tName).hasMatch() && tIsSafe(tPath, S_IFREG)) {
                tPrograms.append(tPath);
            }
        }
        return tPrograms;
    }

    CheckOutcome run(const CheckProgram& pProgram, const AbortFlag& pAbort) override
    {
        return Check(pProgram, pAbort).run();
    }
};

} // namespace

CheckRunner& realCheckRunner()
{
    static RealCheckRunner sRunner;
    return sRunner;
}

QStringList FreeCheckRunner::programs(const QString& pFolder, QStringList* pWarnings)
{
    QStringList tFound;
    mThread.call([&] { tFound = mRunner.programs(pFolder, pWarnings); });
    return tFound;
}

CheckOutcome FreeCheckRunner::run(const CheckProgram& pProgram, const AbortFlag& pAbort)
{
    CheckOutcome tOutcome;
    mThread.call([&] { tOutcome = mRunner.run(pProgram, pAbort); });
    return tOutcome;
}

} // namespace tarn::os

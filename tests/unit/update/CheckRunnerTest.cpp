// The checks as real processes.

#include "Files.h"
#include "Test.h"

#include "os/AbortFlag.h"
#include "os/CheckRunner.h"
#include "os/Confinement.h"

#include <QtCore/QElapsedTimer>
#include <QtCore/QProcess>
#include <QtCore/QTemporaryDir>

#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <thread>

using namespace tarn::os;

namespace {

class CheckRunnerTest : public testing::Test
{
protected:
    QString script(const QByteArray& pText, QFile::Permissions pRights = QFile::ReadOwner | QFile::ExeOwner)
    {
        const QString tPath = mDir.filePath(q("check%1").arg(++mCount));
        writeFile(tPath, pText);
        QFile::setPermissions(tPath, pRights);
        return tPath;
    }
    CheckOutcome run(const QString& pPath, bool pMayChangeFiles = true, int pSeconds = 20)
    {
        return realCheckRunner().run({.mProgram = pPath,
                                      .mFolder = mDir.path(),
                                      .mVariables = {"VK_PACKAGE=viewer"},
                                      .mSeconds = pSeconds,
                                      .mMayChangeFiles = pMayChangeFiles},
                                     mAbort);
    }
    // Waits until the process that wrote its id to the file is gone, also as a zombie.
    bool isGone(const QString& pFile) const
    {
        const int tPid = readFile(pFile).trimmed().toInt();
        for (int i = 0; i < 1000 && tPid > 0 && ::kill(tPid, 0) == 0; ++i) {
            ::usleep(10 * 1000);
        }
        return tPid > 0 && ::kill(tPid, 0) != 0;
    }

    QTemporaryDir mDir;
    AbortFlag mAbort;
    int mCount = 0;
};

} // namespace

TEST_F(CheckRunnerTest, SaysWhatBecameOfAProgram)
{
    const QByteArray tSh("#!/bin/sh\n");
    const struct
    {
        const char* mName;
        QByteArray mText;
        QString mReason; // empty: it passes
        QByteArray mOutput = {};
        int mSeconds = 20;
    } tCases[] = {
        {"good", tSh + "echo out; echo err >&2", {}, "out\nerr\n"},
        {"bad", tSh + "exit 3", q("ended with status 3")},
        {"crash", tSh + "kill -SEGV $$", q("was ended by signal 11")},
        {"hang", tSh + "trap '' TERM INT HUP\nexec sleep 600", q("did not end within 1 seconds"), {}, 1},
        {"hang in the background", tSh + "setsid sleep 600 & exit 0", {}},
        {"much output", tSh + "head -c 50000000 /dev/zero | tr '\\0' x; exit 2", q("ended with status 2"),
         QByteArray(4096, 'x')},
        {"endless output", tSh + "exec yes", q("did not end within 1 seconds"),
         QByteArray("y\n").repeated(2048), 1},
        {"no program", "this is no program", q("is no program")},
        {"no interpreter", "#!/nowhere\n", q("can't be started: No such file or directory")},
        {"input", tSh + "read x; echo \"$?\"", {}, "1\n"},
        {"descriptors", tSh + "echo /proc/$$/fd/*|tr -cd '/\\n'|wc -c; test ! -e /proc/$$/fd/11", {}},
        {"variables",
         tSh + "env|cut -d= -f1|grep -v '^_$\\|PWD$'|sort|tr '\\n' ' '",
         {},
         "LANG PATH TMPDIR VK_PACKAGE "},
        {"session", tSh + "test \"$(cut -d' ' -f6 /proc/$$/stat)\" = $$", {}},
    };
    QProcess tOther;
    tOther.start(q("sleep"), {q("600")});
    ASSERT_TRUE(tOther.waitForStarted());
    for (const auto& tCase : tCases) {
        SCOPED_TRACE(tCase.mName);
        QElapsedTimer tTime;
        tTime.start();
        const CheckOutcome tOutcome = run(script(tCase.mText), true, tCase.mSeconds);
        EXPECT_EQ(tOutcome.mReason, tCase.mReason);
        EXPECT_EQ(tOutcome.mPassed, tCase.mReason.isEmpty());
        EXPECT_TRUE(tCase.mOutput.isEmpty() || tOutcome.mOutput == tCase.mOutput) << tOutcome.mOutput;
        EXPECT_LT(tTime.elapsed(), 15000);
    }
    const CheckOutcome tMissing = run(mDir.filePath(q("missing")));
    EXPECT_EQ(tMissing.mReason, q("can't be started: No such file or directory"));
    EXPECT_FALSE(tMissing.mIsMachinesFault);
    const QString tSound = script(tSh + "exit 0");
    qputenv("TMPDIR", QFile::encodeName(tSound)); // no folder for temporary files
    EXPECT_TRUE(run(tSound).mIsMachinesFault);
    qunsetenv("TMPDIR");
    EXPECT_EQ(run(script("#!/bin/sh\n", QFile::ReadOwner)).mReason, q("can't be started: Permission denied"));
    EXPECT_EQ(tOther.state(), QProcess::Running) << "it is no child of a check";
    tOther.kill();
    tOther.waitForFinished();
}

TEST_F(CheckRunnerTest, LeavesNoProcessBehind)
{
    const QString tPid = mDir.filePath(q("pid"));
    // A daemon in a session of its own, whose parents are gone.
    const QByteArray tDaemon = "#!/bin/sh\nsetsid sh -c 'setsid sh -c \"echo \\$\\$ >" + tPid.toUtf8() +
                               "; exec sleep 600\" &' &\nwhile ! test -s " + tPid.toUtf8() +
                               "; do sleep 0.05; done\n";
    EXPECT_TRUE(run(script(tDaemon)).mPassed);
    EXPECT_TRUE(isGone(tPid));

    // The one that started the check is killed.
    QFile::remove(tPid);
    const QString tHanging = script(tDaemon + "sleep 600\n");
    const pid_t tChild = ::fork();
    if (tChild == 0) {
        run(tHanging);
        ::_exit(0);
    }
    for (int i = 0; i < 1000 && readFile(tPid).isEmpty(); ++i) {
        ::usleep(10 * 1000);
    }
    ::kill(tChild, SIGKILL);
    ::waitpid(tChild, nullptr, 0);
    EXPECT_TRUE(isGone(tPid));

    QFile::remove(tPid);
    std::thread tAborter([&] {
        for (int i = 0; i < 1000 && readFile(tPid).isEmpty(); ++i) {
            ::usleep(10 * 1000);
        }
        mAbort.set();
    });
    const CheckOutcome tOutcome = run(tHanging);
    tAborter.join();
    EXPECT_TRUE(tOutcome.mIsAborted && !tOutcome.mPassed);
    EXPECT_TRUE(isGone(tPid));
}

TEST_F(CheckRunnerTest, ACheckOfAPackageChangesNoFile)
{
    if (!Confinement::isAvailable()) {
        GTEST_SKIP() << "no Landlock";
    }
    const QString tFile = mDir.filePath(q("file"));
    const QString tScript = script("#!/bin/sh\necho x >$TMPDIR/x || exit 2\necho x >/dev/null || exit 3\n"
                                   "mkdir -m 0500 $TMPDIR/ro; echo $TMPDIR\necho x >" +
                                   tFile.toUtf8() + " || exit 9\n");
    const CheckOutcome tOutcome = run(tScript, false);
    EXPECT_EQ(tOutcome.mReason, q("ended with status 9")) << tOutcome.mOutput;
    EXPECT_FALSE(QFile::exists(tFile));
    EXPECT_FALSE(QFile::exists(q(tOutcome.mOutput.split('\n').first()))) << "its temporary folder";
    EXPECT_TRUE(run(tScript, true).mPassed);
}

TEST_F(CheckRunnerTest, TakesOnlyProgramsOfTheAdministrator)
{
    const auto tAdd = [this](const char* pName, QFile::Permissions pRights) {
        writeFile(mDir.filePath(q(pName)), "#!/bin/sh\n");
        QFile::setPermissions(mDir.filePath(q(pName)), pRights);
    };
    const QFile::Permissions tRights = QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner;
    tAdd("20-second", tRights);
    tAdd("10_first", tRights);
    tAdd("old.dpkg-old", tRights);
    tAdd("backup~", tRights);
    tAdd("open", tRights | QFile::WriteOther);
    tAdd("group", tRights | QFile::WriteGroup);
    tAdd("text", QFile::ReadOwner);
    QFile::link(mDir.filePath(q("20-second")), mDir.filePath(q("link")));
    QDir(mDir.path()).mkdir(q("folder"));
    QStringList tWarnings;
    EXPECT_EQ(realCheckRunner().programs(mDir.path(), &tWarnings),
              (QStringList{mDir.filePath(q("10_first")), mDir.filePath(q("20-second"))}));
    EXPECT_EQ(tWarnings.size(), 5) << tWarnings.join(u'\n').toStdString();
    EXPECT_TRUE(realCheckRunner().programs(mDir.filePath(q("nowhere")), &tWarnings).isEmpty());
    QFile::setPermissions(mDir.path(), tRights | QFile::WriteGroup);
    EXPECT_TRUE(realCheckRunner().programs(mDir.path(), &tWarnings).isEmpty());
}

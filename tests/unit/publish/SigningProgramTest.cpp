#include "keys/SigningProgram.h"
#include "keys/CommandWords.h"
#include "Test.h"

#include <QtCore/QElapsedTimer>

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <future>
#include <thread>

using namespace tarn::vkpublish;

namespace {

QString shell(const QByteArray& pScript, const ProgramLimits& pLimits = {})
{
    const tarn::Result<QByteArray> tOutput = runSigningProgram({"sh", "-c", pScript}, "message", pLimits);
    return tOutput ? q(*tOutput) : q("! ") + tOutput.failure().mText;
}

TEST(SigningProgramTest, SplitsWordsLikeAShell)
{
    const std::pair<const char*, const char*> sCases[] = {
        {"a b", "a|b"},
        {"  a\t b\n", "a|b"},
        {"a 'b \\ \"c' d", "a|b \\ \"c|d"},
        {"a \"b \\\" \\\\ \\n $HOME\"", "a|b \" \\ \\n $HOME"},
        {"a b\\ c \\'", "a|b c|'"},
        {"a '' \"\"", "a||"},
        {"a'b'\"c\"", "abc"},
        {"a;b|c>d *", "a;b|c>d|*"},
        {"a 'b", ""},
        {"a \"b", ""},
        {"a \\", ""},
        {" ", ""},
        {"'' b", ""},
    };
    for (const auto& [tCommand, tWords] : sCases) {
        EXPECT_EQ(commandWords(q(tCommand)).join('|'), tWords) << tCommand;
    }
}

TEST(SigningProgramTest, TakesOneSignatureOrOneReason)
{
    const std::tuple<const char*, ProgramLimits, const char*> sCases[] = {
        {"cat", {}, "message"},
        {"echo ignores its input", {}, "ignores its input\n"},
        {"echo stays & sleep 1000", {1}, "! The command sh did not end within 1 seconds"},
        {"cat; sleep 1000 & exit 0", {}, "message"}, // what it leaves does not hold this up
        {"cat; exit 3", {}, "! The command sh ended with status 3"},
        {"cat; kill -9 $$", {}, "! The command sh was ended by signal 9"},
        {"kill -STOP $$", {}, "! The command sh was stopped"},
        {"exit 0", {}, "! The command sh wrote no signature"},
        {"yes", {}, "! The command sh writes more than a signature"},
        {"exec perl -e 'setpgrp(0, getpgrp(getppid())); sleep 1000'",
         {1},
         "! The command sh did not end within 1 seconds"},
        {"exec 1>&-; sleep 1000", {1}, "! The command sh did not end within 1 seconds"},
    };
    for (const auto& [tScript, tLimits, tExpected] : sCases) {
        EXPECT_EQ(shell(tScript, tLimits), q(tExpected)) << tScript;
    }
    const tarn::Result<QByteArray> tNone = runSigningProgram({"no-such-program"}, "", {});
    EXPECT_EQ(tNone.failure().mText,
              q("The command no-such-program can't be started: No such file or directory"));
}

TEST(SigningProgramTest, TransfersBothWaysAtOnce)
{
    const QByteArray tMuch(20'000'000, 'm');
    const tarn::Result<QByteArray> tBack =
        runSigningProgram({"cat"}, tMuch, {.mSeconds = 60, .mOutput = tMuch.size()});
    EXPECT_TRUE(tBack && *tBack == tMuch);
    const tarn::Result<QByteArray> tUnread = runSigningProgram({"echo", "done"}, tMuch, {});
    EXPECT_TRUE(tUnread) << tUnread.failure().mText.toStdString();
}

TEST(SigningProgramTest, EndsAlsoIfAnotherThreadTakesTheSignal)
{
    std::promise<void> tDone;
    std::thread tOther([&] { tDone.get_future().wait(); });
    for (int i = 0; i < 100 && !testing::Test::HasFailure(); ++i) {
        QElapsedTimer tTimer;
        tTimer.start();
        EXPECT_EQ(shell("echo signature", {60}), q("signature\n"));
        EXPECT_LT(tTimer.elapsed(), 50'000) << "it waited for its limit";
    }
    tDone.set_value();
    tOther.join();
}

TEST(SigningProgramTest, InheritsNothingAndLeavesNothing)
{
    const int tFd = ::open("/dev/null", O_RDONLY); // inheritable
    EXPECT_EQ(shell("test -e /proc/$$/fd/" + QByteArray::number(tFd) + " || echo closed"), q("closed\n"));
    ::close(tFd);

    const QTemporaryDir tDir;
    const QString tLock = tDir.filePath(q("lock"));
    EXPECT_TRUE(shell("flock " + tLock.toUtf8() + " sleep 1000 & wait", {1}).contains(q("did not end")));
    const int tLockFd = ::open(tLock.toUtf8().constData(), O_RDWR);
    ASSERT_GE(tLockFd, 0);
    EXPECT_EQ(::flock(tLockFd, LOCK_EX), 0); // waits for the kernel to end those that were killed
    ::close(tLockFd);
}

} // namespace

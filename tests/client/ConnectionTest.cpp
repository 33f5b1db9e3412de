#include "ClientTest.h"

#include <csignal>

#include <sys/file.h>
#include <unistd.h>

using Peer = ScriptedService::Peer;

static QByteArray failure(const QString& pDir)
{
    return "Connection to the service failed!\nPlease check the permissions of " + pDir.toUtf8() + '\n';
}

// A name, an absolute path to nothing, and a stale socket.
TEST(ConnectionTest, BlamesTheFolderOfTheSocket)
{
    const Installation tInstallation;
    const QString tTmp = tInstallation.path("tmp");
    ::close(boundSocket(tInstallation.socketPath("left")));
    const struct
    {
        Words mCommand;
        QString mDir;
    } tCases[] = {
        {"update-settings --data-dir=x --socket=sub/name", tTmp},
        {"update --socket=left", tTmp},
        {{"list-servers", "--socket", ""}, tTmp},
        {"list-servers --socket=/no%1/where/../here/socket", q("/no%1/here")},
    };
    for (const auto& tCase : tCases) {
        expectResult(tInstallation.run(tCase.mCommand), "", failure(tCase.mDir), 1);
    }
    const QByteArray tProgram = tInstallation.path("bin/vkservice").toUtf8();
    EXPECT_EQ(tInstallation.log().count("ERROR: could not start " + tProgram), 4);
    EXPECT_EQ(tInstallation.log().count("Service did not react to quit request, terminating process"), 4);
}

TEST_F(ClientTest, TheLastSocketIsUsedByAllConnections)
{
    ScriptedService tOther(mInstallation.socketPath("other"));
    tOther.onCall("triggerUpdate", [&tOther](Peer& pPeer, const QJsonObject&) {
        tOther.sendEvent("serviceStatusChanged", R"({"status": 0})");
        pPeer.reply("true");
    });
    EXPECT_EQ(mInstallation.run(Words("update --socket=vkservice --socket=other")).mStatus, 0);
    EXPECT_EQ(text(mService.allCalls()), "");
    EXPECT_TRUE(tOther.calls().contains(q("enterMonitorMode")));
}

TEST_F(ClientTest, AServiceThatWasThereIsNeverStopped)
{
    mInstallation.addProgram(STAND_IN, "vkservice");
    for (const char* tCommand : {"show-settings", "update-settings --data-dir=x", "update --no-wait"}) {
        mInstallation.run(Words(tCommand));
    }
    EXPECT_FALSE(mService.calls().contains(q("quitService")));
    EXPECT_EQ(mInstallation.readFile("tmp/worker.log"), "");
    EXPECT_EQ(mService.allCalls().mid(0, 2).last(), q("ping"));
}

namespace {

class WorkerTest : public testing::Test
{
protected:
    WorkerTest() { mInstallation.addProgram(STAND_IN, "vkservice"); }

    Program::Result run(const QByteArray& pBehaviour, const Words& pArguments)
    {
        QFile::remove(mInstallation.path("tmp/worker.log"));
        mInstallation.environment().insert("STAND_IN", pBehaviour);
        return mInstallation.run(pArguments);
    }
    QByteArray story() const { return mInstallation.readFile("tmp/worker.log"); }

    Installation mInstallation;
};

} // namespace

TEST_F(WorkerTest, ServesOneRun)
{
    const QByteArray tPath = mInstallation.socketPath("own").toUtf8();
    const struct
    {
        QByteArray mBehaviour;
        Words mArguments;
        QByteArray mOut;
        QByteArray mStory;
    } tCases[] = {
        {"slow", "show-settings -d --socket=x --socket=name", "Data directory: /srv/kdml\n",
         "-worker -s=name\nasked to quit\nended\n"},
        {"slow",
         {"update", "--no-wait", "--socket", tPath},
         "",
         "-worker -s=" + tPath + "\nasked to quit\nended\n"},
        {"stubborn", "show-settings -d", "Data directory: /srv/kdml\n", "-worker\nterminated\n"},
    };
    for (const auto& tCase : tCases) {
        expectResult(run(tCase.mBehaviour, tCase.mArguments), tCase.mOut, "", 0);
        EXPECT_EQ(story(), "started -e " + tCase.mStory);
    }
    EXPECT_EQ(mInstallation.log().count("Service did not react to quit request, terminating process"), 1);
}

TEST_F(WorkerTest, IsKilledWhenItDoesNotEndWithinAMinute)
{
    Program::Environment& tEnvironment = mInstallation.environment();
    tEnvironment.insert("LD_PRELOAD", SHORT_MINUTE);
    tEnvironment["ASAN_OPTIONS"].append(":verify_asan_link_order=0"); // which it expects first
    EXPECT_EQ(run("lingering", "show-settings -d").mStatus, 0);
    QFile tStory(mInstallation.path("tmp/worker.log"));
    ASSERT_TRUE(tStory.open(QIODevice::ReadOnly));
    EXPECT_EQ(::flock(tStory.handle(), LOCK_EX), 0);
    EXPECT_EQ(tStory.readAll(), "started -e -worker\nasked to quit\nstays\n");
    EXPECT_EQ(mInstallation.log().count("Timeout while waiting for service quit, killing process"), 1);
}

TEST_F(WorkerTest, ThatDoesNotAnswerAPingIsAFailedConnection)
{
    expectResult(run("mute", "show-settings"), "", failure(mInstallation.path("tmp")), 1);
    EXPECT_EQ(story(), "started -e -worker\nterminated\n");
}

// Long before the timeout of 30 seconds, and without a message about a process to kill.
TEST_F(WorkerTest, ThatEndsAtOnceIsNotWaitedFor)
{
    QElapsedTimer tTimer;
    tTimer.start();
    expectResult(run("gone", "show-settings"), "", failure(mInstallation.path("tmp")), 1);
    EXPECT_LT(tTimer.elapsed(), 25000);
    EXPECT_TRUE(mInstallation.log().contains("ERROR: the service has ended at once"));
    EXPECT_FALSE(mInstallation.log().contains("killing process"));
}

TEST_F(WorkerTest, ThatAnnouncesItsEndIsLeftToIt)
{
    expectResult(run("leaving", "update --quiet"), "\x1b[1G\x1b[KUpdate started\x1b[1G\x1b[K", "", 0);
    QElapsedTimer tTimer;
    tTimer.start();
    while (!story().contains("ended") && tTimer.elapsed() < 10000) {
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    EXPECT_EQ(story(), "started -e -worker\nended\n");
}

TEST_F(WorkerTest, IsTakenDownByAnInterrupt)
{
    mInstallation.environment().insert("STAND_IN", "silent");
    const std::unique_ptr<Program> tProgram = mInstallation.start({"show-settings", "-s", "-d"});
    ASSERT_TRUE(tProgram->waitForOutput("Default server"));
    tProgram->signal(SIGINT);
    const Program::Result tResult = tProgram->wait();
    EXPECT_EQ(tResult.mErr, "Failed to query the kdml data directory\n");
    EXPECT_EQ(tResult.mStatus, 1);
    EXPECT_EQ(story(), "started -e -worker\nasked to quit\nended\n");
}

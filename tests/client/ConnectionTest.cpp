#include "ClientTest.h"

#include <QtCore/QDeadlineTimer>

#include <csignal>
#include <thread>

#include <sys/file.h>
#include <unistd.h>

using Peer = ScriptedService::Peer;

static QByteArray failure(const QString& pDir)
{
    return "Connection to the service failed!\nPlease check the permissions of " + pDir.toUtf8() + '\n';
}

// All commands that talk to the service, each with as much as it needs to get there.
static const QList<QList<QByteArray>> sServiceCommands{
    {"show-settings"},
    {"update-settings", "--data-dir=x"},
    {"show-schedule-settings"},
    {"list-servers"},
    {"update-schedule-settings", "-i1d"},
    {"show-monitoring-settings"},
    {"service-status"},
    {"update-monitoring-settings", "-e"},
    {"add-server"},
    {"remove-server"},
    {"update-server", "-M1"},
    {"update"},
    {"update", "--no-wait"},
};

TEST(ConnectionTest, EveryCommandFailsWithoutAService)
{
    const Installation tInstallation;
    for (const QList<QByteArray>& tCommand : sServiceCommands) {
        SCOPED_TRACE(tCommand.join(' '));
        expectResult(tInstallation.run(tCommand), "", failure(tInstallation.path("tmp")), 1);
    }
    const QByteArray tLog = tInstallation.log();
    const QByteArray tProgram = tInstallation.path("bin/vkservice").toUtf8();
    EXPECT_EQ(tLog.count("ERROR: could not start " + tProgram), sServiceCommands.size());
    EXPECT_EQ(tLog.count("Service did not react to quit request, terminating process"),
              sServiceCommands.size());
}

TEST(ConnectionTest, BlamesTheFolderOfTheSocket)
{
    const Installation tInstallation;
    const QString tTmp = tInstallation.path("tmp");
    const struct
    {
        QByteArray mSocket;
        QString mDir;
    } tCases[] = {
        {"name", tTmp},
        {"sub/name", tTmp},
        {"", tTmp},
        {"/no%1/where/../here/socket", q("/no%1/here")},
    };
    for (const auto& tCase : tCases) {
        const Program::Result tResult = tInstallation.run({"list-servers", "--socket", tCase.mSocket});
        EXPECT_EQ(tResult.mErr, failure(tCase.mDir));
        EXPECT_EQ(tResult.mStatus, 1);
    }
}

TEST_F(ClientTest, TheLastSocketIsUsedByAllConnections)
{
    ScriptedService tOther(mInstallation.socketPath("other"));
    tOther.onCall("triggerUpdate", [&tOther](Peer& pPeer, const QJsonObject&) {
        tOther.sendEvent("serviceStatusChanged", R"({"status": 0})");
        pPeer.reply("true");
    });
    const Program::Result tResult = mInstallation.run({"update", "--socket=vkservice", "--socket=other"});
    EXPECT_EQ(tResult.mStatus, 0);
    EXPECT_EQ(text(mService.allCalls()), "");
    EXPECT_TRUE(tOther.calls().contains(q("enterMonitorMode")));
}

TEST_F(ClientTest, AServiceThatWasThereIsNeverStopped)
{
    mInstallation.addProgram(STAND_IN, "vkservice");
    for (const QList<QByteArray>& tCommand : sServiceCommands) {
        if (tCommand != QList<QByteArray>{"update"}) {
            mInstallation.run(tCommand);
        }
    }
    EXPECT_FALSE(mService.calls().contains(q("quitService")));
    EXPECT_EQ(mInstallation.readFile("tmp/worker.log"), "");
    EXPECT_EQ(mService.allCalls().mid(0, 2).last(), q("ping"));
}

TEST_F(ClientTest, APingThatFailsIsAFailedConnection)
{
    mService.refuse("ping");
    const Program::Result tResult = mInstallation.run({"list-servers"});
    EXPECT_EQ(tResult.mErr, failure(mInstallation.path("tmp")));
    EXPECT_EQ(tResult.mStatus, 1);
}

namespace {

class WorkerTest : public testing::Test
{
protected:
    WorkerTest() { mInstallation.addProgram(STAND_IN, "vkservice"); }

    Program::Result run(const QByteArray& pBehaviour, const QList<QByteArray>& pArguments)
    {
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
        QList<QByteArray> mArguments;
        QByteArray mOut;
        QByteArray mStarted;
    } tCases[] = {
        {{"show-settings", "-d"}, "Data directory: /srv/kdml\n", "-e -worker"},
        {{"show-settings", "-d", "--socket=x", "--socket=name"},
         "Data directory: /srv/kdml\n",
         "-e -worker -s=name"},
        {{"list-servers", "--socket", tPath}, "", "-e -worker -s=" + tPath},
        {{"service-status"},
         "Automatic updates are enabled but the service is currently not running.\n",
         "-e -worker"},
        {{"update", "--no-wait"}, "", "-e -worker"},
    };
    for (const auto& tCase : tCases) {
        SCOPED_TRACE(tCase.mArguments.join(' '));
        QFile::remove(mInstallation.path("tmp/worker.log"));
        const Program::Result tResult = run("slow", tCase.mArguments);
        EXPECT_TRUE(tCase.mOut.isEmpty() || tResult.mOut == tCase.mOut) << tResult.mOut;
        EXPECT_EQ(tResult.mErr, "");
        EXPECT_EQ(tResult.mStatus, 0);
        EXPECT_EQ(story(), "started " + tCase.mStarted + "\nasked to quit\nended\n");
    }
}

TEST_F(WorkerTest, IsTerminatedWhenItRefusesToQuit)
{
    EXPECT_EQ(run("stubborn", {"show-settings", "-d"}).mStatus, 0);
    EXPECT_EQ(story(), "started -e -worker\nterminated\n");
    EXPECT_TRUE(mInstallation.log().contains("Service did not react to quit request, terminating process"));
}

TEST_F(WorkerTest, IsKilledWhenItDoesNotEndWithinAMinute)
{
    Program::Environment& tEnvironment = mInstallation.environment();
    tEnvironment.insert("LD_PRELOAD", SHORT_MINUTE);
    tEnvironment["ASAN_OPTIONS"].append(":verify_asan_link_order=0"); // which it would look for in front
    for (const bool tAgrees : {true, false}) {
        SCOPED_TRACE(tAgrees);
        QFile tStory(mInstallation.path("tmp/worker.log"));
        tStory.remove();
        const QByteArray tBehaviour = tAgrees ? "lingering" : "deaf";
        EXPECT_EQ(run(tBehaviour, {"show-settings", "-d"}).mStatus, 0);
        ASSERT_TRUE(tStory.open(QIODevice::ReadOnly));
        EXPECT_EQ(::flock(tStory.handle(), LOCK_EX), 0);
        EXPECT_EQ(tStory.readAll(),
                  QByteArray("started -e -worker\n") + (tAgrees ? "asked to quit\n" : "") + "stays\n");
    }
    EXPECT_EQ(mInstallation.log().count("Timeout while waiting for service quit, killing process"), 2);
}

TEST_F(WorkerTest, ThatDoesNotAnswerAPingIsAFailedConnection)
{
    const Program::Result tResult = run("mute", {"show-settings"});
    EXPECT_EQ(tResult.mErr, failure(mInstallation.path("tmp")));
    EXPECT_EQ(tResult.mStatus, 1);
    EXPECT_EQ(story(), "started -e -worker\nterminated\n");
}

// Long before the half minute that a socket is waited for, and without a word about a process to kill.
TEST_F(WorkerTest, ThatEndsAtOnceIsNotWaitedFor)
{
    QElapsedTimer tTimer;
    tTimer.start();
    expectResult(run("gone", {"show-settings"}), "", failure(mInstallation.path("tmp")), 1);
    EXPECT_LT(tTimer.elapsed(), 25000);
    EXPECT_TRUE(mInstallation.log().contains("ERROR: the service has ended at once"));
    EXPECT_FALSE(mInstallation.log().contains("killing process"));
}

TEST_F(WorkerTest, ThatAnnouncesItsEndIsLeftToIt)
{
    const Program::Result tResult = run("leaving", {"update", "--quiet"});
    EXPECT_EQ(tResult.mErr, "");
    EXPECT_EQ(tResult.mStatus, 0);
    const QDeadlineTimer tDeadline(10000);
    while (!story().contains("ended") && !tDeadline.hasExpired()) {
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

TEST(ConnectionTest, ASocketThatNobodyListensOnIsNoService)
{
    const Installation tInstallation;
    {
        const ScriptedService tGone(tInstallation.socketPath());
    }
    ASSERT_TRUE(QFile::exists(tInstallation.socketPath()));
    EXPECT_EQ(tInstallation.run({"list-servers"}).mErr, failure(tInstallation.path("tmp")));
}

// Whatever a service says instead of an answer, the call fails and nothing else happens.
TEST_F(ClientTest, ABrokenServiceFailsTheCall)
{
    const QByteArray tAnswers[] = {
        "garbage\n",
        QByteArray(R"({"jsonrpc":"2.0","id":999,"result":{"app":"de","data":"en"}})") + '\n',
        R"({"half a line":)",
        QByteArray(9 * 1024 * 1024, 'x'),
        "",
    };
    for (const QByteArray& tAnswer : tAnswers) {
        SCOPED_TRACE(tAnswer.left(80));
        mService.onCall("getLanguages", [&](Peer& pPeer, const QJsonObject&) {
            pPeer.send(tAnswer);
            pPeer.hangUp();
        });
        const Program::Result tResult = mInstallation.run({"show-settings", "-l"});
        EXPECT_EQ(tResult.mOut, "Application language:  ()\n");
        EXPECT_EQ(tResult.mErr, "Failed to query languages.\n");
    }
    for (const char* tResult : {"null", "true", "5", R"("de")", "[]", "{}", R"({"app": 5, "data": "en"})"}) {
        SCOPED_TRACE(tResult);
        mService.answer("getLanguages", tResult);
        EXPECT_EQ(mInstallation.run({"show-settings", "-l"}).mErr, "Failed to query languages.\n");
    }
}

TEST_F(ClientTest, EventsThatNobodyAskedForDoNoHarm)
{
    mService.onCall("getKdmlDataDirectory", [](Peer& pPeer, const QJsonObject&) {
        pPeer.send(ScriptedService::eventLine("serviceStatusChanged", R"({"status": 0})") +
                   ScriptedService::eventLine("unheardOf", "{}") + pPeer.answerLine(R"("/x")"));
    });
    const Program::Result tResult = mInstallation.run({"show-settings", "-d"});
    EXPECT_EQ(tResult.mOut, "Data directory: /x\n");
    EXPECT_EQ(tResult.mErr, "");
}

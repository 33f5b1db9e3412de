#include "ServiceRig.h"

#include <sys/stat.h>
#include <unistd.h>

#include <csignal>

TEST_F(ServiceTest, CommandLine)
{
    const auto tRun = [this](const char* pArgument) { return mRig.startAnother({pArgument})->wait(); };
    EXPECT_TRUE(tRun("--help").mOut.startsWith("Usage: vkservice"));
    EXPECT_TRUE(tRun("--version").mOut.startsWith("vkservice "));
    for (const char* tWrong : {"-s=", "update"}) {
        EXPECT_EQ(tRun(tWrong).mStatus, 2);
        EXPECT_TRUE(tRun(tWrong).mErr.startsWith(QByteArray("Unknown argument: ") + tWrong));
    }
    EXPECT_FALSE(QFile::exists(mRig.state("state.db")));
}

TEST_F(ServiceTest, SecondServiceRefusesAndLeavesTheFirstAlone)
{
    mRig.start();
    expectRefusal(mRig.startAnother({"-e", "-worker", "-s=other"})->wait(),
                  "Another service is using the state directory");

    ServiceRig tOther;
    const QByteArray tSocket = "-s=" + QFile::encodeName(mRig.socket());
    expectRefusal(tOther.startAnother({"-e", "-worker", tSocket})->wait(),
                  "Another service is already listening");

    EXPECT_EQ(mRig.connect().call("ping"), true);
}

// The other one may end before the client of this one has connected.
TEST_F(ServiceTest, WorkerWaitsForAnotherOneOnItsSocket)
{
    mRig.start();
    const auto tSecond = mRig.startAnother({"-e", "-worker"});
    EXPECT_FALSE(tSecond->waitForOutput("ends at once", 1, 500));
    EXPECT_EQ(mRig.stop(), 0);
    RawPeer tPeer(mRig.socket());
    const pid_t tPid =
        tPeer.call("hello", R"({"protocol": 1, "client": "c", "version": ""})")[q("pid")].toInt();
    EXPECT_EQ(tPid, tSecond->pid());
}

TEST_F(ServiceTest, WhatIsNotItsSocketIsLeftAlone)
{
    mRig.installation().writeFile("tmp/vkservice", "precious");
    expectRefusal(mRig.startAnother()->wait(), "Can't create the socket");
    EXPECT_EQ(mRig.installation().readFile("tmp/vkservice"), "precious");
    ASSERT_TRUE(QFile::remove(mRig.socket()));
    RawPeer tPeer = mRig.startAndConnect();
    ASSERT_TRUE(QFile::remove(mRig.socket()));
    mRig.installation().writeFile("tmp/vkservice", "somebody else's by now");
    EXPECT_EQ(tPeer.call("quitService"), true);
    EXPECT_EQ(mRig.program().wait().mStatus, 0);
    EXPECT_TRUE(QFile::exists(mRig.socket()));
}

TEST_F(ServiceTest, PlaceOfTheSocket)
{
    const QString tAbsolute = mRig.installation().path("named.socket");
    mRig.configure("socketName = \"set\"\n");
    for (const auto& [tGiven, tSocket] : {std::pair(q("-worker"), mRig.installation().socketPath("set")),
                                          {q("-s=given"), mRig.installation().socketPath("given")},
                                          {q("-s=") + tAbsolute, tAbsolute}}) {
        const auto tService = mRig.startAnother({"-e", "-worker", tGiven.toUtf8()});
        EXPECT_EQ(RawPeer(tSocket).call("ping"), true) << tSocket;
        tService->signal(SIGTERM);
        EXPECT_EQ(tService->wait().mStatus, 0);
    }
    expectRefusal(mRig.startAnother({"-e", "-s=/" + QByteArray(200, 'x')})->wait(), "too long");
}

TEST_F(ServiceTest, SignalsEndItInOrder)
{
    for (const int tSignal : {SIGTERM, SIGINT}) {
        SCOPED_TRACE(tSignal);
        RawPeer tMonitor = mRig.startAndConnect();
        ASSERT_EQ(tMonitor.call("enterMonitorMode"), true);
        EXPECT_EQ(::getpgid(mRig.program().pid()), mRig.program().pid()) << "Ctrl-C is for the parent";
        struct stat tStat = {};
        ASSERT_EQ(::lstat(QFile::encodeName(mRig.socket()).constData(), &tStat), 0);
        EXPECT_EQ(tStat.st_mode & 0777, 0600u);
        mRig.program().signal(tSignal);
        EXPECT_TRUE(tMonitor.waitForEvent("quitRequestReceived"));
        EXPECT_TRUE(tMonitor.waitForEnd());
        EXPECT_EQ(mRig.program().wait().mStatus, 0);
        EXPECT_FALSE(QFileInfo::exists(mRig.socket()));
    }
}

// The shell is the worker's parent; it is killed while a client is still connected.
TEST_F(ServiceTest, WorkerEndsWithItsParentAndItsLastClient)
{
    const QByteArray tService = mRig.installation().path("bin/vkservice").toUtf8();
    Program tShell(q("/bin/sh"), {"-c", tService + " -e -worker & wait"}, mRig.installation().environment());
    auto tClient = std::make_unique<RawPeer>(mRig.socket());
    const pid_t tPid =
        tClient->call("hello", R"({"protocol": 1, "client": "c", "version": ""})")[q("pid")].toInt();
    ASSERT_GT(tPid, 0);
    ASSERT_NE(tPid, tShell.pid());
    EXPECT_EQ(tClient->errorOf("quitService"), 1) << "it belongs to the shell";
    tShell.signal(SIGKILL);
    EXPECT_EQ(tClient->call("ping"), true);
    tClient.reset();
    for (int i = 0; i < 2000 && QFileInfo::exists(mRig.socket()); ++i) {
        ::usleep(5000);
    }
    EXPECT_FALSE(QFileInfo::exists(mRig.socket()));
}

TEST_F(ServiceTest, StartThatCannotWorkSaysWhy)
{
    mRig.configure("= broken");
    expectRefusal(mRig.startAnother()->wait(), "vk.cfg");
    mRig.configure("socketGroup = \"no-such-group\"\n");
    expectRefusal(mRig.startAnother()->wait(), "no-such-group");
    EXPECT_FALSE(QFileInfo::exists(mRig.socket()));
    ServiceRig tFresh;
    tFresh.installation().writeFile("state", "a file in the folder's place");
    expectRefusal(tFresh.startAnother()->wait(), "state directory");
}

#include "ServiceRig.h"

#include <QtCore/QFile>
#include <QtCore/QFileInfo>

#include <sys/stat.h>
#include <unistd.h>

#include <csignal>

TEST_F(ServiceTest, CommandLine)
{
    const struct
    {
        QByteArray mArgument;
        int mStatus;
        const char* mOut;
        const char* mErr;
    } tCases[] = {
        {"--help", 0, "Usage: vkservice", ""},   {"--version", 0, "vkservice ", ""},
        {"-x", 2, "", "Unknown argument: -x"},   {"-s", 2, "", "Unknown argument: -s"},
        {"-s=", 2, "", "Unknown argument: -s="}, {"update", 2, "", "Unknown argument: update"},
    };
    for (const auto& tCase : tCases) {
        SCOPED_TRACE(tCase.mArgument.toStdString());
        const Program::Result tResult = mRig.startAnother({tCase.mArgument})->wait();
        EXPECT_EQ(tResult.mStatus, tCase.mStatus);
        EXPECT_TRUE(tResult.mOut.startsWith(tCase.mOut)) << tResult.mOut.toStdString();
        EXPECT_TRUE(tResult.mErr.startsWith(tCase.mErr)) << tResult.mErr.toStdString();
    }
    EXPECT_FALSE(QFile::exists(mRig.state("state.db")));
}

TEST_F(ServiceTest, SecondServiceRefusesAndLeavesTheFirstAlone)
{
    mRig.start();
    const Program::Result tSameState = mRig.startAnother({"-e", "-worker", "-s=other"})->wait();
    EXPECT_EQ(tSameState.mStatus, 1);
    EXPECT_TRUE(tSameState.mErr.contains("Another service is using the state directory"))
        << tSameState.mErr.toStdString();

    ServiceRig tOther;
    const QByteArray tSocket = "-s=" + QFile::encodeName(mRig.socket());
    const Program::Result tSameSocket = tOther.startAnother({"-e", "-worker", tSocket})->wait();
    EXPECT_EQ(tSameSocket.mStatus, 1);
    EXPECT_TRUE(tSameSocket.mErr.contains("Another service is listening")) << tSameSocket.mErr.toStdString();

    EXPECT_EQ(mRig.connect().call(QStringLiteral("ping")), QJsonValue(true));
}

TEST_F(ServiceTest, SocketOfAKilledServiceIsTakenOver)
{
    mRig.start();
    mRig.program().signal(SIGKILL);
    mRig.program().wait();
    ASSERT_TRUE(QFileInfo::exists(mRig.socket()));
    mRig.start();
    struct stat tStat = {};
    ASSERT_EQ(::lstat(QFile::encodeName(mRig.socket()).constData(), &tStat), 0);
    EXPECT_EQ(tStat.st_mode & 0777, 0600u);
    EXPECT_EQ(mRig.connect().call(QStringLiteral("quitService")), QJsonValue(true));
    EXPECT_EQ(mRig.program().wait().mStatus, 0);
    EXPECT_FALSE(QFileInfo::exists(mRig.socket()));
}

TEST_F(ServiceTest, FileThatIsNoSocketIsLeftAlone)
{
    mRig.installation().writeFile(QStringLiteral("tmp/vkservice"), "precious");
    const Program::Result tResult = mRig.startAnother()->wait();
    EXPECT_EQ(tResult.mStatus, 1);
    EXPECT_TRUE(tResult.mErr.contains("can't be made")) << tResult.mErr.toStdString();
    EXPECT_EQ(mRig.installation().readFile(QStringLiteral("tmp/vkservice")), "precious");
}

TEST_F(ServiceTest, SocketOfAnotherServiceIsNotRemovedAtTheEnd)
{
    mRig.start();
    RawPeer tPeer = mRig.connect();
    ASSERT_TRUE(QFile::remove(mRig.socket()));
    mRig.installation().writeFile(QStringLiteral("tmp/vkservice"), "somebody else's by now");
    EXPECT_EQ(tPeer.call(QStringLiteral("quitService")), QJsonValue(true));
    EXPECT_EQ(mRig.program().wait().mStatus, 0);
    EXPECT_TRUE(QFile::exists(mRig.socket()));
}

TEST_F(ServiceTest, PlaceOfTheSocket)
{
    const QString tAbsolute = mRig.installation().path(QStringLiteral("named.socket"));
    const struct
    {
        QByteArray mConfigured;
        QList<QByteArray> mArguments;
        QString mSocket;
    } tCases[] = {
        {"", {"-e", "-worker"}, mRig.installation().socketPath()},
        {"", {"-e", "-worker", "-s=given"}, mRig.installation().socketPath(QStringLiteral("given"))},
        {"socketName = \"set\"\n", {"-e", "-worker"}, mRig.installation().socketPath(QStringLiteral("set"))},
        {"socketName = \"set\"\n", {"-e", "-worker", "-s=" + tAbsolute.toUtf8()}, tAbsolute},
    };
    for (const auto& tCase : tCases) {
        SCOPED_TRACE(tCase.mSocket.toStdString());
        mRig.configure(tCase.mConfigured);
        const auto tService = mRig.startAnother(tCase.mArguments);
        EXPECT_EQ(RawPeer(tCase.mSocket).call(QStringLiteral("ping")), QJsonValue(true));
        tService->signal(SIGTERM);
        EXPECT_EQ(tService->wait().mStatus, 0);
    }
    const Program::Result tLong = mRig.startAnother({"-e", "-s=/" + QByteArray(200, 'x')})->wait();
    EXPECT_EQ(tLong.mStatus, 1);
    EXPECT_TRUE(tLong.mErr.contains("too long")) << tLong.mErr.toStdString();
}

TEST_F(ServiceTest, SignalsEndItInOrder)
{
    for (const int tSignal : {SIGTERM, SIGINT}) {
        SCOPED_TRACE(tSignal);
        mRig.start();
        RawPeer tMonitor = mRig.connect();
        ASSERT_EQ(tMonitor.call(QStringLiteral("enterMonitorMode")), QJsonValue(true));
        mRig.program().signal(tSignal);
        EXPECT_TRUE(tMonitor.waitForEvent(QStringLiteral("quitRequestReceived")));
        EXPECT_TRUE(tMonitor.waitForEnd());
        EXPECT_EQ(mRig.program().wait().mStatus, 0);
        EXPECT_FALSE(QFileInfo::exists(mRig.socket()));
    }
}

TEST_F(ServiceTest, HangupReloadsTheConfiguration)
{
    mRig.start();
    mRig.configure("update.waitForApps = 31\n");
    mRig.program().signal(SIGHUP);
    RawPeer tPeer = mRig.connect();
    const QJsonObject tName = json(R"({"name": "update.waitForApps", "default": ""})");
    for (int i = 0; i < 1000 && tPeer.call(QStringLiteral("getConfigValue"), tName) != QStringLiteral("31");
         ++i) {
    }
    EXPECT_EQ(tPeer.call(QStringLiteral("getConfigValue"), tName), QJsonValue(QStringLiteral("31")));
}

// The shell is the worker's parent; it is killed while a client is still there.
TEST_F(ServiceTest, WorkerEndsWithItsParentAndItsLastClient)
{
    const QByteArray tService = mRig.installation().path(QStringLiteral("bin/vkservice")).toUtf8();
    Program tShell(QStringLiteral("/bin/sh"), {"-c", tService + " -e -worker & wait"},
                   mRig.installation().environment());
    auto tClient = std::make_unique<RawPeer>(mRig.socket());
    const pid_t tPid =
        tClient->call(QStringLiteral("hello"), json(R"({"protocol": 1, "client": "c", "version": ""})"))
            .toObject()
            .value(QLatin1String("pid"))
            .toInt();
    ASSERT_GT(tPid, 0);
    ASSERT_NE(tPid, tShell.pid());
    tShell.signal(SIGKILL);
    EXPECT_EQ(tClient->call(QStringLiteral("ping")), QJsonValue(true));
    tClient.reset();
    for (int i = 0; i < 2000 && QFileInfo::exists(mRig.socket()); ++i) {
        ::usleep(5000);
    }
    EXPECT_FALSE(QFileInfo::exists(mRig.socket()));
}

TEST_F(ServiceTest, CtrlCAtTheTerminalIsForTheParent)
{
    mRig.start();
    EXPECT_EQ(::getpgid(mRig.program().pid()), mRig.program().pid());
}

TEST_F(ServiceTest, StartThatCannotWorkSaysWhy)
{
    const struct
    {
        const char* mWhat;
        QByteArray mConfigured;
        const char* mError;
    } tCases[] = {
        {"no TOML", "= broken", "vk.cfg"},
        {"no such group", "socketGroup = \"no-such-group\"\n", "no-such-group"},
    };
    for (const auto& tCase : tCases) {
        SCOPED_TRACE(tCase.mWhat);
        mRig.configure(tCase.mConfigured);
        const Program::Result tResult = mRig.startAnother()->wait();
        EXPECT_EQ(tResult.mStatus, 1);
        EXPECT_TRUE(tResult.mErr.contains(tCase.mError)) << tResult.mErr.toStdString();
        EXPECT_FALSE(QFileInfo::exists(mRig.socket()));
    }
    ServiceRig tFresh;
    tFresh.installation().writeFile(QStringLiteral("state"), "a file in the folder's place");
    const Program::Result tResult = tFresh.startAnother()->wait();
    EXPECT_EQ(tResult.mStatus, 1);
    EXPECT_TRUE(tResult.mErr.contains("state directory")) << tResult.mErr.toStdString();
}

#include "ScriptedService.h"
#include "Test.h"
#include "TestApplication.h"
#include "UnixSocket.h"

#include "internal/SocketName.h"

#include <vkcore/IPCClient.h>
#include <vkcore/ServerList.h>

#include <QtCore/QTimer>

#include <ctime>

#include <poll.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

using namespace tarn::vkcore;

// Replaces the system's function, for the library, too.
static int sInterruptedPolls = 0;
extern "C" __attribute__((visibility("default"))) int poll(pollfd* pPolls, nfds_t pCount, int pTimeout)
{
    if (sInterruptedPolls > 0) {
        --sInterruptedPolls;
        errno = EINTR;
        return -1;
    }
    return static_cast<int>(::syscall(SYS_poll, pPolls, pCount, pTimeout));
}

namespace {

class IPCClientTest : public ::testing::Test
{
protected:
    IPCClientTest() { mTimer.start(); }
    std::unique_ptr<IPCClient> clientOf(const QString& pSocket)
    {
        auto tClient = std::make_unique<IPCClient>(mApp.get(), nullptr);
        tClient->setServerName(pSocket);
        return tClient;
    }
    QString nowhere() const { return mApp->path(q("nowhere")); }
    QString socket() const { return mApp->path(q("service")); }
    // A service that answers only hello.
    std::unique_ptr<ScriptedService> silentService() const
    {
        return std::make_unique<ScriptedService>(socket(), [](ScriptedService& pService) {
            for (const char* tMethod : {"ping", "reloadConfig", "getServerList"}) {
                pService.ignore(tMethod);
            }
        });
    }

    // After each test: no wait has reached its limit of thirty seconds.
    void TearDown() override { EXPECT_LT(mTimer.elapsed(), mLongestMs); }

    GRef<TestApplication> mApp{new TestApplication};
    QElapsedTimer mTimer;
    qint64 mLongestMs = 10000;
};

using Peer = ScriptedService::Peer;

} // namespace

TEST_F(IPCClientTest, NameAndItsDefault)
{
    IPCClient tClient(mApp.get(), nullptr);
    const QString tDefault = protocol::defaultSocketName();
    EXPECT_EQ(tClient.serverName(), tDefault);
    mApp->getConfig()->setValue(q("service.socketName"), q("other"), Config::SystemValue);
    EXPECT_EQ(IPCClient(mApp.get(), nullptr).serverName(), q("other"));
    EXPECT_EQ(IPCClient(nullptr, nullptr).serverName(), tDefault);
    tClient.setServerName(QString(200, u'x'));
    EXPECT_FALSE(tClient.testConnect(100));
    EXPECT_FALSE(tClient.ping());
    EXPECT_TRUE(mApp->logText().contains("too long"));

    const QString tRelative = q("vkcore-test-%1").arg(::getpid()); // in the temporary folder
    const ScriptedService tService(QDir::tempPath() + u'/' + tRelative);
    EXPECT_TRUE(clientOf(tRelative)->testConnect(5000));
    QFile::remove(QDir::tempPath() + u'/' + tRelative);
}

TEST_F(IPCClientTest, TheDefaultSocketIsThatOfTheUser)
{
    const uid_t tUser = ::geteuid() == 0 ? 65534 : ::geteuid();
    const auto tMake = [&](const char* pName, mode_t pMode, uid_t pOwner) {
        const QString tPath = mApp->path(q(pName));
        writeFile(tPath + q("/socket"), "");
        ::chmod(QFile::encodeName(tPath).constData(), pMode);
        ::chmod(QFile::encodeName(tPath + q("/socket")).constData(), pMode);
        ::chown(QFile::encodeName(tPath).constData(), pOwner, static_cast<gid_t>(-1));
        return tPath;
    };
    ::chmod(QFile::encodeName(mApp->path(q("."))).constData(), 0755);
    const QString tOpen = tMake("open", 0777, 0) + q("/socket");
    const QString tShut = tMake("shut", 0555, 0) + q("/socket");
    const QString tOwn = tMake("own", 0700, tUser);
    const struct
    {
        uid_t mUser;
        QString mMachine;
        QString mRuntimeDir;
        QString mName;
    } tCases[] = {
        {0, tShut, tOwn, tShut},
        {tUser, tOpen, tOwn, tOpen},
        {tUser, tShut, tOwn, tOwn + q("/vkservice.socket")},
        {tUser, nowhere(), tOwn + u'/', tOwn + q("/vkservice.socket")},
        {tUser, tShut, tMake("shared", 0770, tUser), q("vkservice")},
        {tUser + 1, tShut, tOwn, q("vkservice")},
        {tUser, tShut, q("own"), q("vkservice")},
        {tUser, tShut, QString(), q("vkservice")},
    };
    const uid_t tBefore = ::geteuid();
    ASSERT_EQ(::seteuid(tUser), 0);
    for (const auto& tCase : tCases) {
        EXPECT_EQ(
            protocol::defaultSocketName({tCase.mUser, tCase.mMachine, tCase.mRuntimeDir, tCase.mUser == 0}),
            tCase.mName);
    }
    ASSERT_EQ(::seteuid(tBefore), 0);
}

TEST_F(IPCClientTest, TestConnectWhereNobodyListensIsFalseAtOnce)
{
    EXPECT_FALSE(clientOf(nowhere())->testConnect(30000));
    const int tFd = boundSocket(nowhere());
    EXPECT_FALSE(clientOf(nowhere())->testConnect(30000));
    ::close(tFd);
    EXPECT_FALSE(clientOf(nowhere())->testConnect(30000));
    EXPECT_EQ(mApp->logText(), "");
}

TEST_F(IPCClientTest, TestConnectNeedsAnAnswer)
{
    ScriptedService tService(socket());
    tService.ignore("hello");
    EXPECT_FALSE(clientOf(socket())->testConnect(200));
    EXPECT_GE(mTimer.elapsed(), 200);

    tService.refuse("hello");
    const auto tClient = clientOf(socket());
    EXPECT_TRUE(tClient->testConnect(5000));
    EXPECT_TRUE(tClient->testConnect(5000));
    EXPECT_TRUE(tClient->isConnected());

    tService.onCall("hello", [](Peer& pPeer, const QJsonObject&) { pPeer.hangUp(); });
    EXPECT_FALSE(clientOf(socket())->testConnect(5000));
    tService.onCall("hello",
                    [](Peer& pPeer, const QJsonObject&) { pPeer.send("HTTP/1.1 400 Bad Request\r\n\r\n"); });
    EXPECT_FALSE(clientOf(socket())->testConnect(5000));
}

TEST_F(IPCClientTest, AServiceOfAnotherUserIsNone)
{
    if (::geteuid() != 0) {
        GTEST_SKIP() << "needs root, to become another user";
    }
    ASSERT_EQ(::chmod(QFile::encodeName(mApp->path(q("."))).constData(), 0777), 0);
    ASSERT_EQ(::seteuid(65534), 0);
    const ScriptedService tService(socket());
    ASSERT_EQ(::seteuid(0), 0);
    const auto tClient = clientOf(socket());
    EXPECT_FALSE(tClient->testConnect(30000));
    EXPECT_FALSE(tClient->updateDefaultServer(q("u"), q("n"), q("secret")));
    EXPECT_TRUE(mApp->logText().contains("belongs to the user with the number 65534"));
    EXPECT_EQ(tService.allCalls(), QStringList());
}

TEST_F(IPCClientTest, WaitsForASocketThatComesLateButNoLongerThanToldAndWithoutSpinning)
{
    const ScriptedService tService(socket());
    const auto tClient = clientOf(nowhere());
    tClient->setConnectTimeout(1);
    const std::clock_t tCpu = std::clock();
    EXPECT_FALSE(tClient->ping());
    EXPECT_GE(mTimer.elapsed(), 999);
    EXPECT_LT(double(std::clock() - tCpu) / CLOCKS_PER_SEC, 0.25);
    QTimer::singleShot(150, tClient.get(), [&] { ASSERT_TRUE(QFile::link(socket(), nowhere())); });
    EXPECT_TRUE(tClient->ping());
    EXPECT_TRUE(tClient->isConnected());
}

TEST_F(IPCClientTest, CloseFromInsideEndsEveryWaitingCall)
{
    const auto tService = silentService();
    const auto tClient = clientOf(socket());
    QTimer::singleShot(20, tClient.get(), [&] { EXPECT_FALSE(tClient->reloadConfig()); });
    QTimer::singleShot(60, tClient.get(), [&] { tClient->close(); });
    EXPECT_FALSE(tClient->ping());
    EXPECT_FALSE(tClient->isConnected());
    EXPECT_FALSE(tClient->ping());
    EXPECT_FALSE(tClient->testConnect(1000));

    const auto tConnecting = clientOf(nowhere());
    QTimer::singleShot(20, tConnecting.get(), [&] { tConnecting->close(); });
    EXPECT_FALSE(tConnecting->ping());
}

TEST_F(IPCClientTest, TheClientMayEndWhileItsCallsWait)
{
    const auto tService = silentService();
    for (const QString& tSocket : {socket(), nowhere()}) {
        auto tClient = clientOf(tSocket);
        QTimer::singleShot(20, mApp.get(), [&] { tClient.reset(); });
        ServerList* tList = new ServerList(mApp.get());
        const GRef<ServerList> tOwner(tList);
        EXPECT_FALSE(tClient->getServerList(tList));
        EXPECT_EQ(tClient, nullptr);
    }
}

TEST_F(IPCClientTest, CallsMayBeginWhileOthersWait)
{
    // The first request is answered only when the second one is there.
    ScriptedService tService(socket());
    QByteArray tFirst;
    tService.onCall("triggerUpdate",
                    [&](Peer& pPeer, const QJsonObject&) { tFirst = pPeer.answerLine("true"); });
    tService.onCall("reloadConfig",
                    [&](Peer& pPeer, const QJsonObject&) { pPeer.send(tFirst + pPeer.answerLine("true")); });
    const auto tClient = clientOf(socket());
    const auto tOther = clientOf(socket());
    int tInner = 0;
    QTimer::singleShot(20, tClient.get(), [&] { tInner += tOther->ping() ? 1 : 0; });
    QTimer::singleShot(40, tClient.get(), [&] { tInner += tClient->reloadConfig() ? 1 : 0; });
    EXPECT_TRUE(tClient->triggerUpdate(true));
    EXPECT_EQ(tInner, 2);
}

TEST_F(IPCClientTest, ALostLinkFailsOneCallAndTheNextConnectsAnew)
{
    auto tService = std::make_unique<ScriptedService>(socket());
    const auto tClient = clientOf(socket());
    ASSERT_TRUE(tClient->testConnect(5000));
    ASSERT_TRUE(tClient->ping());
    sInterruptedPolls = 2;
    EXPECT_TRUE(tClient->isConnected()) << "a signal is no hang-up";
    tService->hangUp();
    EXPECT_FALSE(tClient->isConnected());
    EXPECT_FALSE(tClient->ping());
    EXPECT_TRUE(tClient->ping());
    EXPECT_TRUE(tClient->isConnected());

    tService.reset();
    QFile::remove(socket());
    EXPECT_FALSE(tClient->ping());
    EXPECT_FALSE(tClient->ping());
    EXPECT_FALSE(tClient->testConnect(5000));
}

TEST_F(IPCClientTest, WhatIsNoAnswerIsAFailureAndALogLine)
{
    ScriptedService tService(socket());
    const struct
    {
        const char* mName;
        QByteArray mBytes; // %ID% stands for the request's id
        bool mDrop;
    } tCases[] = {
        {"half a line and the end", "{\"jsonrpc\":\"2.0\",\"id\":%ID%,\"resu", true},
        {"no object", "[1,2]\n", false},
        {"too deep", "{\"id\":%ID%,\"result\":" + QByteArray(100, '[') + QByteArray(100, ']') + "}\n", false},
        {"unknown id", "{\"id\":4711,\"result\":\"x\"}\n", false},
        {"id as text", "{\"id\":\"%ID%\",\"result\":\"x\"}\n", false},
        {"id null", "{\"id\":null,\"error\":{\"code\":-32700,\"message\":\"bad line\"}}\n", false},
        {"both", "{\"id\":%ID%,\"result\":\"x\",\"error\":{}}\n", false},
        {"refused", "{\"id\":%ID%,\"error\":{\"code\":1,\"message\":\"not now\"}}\n", false},
        {"line too long", "{\"id\":%ID%,\"result\":\"" + QByteArray(9 * 1024 * 1024, 'x') + "\"}\n", false},
    };
    for (const auto& tCase : tCases) {
        SCOPED_TRACE(tCase.mName);
        tService.onCall("getKdmlDataDirectory", [&](Peer& pPeer, const QJsonObject&) {
            pPeer.send(QByteArray(tCase.mBytes).replace("%ID%", pPeer.callId()));
            if (tCase.mDrop) {
                pPeer.hangUp();
            }
        });
        const auto tClient = clientOf(socket());
        const qsizetype tLogSize = mApp->logText().size();
        EXPECT_TRUE(tClient->getKdmlDataDirectory().isNull());
        EXPECT_TRUE(mApp->logText().mid(tLogSize).contains("getKdmlDataDirectory failed: "));
        EXPECT_TRUE(tClient->ping()) << "the client is of use afterwards";
    }
    EXPECT_TRUE(mApp->logText().contains("failed: not now\n"));
    EXPECT_TRUE(mApp->logText().contains("failed: bad line\n"));
}

TEST_F(IPCClientTest, AnswersThatComeInSmallPiecesOrTooLate)
{
    ScriptedService tService(socket());
    for (const char* tMethod : {"hello", "ping"}) {
        tService.onCall(tMethod, [](Peer& pPeer, const QJsonObject&) {
            // An id that was used but that nobody waits for, as after a call that has timed out.
            const QByteArray tLate = R"({"id":1,"jsonrpc":"2.0","result":5})";
            for (const char tByte : tLate + '\n' + pPeer.answerLine("true")) {
                pPeer.send(QByteArray(1, tByte));
            }
        });
    }
    const auto tClient = clientOf(socket());
    EXPECT_TRUE(tClient->testConnect(5000));
    EXPECT_TRUE(tClient->ping());
    EXPECT_TRUE(tClient->ping());
}

TEST_F(IPCClientTest, LargeValuesPassAndTooLargeOnesAreRefusedHere)
{
    const ScriptedService tService(socket());
    const auto tClient = clientOf(socket());
    EXPECT_TRUE(tClient->setConfigValue(q("a"), QString(7 * 1024 * 1024, u'x')));
    EXPECT_FALSE(tClient->setConfigValue(q("a"), QString(9 * 1024 * 1024, u'x')));
    EXPECT_TRUE(mApp->logText().contains("setConfigValue failed: the request is larger than"));
    EXPECT_TRUE(tClient->ping());
}

TEST_F(IPCClientTest, ASilentServiceIsGivenUpAfterThirtySecondsOrAsTold)
{
    const auto tService = silentService();
    const auto tClient = clientOf(socket());
    const auto tLastWord = clientOf(socket());
    tLastWord->setConnectTimeout(1);
    EXPECT_FALSE(tLastWord->reloadConfig());
    EXPECT_LT(mTimer.restart(), 15000);
    mLongestMs = 35000;
    EXPECT_FALSE(tClient->ping());
    EXPECT_GE(mTimer.elapsed(), 29999);
    EXPECT_TRUE(mApp->logText().contains("ping failed: no answer in time"));
}

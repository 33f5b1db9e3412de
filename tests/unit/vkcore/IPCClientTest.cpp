#include "FakeService.h"
#include "TestApplication.h"

#include "internal/Protocol.h"

#include <vkcore/IPCClient.h>

#include <gtest/gtest.h>

#include <QtCore/QElapsedTimer>
#include <QtCore/QTimer>

#include <ctime>

#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

using namespace tarn::vkcore;

namespace {

class IPCClientTest : public ::testing::Test
{
protected:
    std::unique_ptr<IPCClient> clientOf(const QString& pSocket)
    {
        auto tClient = std::make_unique<IPCClient>(mApp.get(), nullptr);
        tClient->setServerName(pSocket);
        return tClient;
    }
    QString nowhere() const { return mApp->path(QStringLiteral("nowhere")); }

    GRef<TestApplication> mApp{new TestApplication};
};

bool isMethod(const QJsonObject& pRequest, const char* pMethod)
{
    return pRequest.value(QLatin1String("method")) == QLatin1String(pMethod);
}

void silence(FakeService&, FakeService::Peer, const QJsonObject&) {}

// Answers "hello" and leaves the rest.
void onlyHello(FakeService& pService, FakeService::Peer pPeer, const QJsonObject& pRequest)
{
    if (isMethod(pRequest, "hello")) {
        pService.send(pPeer, FakeService::answer(pRequest, QJsonObject()));
    }
}

int boundSocket(const QString& pPath)
{
    const int tFd = ::socket(AF_UNIX, SOCK_STREAM, 0);
    sockaddr_un tAddress{};
    tAddress.sun_family = AF_UNIX;
    std::strncpy(tAddress.sun_path, QFile::encodeName(pPath).constData(), sizeof tAddress.sun_path - 1);
    EXPECT_EQ(::bind(tFd, reinterpret_cast<const sockaddr*>(&tAddress), sizeof tAddress), 0);
    return tFd;
}

} // namespace

TEST_F(IPCClientTest, NameAndItsDefault)
{
    IPCClient tClient(mApp.get(), nullptr);
    EXPECT_EQ(tClient.serverName(), QLatin1String("vkservice"));
    mApp->getConfig()->setValue(QStringLiteral("service.socketName"), QStringLiteral("other"),
                                Config::SystemValue);
    EXPECT_EQ(IPCClient(mApp.get(), nullptr).serverName(), QLatin1String("other"));
    EXPECT_EQ(IPCClient(nullptr, nullptr).serverName(), QLatin1String("vkservice"));
    tClient.setServerName(QString(200, QLatin1Char('x')));
    EXPECT_FALSE(tClient.testConnect(100));
    EXPECT_FALSE(tClient.ping());
    EXPECT_TRUE(mApp->logText().contains("too long"));
}

TEST_F(IPCClientTest, ARelativeNameLiesInTheTemporaryFolder)
{
    FakeService tService;
    const QString tName = QStringLiteral("vkcore-test-%1").arg(::getpid());
    ASSERT_TRUE(QFile::link(tService.socketPath(), QDir::tempPath() + QLatin1Char('/') + tName));
    EXPECT_TRUE(clientOf(tName)->testConnect(5000));
    QFile::remove(QDir::tempPath() + QLatin1Char('/') + tName);
}

TEST_F(IPCClientTest, TestConnectWhereNobodyListensIsFalseAtOnce)
{
    QElapsedTimer tTimer;
    tTimer.start();
    EXPECT_FALSE(clientOf(nowhere())->testConnect(30000));
    const int tFd = boundSocket(nowhere());
    EXPECT_FALSE(clientOf(nowhere())->testConnect(30000));
    ::close(tFd);
    EXPECT_FALSE(clientOf(nowhere())->testConnect(30000));
    EXPECT_LT(tTimer.elapsed(), 5000);
    EXPECT_EQ(mApp->logText(), "");
}

TEST_F(IPCClientTest, TestConnectNeedsAnAnswer)
{
    FakeService tSilent(silence);
    QElapsedTimer tTimer;
    tTimer.start();
    EXPECT_FALSE(clientOf(tSilent.socketPath())->testConnect(200));
    EXPECT_GE(tTimer.elapsed(), 200);
    EXPECT_LT(tTimer.elapsed(), 5000);

    FakeService tRefusing([](FakeService& pService, FakeService::Peer pPeer, const QJsonObject& pRequest) {
        pService.send(pPeer,
                      protocol::toLine(protocol::error(pRequest.value(QLatin1String("id")).toInteger(),
                                                       protocol::MethodNotFound, QStringLiteral("no"))));
    });
    const auto tClient = clientOf(tRefusing.socketPath());
    EXPECT_TRUE(tClient->testConnect(5000));
    EXPECT_TRUE(tClient->testConnect(5000));
    EXPECT_TRUE(tClient->isConnected());

    FakeService tClosing(
        [](FakeService& pService, FakeService::Peer pPeer, const QJsonObject&) { pService.drop(pPeer); });
    EXPECT_FALSE(clientOf(tClosing.socketPath())->testConnect(5000));
    FakeService tBabbling([](FakeService& pService, FakeService::Peer pPeer, const QJsonObject&) {
        pService.send(pPeer, "HTTP/1.1 400 Bad Request\r\n\r\n");
    });
    EXPECT_FALSE(clientOf(tBabbling.socketPath())->testConnect(5000));
}

TEST_F(IPCClientTest, AServiceOfAnotherUserIsNone)
{
    if (::geteuid() != 0) {
        GTEST_SKIP() << "needs root, to become another user";
    }
    const QTemporaryDir tDir;
    ASSERT_EQ(::chmod(QFile::encodeName(tDir.path()).constData(), 0777), 0);
    const QString tPath = tDir.filePath(QStringLiteral("s"));
    int tReady[2];
    ASSERT_EQ(::pipe(tReady), 0);
    const pid_t tChild = ::fork();
    if (tChild == 0) {
        (void)!::setuid(65534);
        (void)!::listen(boundSocket(tPath), 5);
        (void)!::write(tReady[1], "x", 1);
        while (true) {
            ::pause();
        }
    }
    char tByte = 0;
    ASSERT_EQ(::read(tReady[0], &tByte, 1), 1);
    QElapsedTimer tTimer;
    tTimer.start();
    const auto tClient = clientOf(tPath);
    EXPECT_FALSE(tClient->testConnect(30000));
    EXPECT_FALSE(
        tClient->updateDefaultServer(QStringLiteral("u"), QStringLiteral("n"), QStringLiteral("secret")));
    EXPECT_LT(tTimer.elapsed(), 5000);
    EXPECT_TRUE(mApp->logText().contains("belongs to the user with the number 65534"));
    ::kill(tChild, SIGKILL);
    ::waitpid(tChild, nullptr, 0);
}

TEST_F(IPCClientTest, WaitsForASocketThatComesLate)
{
    FakeService tService;
    const auto tClient = clientOf(nowhere());
    QTimer::singleShot(150, tClient.get(),
                       [&] { ASSERT_TRUE(QFile::link(tService.socketPath(), nowhere())); });
    EXPECT_TRUE(tClient->ping());
    EXPECT_TRUE(tClient->isConnected());
}

TEST_F(IPCClientTest, WaitsForASocketNoLongerThanToldAndWithoutSpinning)
{
    const auto tClient = clientOf(nowhere());
    tClient->setConnectTimeout(1);
    int tTicks = 0;
    QTimer tTicker;
    QObject::connect(&tTicker, &QTimer::timeout, &tTicker, [&] { ++tTicks; });
    tTicker.start(100);
    QElapsedTimer tTimer;
    tTimer.start();
    const std::clock_t tCpu = std::clock();
    EXPECT_FALSE(tClient->ping());
    EXPECT_GE(tTimer.elapsed(), 999);
    EXPECT_LT(tTimer.elapsed(), 10000);
    EXPECT_LT(double(std::clock() - tCpu) / CLOCKS_PER_SEC, 0.25);
    EXPECT_GE(tTicks, 5);
}

TEST_F(IPCClientTest, CloseFromInsideEndsEveryWaitingCall)
{
    FakeService tService(onlyHello);
    const auto tClient = clientOf(tService.socketPath());
    QElapsedTimer tTimer;
    tTimer.start();
    QTimer::singleShot(20, tClient.get(), [&] { EXPECT_FALSE(tClient->reloadConfig()); });
    QTimer::singleShot(60, tClient.get(), [&] { tClient->close(); });
    EXPECT_FALSE(tClient->ping());
    EXPECT_LT(tTimer.elapsed(), 10000);
    EXPECT_FALSE(tClient->isConnected());
    EXPECT_FALSE(tClient->ping());
    EXPECT_FALSE(tClient->testConnect(1000));

    const auto tConnecting = clientOf(nowhere());
    QTimer::singleShot(20, tConnecting.get(), [&] { tConnecting->close(); });
    EXPECT_FALSE(tConnecting->ping());
    EXPECT_LT(tTimer.elapsed(), 10000);
}

TEST_F(IPCClientTest, TheClientMayEndWhileItsCallsWait)
{
    FakeService tService(onlyHello);
    for (const QString& tSocket : {tService.socketPath(), nowhere()}) {
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
    FakeService tService([](FakeService& pService, FakeService::Peer pPeer, const QJsonObject& pRequest) {
        if (isMethod(pRequest, "reloadConfig")) {
            pService.send(pPeer, FakeService::answer(pService.requests()[0], true) +
                                     FakeService::answer(pRequest, true));
        } else if (!isMethod(pRequest, "triggerUpdate")) {
            pService.send(pPeer, FakeService::answer(pRequest, true));
        }
    });
    const auto tClient = clientOf(tService.socketPath());
    const auto tOther = clientOf(tService.socketPath());
    int tInner = 0;
    QTimer::singleShot(20, tClient.get(), [&] { tInner += tOther->ping() ? 1 : 0; });
    QTimer::singleShot(40, tClient.get(), [&] { tInner += tClient->reloadConfig() ? 1 : 0; });
    EXPECT_TRUE(tClient->triggerUpdate(true));
    EXPECT_EQ(tInner, 2);
}

TEST_F(IPCClientTest, ALostLinkFailsOneCallAndTheNextConnectsAnew)
{
    auto tService = std::make_unique<FakeService>();
    const QString tLink = nowhere();
    ASSERT_TRUE(QFile::link(tService->socketPath(), tLink));
    const auto tClient = clientOf(tLink);
    ASSERT_TRUE(tClient->testConnect(5000));
    ASSERT_TRUE(tClient->ping());
    tService->dropAll();
    EXPECT_FALSE(tClient->isConnected());
    EXPECT_FALSE(tClient->ping());
    EXPECT_TRUE(tClient->ping());
    EXPECT_TRUE(tClient->isConnected());

    tService.reset();
    QElapsedTimer tTimer;
    tTimer.start();
    EXPECT_FALSE(tClient->ping());
    EXPECT_FALSE(tClient->ping());
    EXPECT_FALSE(tClient->testConnect(5000));
    EXPECT_LT(tTimer.elapsed(), 5000);
}

TEST_F(IPCClientTest, WhatIsNoAnswerIsAFailureAndALogLine)
{
    const struct
    {
        const char* mName;
        QByteArray mBytes; // %ID% stands for the request's id
        bool mDrop;
    } tCases[] = {
        {"garbage", QByteArray("\x00\xff\xfe garbage\n", 12), false},
        {"empty line", "\n", false},
        {"half a line and the end", "{\"jsonrpc\":\"2.0\",\"id\":%ID%,\"resu", true},
        {"the end", "", true},
        {"no object", "[1,2]\n", false},
        {"too deep", "{\"id\":%ID%,\"result\":" + QByteArray(100, '[') + QByteArray(100, ']') + "}\n", false},
        {"unknown id", "{\"id\":4711,\"result\":\"x\"}\n", false},
        {"id 0", "{\"id\":0,\"result\":\"x\"}\n", false},
        {"id as text", "{\"id\":\"%ID%\",\"result\":\"x\"}\n", false},
        {"no id", "{\"result\":\"x\"}\n", false},
        {"id null", "{\"id\":null,\"error\":{\"code\":-32700,\"message\":\"bad line\"}}\n", false},
        {"neither result nor error", "{\"id\":%ID%}\n", false},
        {"both", "{\"id\":%ID%,\"result\":\"x\",\"error\":{}}\n", false},
        {"an error that is none", "{\"id\":%ID%,\"error\":\"x\"}\n", false},
        {"refused", "{\"id\":%ID%,\"error\":{\"code\":1,\"message\":\"not now\"}}\n", false},
        {"another type", "{\"id\":%ID%,\"result\":{\"a\":1}}\n", false},
        {"malformed event", "{\"method\":7,\"params\":{}}\n", false},
        {"line too long", "{\"id\":%ID%,\"result\":\"" + QByteArray(9 * 1024 * 1024, 'x') + "\"}\n", false},
    };
    for (const auto& tCase : tCases) {
        SCOPED_TRACE(tCase.mName);
        FakeService tService([&](FakeService& pService, FakeService::Peer pPeer,
                                 const QJsonObject& pRequest) {
            if (!isMethod(pRequest, "getKdmlDataDirectory")) {
                pService.send(pPeer, FakeService::answer(pRequest, true));
                return;
            }
            QByteArray tBytes = tCase.mBytes;
            pService.send(
                pPeer,
                tBytes.replace("%ID%", QByteArray::number(pRequest.value(QLatin1String("id")).toInteger())));
            if (tCase.mDrop) {
                pService.drop(pPeer);
            }
        });
        const auto tClient = clientOf(tService.socketPath());
        const qsizetype tLogSize = mApp->logText().size();
        QElapsedTimer tTimer;
        tTimer.start();
        EXPECT_TRUE(tClient->getKdmlDataDirectory().isNull());
        EXPECT_LT(tTimer.elapsed(), 10000);
        EXPECT_TRUE(mApp->logText().mid(tLogSize).contains("getKdmlDataDirectory failed: "));
        EXPECT_TRUE(tClient->ping()) << "the client is of use afterwards";
    }
    EXPECT_TRUE(mApp->logText().contains("failed: not now\n"));
    EXPECT_TRUE(mApp->logText().contains("failed: bad line\n"));
}

TEST_F(IPCClientTest, AnswersThatComeInSmallPiecesOrTooLate)
{
    FakeService tService([](FakeService& pService, FakeService::Peer pPeer, const QJsonObject& pRequest) {
        // An id that was given out but that nobody waits for, as a call that has timed out leaves it behind.
        const QByteArray tLine =
            FakeService::answer({{QStringLiteral("id"), 1}}, 5) + FakeService::answer(pRequest, true);
        for (const char tByte : tLine) {
            pService.send(pPeer, QByteArray(1, tByte));
        }
    });
    const auto tClient = clientOf(tService.socketPath());
    EXPECT_TRUE(tClient->testConnect(5000));
    EXPECT_TRUE(tClient->ping());
    EXPECT_TRUE(tClient->ping());
}

TEST_F(IPCClientTest, LargeValuesPassAndTooLargeOnesAreRefusedHere)
{
    FakeService tService;
    const auto tClient = clientOf(tService.socketPath());
    EXPECT_TRUE(tClient->setConfigValue(QStringLiteral("a"), QString(7 * 1024 * 1024, QLatin1Char('x'))));
    EXPECT_FALSE(tClient->setConfigValue(QStringLiteral("a"), QString(9 * 1024 * 1024, QLatin1Char('x'))));
    EXPECT_TRUE(mApp->logText().contains("setConfigValue failed: the request is larger than"));
    EXPECT_TRUE(tClient->ping());
}

TEST_F(IPCClientTest, ASilentServiceIsGivenUpAfterThirtySeconds)
{
    FakeService tService(onlyHello);
    const auto tClient = clientOf(tService.socketPath());
    QElapsedTimer tTimer;
    tTimer.start();
    EXPECT_FALSE(tClient->ping());
    EXPECT_GE(tTimer.elapsed(), 29999);
    EXPECT_LT(tTimer.elapsed(), 35000);
    EXPECT_TRUE(mApp->logText().contains("ping failed: no answer in time"));
}

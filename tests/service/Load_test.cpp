#include "ServiceRig.h"

#include "sqlite/Database.h"

#include <QtCore/QFile>
#include <QtCore/QJsonArray>

#include <sys/resource.h>
#include <sys/socket.h>

#include <atomic>
#include <csignal>
#include <thread>
#include <vector>

using tarn::vkcore::Database;

namespace {

// The most memory that the process has had in use so far, in KiB.
qint64 peakKb(int pPid)
{
    QFile tFile(QStringLiteral("/proc/%1/status").arg(pPid));
    if (tFile.open(QIODevice::ReadOnly)) {
        for (const QByteArray& tLine : tFile.readAll().split('\n')) {
            if (tLine.startsWith("VmHWM:")) {
                return tLine.mid(6).trimmed().split(' ').first().toLongLong();
            }
        }
    }
    return -1;
}

#ifdef __SANITIZE_ADDRESS__ // which keeps freed memory back for a while, up to 256 MiB
constexpr qint64 sMaxGrowthKb = 512 * 1024;
#else
constexpr qint64 sMaxGrowthKb = 64 * 1024;
#endif

} // namespace

TEST_F(ServiceTest, ManyPeersIdleBusyDeafAndFlooding)
{
    rlimit tFiles = {};
    ASSERT_EQ(::getrlimit(RLIMIT_NOFILE, &tFiles), 0);
    tFiles.rlim_cur = tFiles.rlim_max;
    ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &tFiles), 0);
    ASSERT_GE(tFiles.rlim_max, 2000u);
    mRig.start();
    const int tPid = mRig.program().pid();
    RawPeer tPeer = mRig.connect();
    const qint64 tBefore = peakKb(tPid);

    std::vector<RawPeer> tIdle;
    for (int i = 0; i < 1000; ++i) {
        tIdle.emplace_back(mRig.socket());
        ASSERT_TRUE(tIdle.back().isConnected());
    }
    for (RawPeer& tOne : tIdle) {
        ASSERT_EQ(tOne.call(QStringLiteral("ping")), QJsonValue(true));
    }

    std::atomic<bool> tStop = false;
    std::atomic<qint64> tAnswers = 0;
    std::vector<std::thread> tThreads;
    for (int i = 0; i < 50; ++i) {
        tThreads.emplace_back([&] {
            RawPeer tBusy(mRig.socket());
            while (!tStop) {
                if (tBusy.call(QStringLiteral("getMonitoringSettings")).isObject()) {
                    ++tAnswers;
                } else {
                    ADD_FAILURE() << "a busy peer got no answer";
                    break;
                }
            }
        });
    }
    // Floods with requests and takes all answers.
    tThreads.emplace_back([&] {
        RawPeer tFlood(mRig.socket());
        QByteArray tRequests;
        for (int i = 0; i < 2000; ++i) {
            tRequests += R"({"jsonrpc":"2.0","id":1,"method":"getServiceProgress","params":{}})"
                         "\n";
        }
        std::thread tReader([&] { tFlood.waitForEnd(60000); });
        while (!tStop && tFlood.send(tRequests)) {
        }
        ::shutdown(tFlood.descriptor(), SHUT_RDWR);
        tReader.join();
    });
    for (int i = 0; i < 300; ++i) {
        EXPECT_EQ(tPeer.call(QStringLiteral("ping")), QJsonValue(true));
    }
    tStop = true;
    for (std::thread& tThread : tThreads) {
        tThread.join();
    }
    EXPECT_GT(tAnswers, 50);
    EXPECT_LT(peakKb(tPid) - tBefore, sMaxGrowthKb);
    for (RawPeer& tOne : tIdle) {
        ASSERT_EQ(tOne.call(QStringLiteral("ping")), QJsonValue(true));
    }
}

TEST_F(ServiceTest, PeerThatNeverReadsIsDroppedAndOthersAreNot)
{
    mRig.start();
    const int tPid = mRig.program().pid();
    RawPeer tPeer = mRig.connect();
    RawPeer tSlow = mRig.connect();
    tSlow.send(R"({"jsonrpc":"2.0","id":1,"method":"pi)");

    const QJsonObject tName{{QStringLiteral("name"), QStringLiteral("big")}};
    QJsonObject tBig = tName;
    tBig.insert(QStringLiteral("value"), QString(900 * 1024, u'x'));
    ASSERT_EQ(tPeer.errorOf(QStringLiteral("setConfigValue"), tBig), 0);
    const qint64 tBefore = peakKb(tPid);
    RawPeer tDeaf = mRig.connect();
    QByteArray tRequests;
    for (int i = 0; i < 100; ++i) {
        tRequests +=
            R"({"jsonrpc":"2.0","id":1,"method":"getConfigValue","params":{"name":"big","default":""}})"
            "\n";
    }
    tDeaf.send(tRequests);
    for (int i = 0; i < 200; ++i) {
        EXPECT_EQ(tPeer.call(QStringLiteral("ping")), QJsonValue(true));
    }
    EXPECT_TRUE(tDeaf.waitForEnd());
    EXPECT_LT(peakKb(tPid) - tBefore, sMaxGrowthKb);
    EXPECT_TRUE(mRig.log().contains("owed more than 16 MiB")) << mRig.log().toStdString();

    tSlow.send("ng\",\"params\":{}}\n");
    EXPECT_EQ(json(tSlow.readLine().value_or(QByteArray())).value(QLatin1String("result")), QJsonValue(true));
}

TEST_F(ServiceTest, TenThousandServersAreListed)
{
    mRig.start();
    mRig.program().signal(SIGTERM);
    ASSERT_EQ(mRig.program().wait().mStatus, 0);
    Database tDatabase;
    ASSERT_TRUE(tDatabase.open(mRig.state("state.db"), Database::Mode::ReadWrite));
    ASSERT_TRUE(
        tDatabase.execute("WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n WHERE i < 10000) "
                          "INSERT INTO servers (name, uri, user, enabled, isDefault, savePassword) "
                          "SELECT 'server ' || i, 'https://updates.example.com/' || i, '', 1, 0, 0 FROM n"))
        << tDatabase.errorText().toStdString();
    tDatabase.close();
    mRig.start();
    RawPeer tPeer = mRig.connect();
    const QJsonObject tList = tPeer.call(QStringLiteral("getServerList")).toObject();
    EXPECT_EQ(tList.value(QLatin1String("servers")).toArray().size(), 10000);
    EXPECT_EQ(tPeer.call(QStringLiteral("removeServer"),
                         {{QStringLiteral("index"), 9999},
                          {QStringLiteral("revision"), tList.value(QLatin1String("revision"))}}),
              QJsonValue(true));
}

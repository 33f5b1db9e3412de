#include "ServiceRig.h"

#include "sqlite/Database.h"

#include <sys/resource.h>
#include <sys/socket.h>

#include <atomic>
#include <thread>
#include <vector>

using tarn::vkcore::Database;

namespace {

// The peak memory of the process so far, in KiB.
qint64 peakKb(int pPid)
{
    const QString tStatus = q(readFile(q("/proc/%1/status").arg(pPid)));
    return tStatus.section(q("VmHWM:"), 1).simplified().section(u' ', 0, 0).toLongLong();
}

#ifdef __SANITIZE_ADDRESS__ // which delays freeing up to 256 MiB
constexpr qint64 sMaxGrowthKb = 512 * 1024;
#else
constexpr qint64 sMaxGrowthKb = 64 * 1024;
#endif

QByteArray request(const QByteArray& pMethod, const QByteArray& pParams)
{
    return R"({"jsonrpc":"2.0","id":1,"method":")" + pMethod + R"(","params":)" + pParams + "}\n";
}

} // namespace

TEST_F(ServiceTest, ManyPeersIdleBusyDeafAndFlooding)
{
    rlimit tFiles = {};
    ASSERT_EQ(::getrlimit(RLIMIT_NOFILE, &tFiles), 0);
    tFiles.rlim_cur = tFiles.rlim_max;
    ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &tFiles), 0);
    RawPeer tPeer = mRig.startAndConnect();
    const int tPid = mRig.program().pid();
    const qint64 tBefore = peakKb(tPid);

    std::vector<RawPeer> tIdle;
    for (int i = 0; i < 1000; ++i) {
        tIdle.emplace_back(mRig.socket());
        ASSERT_EQ(tIdle.back().call("ping"), true);
    }
    std::atomic<bool> tStop = false;
    std::atomic<qint64> tAnswers = 0;
    std::vector<std::thread> tThreads;
    for (int i = 0; i < 50; ++i) {
        tThreads.emplace_back([&] {
            RawPeer tBusy(mRig.socket());
            while (!tStop) {
                tAnswers += tBusy.call("getMonitoringSettings").isObject() ? 1 : -1000000;
            }
        });
    }
    // Floods with requests and reads all answers.
    tThreads.emplace_back([&] {
        RawPeer tFlood(mRig.socket());
        std::thread tReader([&] { tFlood.waitForEnd(60000); });
        while (!tStop && tFlood.send(request("getServiceProgress", "{}").repeated(2000))) {
        }
        ::shutdown(tFlood.descriptor(), SHUT_RDWR);
        tReader.join();
    });
    for (int i = 0; i < 300; ++i) {
        EXPECT_EQ(tPeer.call("ping"), true);
    }
    tStop = true;
    for (std::thread& tThread : tThreads) {
        tThread.join();
    }
    EXPECT_GT(tAnswers, 50);
    EXPECT_LT(peakKb(tPid) - tBefore, sMaxGrowthKb);
    for (RawPeer& tOne : tIdle) {
        ASSERT_EQ(tOne.call("ping"), true);
    }
}

TEST_F(ServiceTest, PeerThatNeverReadsIsDroppedAndOthersAreNot)
{
    mRig.start();
    const int tPid = mRig.program().pid();
    RawPeer tPeer = mRig.connect();
    RawPeer tSlow = mRig.connect();
    tSlow.send(R"({"jsonrpc":"2.0","id":1,"method":"pi)");

    const QString tText(900 * 1024, u'x');
    ASSERT_EQ(tPeer.errorOf("setConfigValue", {{q("name"), q("big")}, {q("value"), tText}}), 0);
    const qint64 tBefore = peakKb(tPid);
    RawPeer tDeaf = mRig.connect();
    tDeaf.send(request("getConfigValue", R"({"name":"big","default":""})").repeated(100));
    for (int i = 0; i < 200; ++i) {
        EXPECT_EQ(tPeer.call("ping"), true);
    }
    EXPECT_TRUE(tDeaf.waitForEnd());
    EXPECT_LT(peakKb(tPid) - tBefore, sMaxGrowthKb);
    EXPECT_TRUE(mRig.log().contains("left more than 16 MiB unread")) << mRig.log().toStdString();

    tSlow.send("ng\",\"params\":{}}\n");
    EXPECT_EQ(Json(tSlow.readLine().value_or(QByteArray())).value(q("result")), true);
}

TEST_F(ServiceTest, ManyHalfLinesTogetherAreBounded)
{
    mRig.start();
    const int tPid = mRig.program().pid();
    RawPeer tPeer = mRig.connect();
    RawPeer tSlow = mRig.connect();
    tSlow.send(R"({"jsonrpc":"2.0","id":1,"method":"pi)");
    const qint64 tBefore = peakKb(tPid);
    const QByteArray tHalf = request(QByteArray(8 * 1024 * 1024 - 100, 'x'), {}).chopped(15);
    std::vector<RawPeer> tHalfLines;
    for (int i = 0; i < 64; ++i) {
        tHalfLines.emplace_back(mRig.socket());
        tHalfLines.back().send(tHalf);
        ASSERT_EQ(tPeer.call("ping"), true);
    }
    RawPeer tLong = mRig.connect();
    ASSERT_TRUE(tLong.send(request(QByteArray(7 * 1024 * 1024, 'x'), "{}")));
    EXPECT_EQ(Json(tLong.readLine().value_or(QByteArray()))[q("error")][q("code")], -32601);
    // A line that takes eighty times its size to parse.
    RawPeer tDense = mRig.connect();
    const QByteArray tDeep = QByteArray(55, '[') + '0' + QByteArray(55, ']') + ',';
    tDense.send(request("ping", R"({"a":[)" + tDeep.repeated(70000) + "0]}"));
    EXPECT_EQ(Json(tDense.readLine().value_or(QByteArray()))[q("error")][q("code")], -32600);
    tSlow.send("ng\",\"params\":{}}\n");
    EXPECT_EQ(Json(tSlow.readLine().value_or(QByteArray())).value(q("result")), true);
    EXPECT_LT(peakKb(tPid) - tBefore, sMaxGrowthKb + 192 * 1024);
    EXPECT_TRUE(mRig.log().contains("more than 128 MiB")) << mRig.log();
}

TEST_F(ServiceTest, TenThousandServersAreListed)
{
    mRig.start();
    ASSERT_EQ(mRig.stop(), 0);
    Database tDatabase;
    ASSERT_TRUE(tDatabase.open(mRig.state("state.db"), Database::Mode::ReadWrite));
    ASSERT_TRUE(
        tDatabase.execute("WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n WHERE i < 10000) "
                          "INSERT INTO servers (name, uri, user, enabled, isDefault, savePassword) "
                          "SELECT 'server ' || i, 'https://updates.example.com/' || i, '', 1, 0, 0 FROM n"))
        << tDatabase.errorText();
    tDatabase.close();
    RawPeer tPeer = mRig.startAndConnect();
    const QJsonObject tList = tPeer.call("getServerList").toObject();
    EXPECT_EQ(tList.value(q("servers")).toArray().size(), 10000);
    EXPECT_EQ(tPeer.call("removeServer", {{q("index"), 9999}, {q("revision"), tList.value(q("revision"))}}),
              true);
}

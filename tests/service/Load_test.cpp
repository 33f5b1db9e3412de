#include "ServiceRig.h"

#include "sqlite/Database.h"

#include <QtCore/QElapsedTimer>
#include <QtCore/QFile>
#include <QtCore/QJsonArray>

#include <sys/resource.h>
#include <sys/socket.h>

#include <algorithm>
#include <atomic>
#include <csignal>
#include <thread>
#include <vector>

using tarn::vkcore::Database;

namespace {

// Kilobytes of memory that the process has in use.
qint64 residentKb(int pPid)
{
    QFile tFile(QStringLiteral("/proc/%1/status").arg(pPid));
    if (tFile.open(QIODevice::ReadOnly)) {
        for (const QByteArray& tLine : tFile.readAll().split('\n')) {
            if (tLine.startsWith("VmRSS:")) {
                return tLine.mid(6).trimmed().split(' ').first().toLongLong();
            }
        }
    }
    return -1;
}

struct Latencies
{
    double mMedianMs = 0;
    double mWorstMs = 0;
};

Latencies measure(RawPeer& pPeer, int pCount)
{
    std::vector<double> tTimes;
    for (int i = 0; i < pCount; ++i) {
        QElapsedTimer tTimer;
        tTimer.start();
        EXPECT_EQ(pPeer.call(QStringLiteral("ping")), QJsonValue(true));
        tTimes.push_back(static_cast<double>(tTimer.nsecsElapsed()) / 1e6);
    }
    std::sort(tTimes.begin(), tTimes.end());
    return {tTimes[tTimes.size() / 2], tTimes.back()};
}

void print(const char* pWhat, const Latencies& pLatencies, qint64 pMemoryKb)
{
    std::printf("%-48s ping median %7.3f ms, worst %7.2f ms; service %lld KiB\n", pWhat, pLatencies.mMedianMs,
                pLatencies.mWorstMs, static_cast<long long>(pMemoryKb));
}

// Generous, for machines that do much else; what is measured is printed.
constexpr double sBoundMs = 2000;

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
    print("alone", measure(tPeer, 500), residentKb(tPid));

    std::vector<RawPeer> tIdle;
    for (int i = 0; i < 1000; ++i) {
        tIdle.emplace_back(mRig.socket());
        ASSERT_TRUE(tIdle.back().isConnected());
    }
    for (RawPeer& tOne : tIdle) {
        ASSERT_EQ(tOne.call(QStringLiteral("ping")), QJsonValue(true));
    }
    print("beside 1000 idle connections", measure(tPeer, 500), residentKb(tPid));

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
    const Latencies tLoaded = measure(tPeer, 300);
    print("and 50 busy ones and one that floods", tLoaded, residentKb(tPid));
    EXPECT_LT(tLoaded.mWorstMs, sBoundMs);
    tStop = true;
    for (std::thread& tThread : tThreads) {
        tThread.join();
    }
    EXPECT_GT(tAnswers, 50);
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
    const qint64 tBefore = residentKb(tPid);
    RawPeer tDeaf = mRig.connect();
    QByteArray tRequests;
    for (int i = 0; i < 100; ++i) {
        tRequests +=
            R"({"jsonrpc":"2.0","id":1,"method":"getConfigValue","params":{"name":"big","default":""}})"
            "\n";
    }
    tDeaf.send(tRequests);
    print("beside one that never reads", measure(tPeer, 200), residentKb(tPid));
#ifndef __SANITIZE_ADDRESS__ // which keeps freed memory back for a while
    EXPECT_LT(residentKb(tPid) - tBefore, 100 * 1024);
#else
    EXPECT_GT(tBefore, 0);
#endif
    EXPECT_TRUE(tDeaf.waitForEnd());
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
    QElapsedTimer tTimer;
    tTimer.start();
    const QJsonObject tList = tPeer.call(QStringLiteral("getServerList")).toObject();
    std::printf("list of 10000 servers: %lld ms\n", static_cast<long long>(tTimer.restart()));
    EXPECT_EQ(tList.value(QLatin1String("servers")).toArray().size(), 10000);
    EXPECT_EQ(tPeer.call(QStringLiteral("removeServer"),
                         {{QStringLiteral("index"), 9999},
                          {QStringLiteral("revision"), tList.value(QLatin1String("revision"))}}),
              QJsonValue(true));
    std::printf("removal of the last: %lld ms\n", static_cast<long long>(tTimer.elapsed()));
}

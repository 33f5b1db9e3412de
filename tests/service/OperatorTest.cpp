#include "ServiceRig.h"

#include <QtCore/QElapsedTimer>

#include <csignal>
#include <thread>

namespace {

class OperatorTest : public ServiceTest
{
protected:
    QString metrics(const char* pName = "folder/vk.prom") { return mRig.installation().path(q(pName)); }
    // Waits for the file to have, or to lose, a line.
    bool waitForLine(const QByteArray& pLine, const char* pName = "folder/vk.prom")
    {
        QElapsedTimer tTimer;
        for (tTimer.start(); tTimer.elapsed() < 20000;
             std::this_thread::sleep_for(std::chrono::milliseconds(20))) {
            if (QFile::exists(metrics(pName)) &&
                ('\n' + readFile(metrics(pName))).contains('\n' + pLine + '\n')) {
                return true;
            }
        }
        return false;
    }
    static QByteArray variable(const QString& pValue)
    {
        return R"({"name": "status.metricsFile", "value": ")" + pValue.toUtf8() + "\"}";
    }
};

} // namespace

TEST_F(OperatorTest, HistoryAndPackagesTellWhatWasInstalled)
{
    HeldUpdate tHeld;
    ASSERT_NO_FATAL_FAILURE(tHeld.prepare(mRig));
    RawPeer tPeer = mRig.startAndConnect();
    EXPECT_TRUE(tPeer.call("getOverview")[q("metadataExpires")].isNull());
    EXPECT_EQ(tPeer.call("getHistory")[q("runs")].toArray().size(), 0);
    RawPeer tMonitor = mRig.connect();
    ASSERT_EQ(tMonitor.call("enterMonitorMode"), true);
    const auto tUpdate = [&] {
        ASSERT_EQ(tPeer.call("triggerUpdate", R"({"manual": true})"), true);
        ASSERT_TRUE(tMonitor.waitForEvent("serviceStatusChanged", "status", 0));
    };
    tUpdate();
    tHeld.hold();
    tHeld.letGo();
    tUpdate();
    const QJsonArray tRuns = tPeer.call("getHistory")[q("runs")].toArray();
    ASSERT_EQ(tRuns.size(), 2);
    EXPECT_EQ(tRuns[0][q("code")], 1);
    EXPECT_EQ(tRuns[0][q("packages")][0][q("previous")], q("1.0.0.0"));
    EXPECT_EQ(tRuns[0][q("packages")][0][q("version")], q("2.0.0.0"));
    EXPECT_EQ(tRuns[1][q("text")], q("1 package was updated."));
    EXPECT_TRUE(tRuns[1][q("packages")][0][q("previous")].isNull());
    EXPECT_EQ(tPeer.call("getHistory", R"({"runs": 1})")[q("runs")].toArray().size(), 1);
    EXPECT_EQ(tPeer.errorOf("getHistory", R"({"runs": 0})"), -32602);
    const QJsonValue tPackage = tPeer.call("getPackages")[q("packages")][0];
    EXPECT_EQ(tPackage[q("installed")], tRuns[0][q("date")]);
    EXPECT_EQ(tPackage[q("title")], q("sleeper"));
    EXPECT_GT(tPackage[q("size")].toInt(), 1000);
    const QJsonValue tOverview = tPeer.call("getOverview");
    EXPECT_EQ(tOverview[q("lastSuccess")], tOverview[q("ended")]);
    EXPECT_TRUE(tOverview[q("metadataExpires")].isString());
}

TEST_F(OperatorTest, AMetricsFolderThatIsGoneDisturbsNothing)
{
    mRig.configure("status.metricsFile = \"" + metrics().toUtf8() + "\"\n");
    mRig.start({});
    RawPeer tPeer = mRig.connect();
    const auto tSuppress = [&tPeer](const char* pValue) {
        EXPECT_EQ(
            tPeer.call(
                "setConfigValue",
                QByteArray(R"({"name": "update.suppressed", "value": "VALUE"})").replace("VALUE", pValue)),
            true);
    };
    // Of a service that runs in the background; the second change comes after the second try has failed.
    tSuppress("yes");
    std::this_thread::sleep_for(std::chrono::milliseconds(1500));
    QDir().mkpath(mRig.installation().path("folder"));
    tSuppress("no");
    EXPECT_TRUE(waitForLine("vkservice_suppressed 0"));
    tSuppress("yes");
    EXPECT_TRUE(waitForLine("vkservice_suppressed 1"));

    EXPECT_EQ(tPeer.errorOf("setConfigValue", variable(q("/tmp/metrics.txt"))), 1);
    EXPECT_EQ(tPeer.call("setConfigValue", variable(metrics("other.prom"))), true);
    EXPECT_TRUE(waitForLine("vkservice_suppressed 1", "other.prom"));
    EXPECT_FALSE(QFile::exists(metrics())) << "a machine that has stopped";
    mRig.program().signal(SIGTERM);
    const Program::Result tResult = mRig.program().wait();
    EXPECT_EQ(tResult.mStatus, 0);
    EXPECT_EQ(tResult.mErr.count("The metrics can't be written: "), 1) << tResult.mErr;
    EXPECT_EQ(tResult.mErr.count("again"), 1) << tResult.mErr;
}

TEST_F(OperatorTest, AWorkerWritesNoMetrics)
{
    QDir().mkpath(mRig.installation().path("folder"));
    mRig.configure("status.metricsFile = \"" + metrics().toUtf8() + "\"\n");
    mRig.start();
    EXPECT_EQ(mRig.connect().call("setConfigValue", R"({"name": "update.suppressed", "value": "yes"})"),
              true);
    EXPECT_EQ(mRig.stop(), 0);
    EXPECT_FALSE(QFile::exists(metrics()));
}

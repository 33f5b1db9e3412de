#include "HeldCheck.h"
#include "Machine.h"
#include "RawPeer.h"
#include "Test.h"
#include "TestBus.h"

// Scheduled runs with windows, by the real service.

namespace {

class WindowTest : public testing::Test
{
protected:
    WindowTest()
    {
        mMachine.add("viewer", "1.0.0");
        mMachine.publish();
    }

    void start()
    {
        mService = mMachine.installation().start({"-e"}, Program::Console::Pipes, q("vkservice"));
        mPeer.emplace(mMachine.installation().socketPath());
        ASSERT_EQ(mPeer->call("enterMonitorMode"), true);
    }
    void kill()
    {
        mService->signal(SIGKILL);
        mService->wait();
    }
    void set(const char* pName, const QByteArray& pValue)
    {
        EXPECT_EQ(
            mMachine.rkm({"update-settings", QByteArray("--config-var=") + pName + ':' + pValue}).mStatus, 0);
    }
    // One that opens in some hours.
    static QByteArray laterWindow()
    {
        const QDateTime tFrom = QDateTime::currentDateTime().addSecs(4 * 3600);
        return (tFrom.toString(q("hh:mm")) + u'-' + tFrom.addSecs(3600).toString(q("hh:mm"))).toUtf8();
    }
    void waitForTheEndOfARun() { EXPECT_TRUE(mPeer->waitForEvent("serviceStatusChanged", "status", 0)); }
    QString result()
    {
        return mPeer->call("getLastServiceResultStr", {{q("thisSession"), false}}).toString();
    }

    Machine mMachine;
    std::unique_ptr<Program> mService;
    std::optional<RawPeer> mPeer;
};

} // namespace

TEST_F(WindowTest, WhatWasPreparedSurvivesAKillAndIsInstalledWhenTheWindowOpens)
{
    start();
    EXPECT_NE(mMachine.rkm({"update-settings", "--config-var=schedule.window:Sat 1-5"}).mStatus, 0);
    set("schedule.window", laterWindow());
    ASSERT_EQ(mMachine.rkm({"update-schedule-settings", "--mode=automatic", "--interval=1d"}).mStatus, 0);
    EXPECT_EQ(mPeer->call("triggerUpdate", {{q("manual"), false}}), true);
    waitForTheEndOfARun();
    EXPECT_TRUE(result().startsWith(q("1 package is prepared and will be installed from "))) << result();
    EXPECT_EQ(mMachine.installedVersion("viewer"), q(""));
    kill();

    start();
    EXPECT_TRUE(result().startsWith(q("1 package is prepared"))) << result();
    set("schedule.window", "00:00-24:00");
    waitForTheEndOfARun();
    EXPECT_EQ(mMachine.installedVersion("viewer"), q("1.0.0")) << result();
}

TEST_F(WindowTest, AnUpdateThatWaitsTooLongIsReportedOnce)
{
    start();
    set("schedule.window", laterWindow());
    EXPECT_EQ(mPeer->call("triggerUpdate", {{q("manual"), false}}), true);
    waitForTheEndOfARun();
    kill();
    const QByteArray tChange = "sqlite3 '" + QFile::encodeName(mMachine.path("state/state.db")) +
                               "' \"UPDATE settings SET value = '2025-01-01T00:00:00' WHERE name = "
                               "'waiting.since'\"";
    ASSERT_EQ(std::system(tChange.constData()), 0);
    start();
    EXPECT_TRUE(mPeer->waitForEvent("serviceErrorReceived"));
    kill();
    start();
    const QByteArray tLog = mMachine.installation().readFile("log/vkservice.log");
    EXPECT_EQ(tLog.count("has been waiting since 2025-01-01 00:00"), 1) << tLog;
}

TEST_F(WindowTest, AMeteredConnectionPutsAScheduledUpdateOff)
{
    TestBus tBus;
    tBus.start();
    mMachine.installation().environment().insert("DBUS_SYSTEM_BUS_ADDRESS", tBus.address());
    std::atomic<quint32> tMetered{1};
    const StandIn tNetwork(tBus, "org.freedesktop.NetworkManager", [&tMetered](sd_bus_message* pMessage) {
        return StandIn::value("u", tMetered)(pMessage);
    });
    start();
    set("update.onMetered", "defer");
    const auto tSchedule = [this] {
        const QDateTime tNext = QDateTime::currentDateTime().addSecs(3);
        return mMachine
            .rkm({"update-schedule-settings", "--mode=automatic", "--interval=1d",
                  "--next-update=" + tNext.toString(q("yyyy-MM-dd hh:mm:ss")).toUtf8()})
            .mStatus;
    };
    ASSERT_EQ(tSchedule(), 0);
    EXPECT_TRUE(mPeer->waitForEvent("serviceNotificationReceived"));
    EXPECT_TRUE(result().contains(q("put off because the network connection is metered"))) << result();
    tMetered = 2;
    ASSERT_EQ(tSchedule(), 0);
    waitForTheEndOfARun();
    EXPECT_EQ(mMachine.installedVersion("viewer"), q("1.0.0")) << result();
    EXPECT_FALSE(result().contains(q("put off"))) << result();
}

TEST_F(WindowTest, ARunByHandInstallsAtOnce)
{
    start();
    set("schedule.window", laterWindow());
    EXPECT_EQ(mMachine.rkm({"update"}).mStatus, 0);
    EXPECT_EQ(mMachine.installedVersion("viewer"), q("1.0.0"));
}

// The scheduled run that it joins leaves a package to its phase; a run by hand waits for none.
TEST_F(WindowTest, ARunByHandThatJoinsAScheduledOneInstallsWhatThatLeaves)
{
    mMachine.add("maps", "1.0.0");
    mMachine.publish();
    start();
    ASSERT_EQ(mMachine.rkm({"update"}).mStatus, 0);
    mMachine.add("viewer", "2.0.0", {"--critical"});
    mMachine.add("maps", "2.0.0");
    mMachine.publish({"--phase-days", "365"});
    const HeldCheck tCheck(mMachine.installation());
    mPeer.emplace(mMachine.installation().socketPath());
    ASSERT_EQ(mPeer->call("enterMonitorMode"), true);
    ASSERT_EQ(mPeer->call("triggerUpdate", {{q("manual"), false}}), true);
    ASSERT_TRUE(tCheck.hasBegun());
    EXPECT_EQ(mPeer->call("triggerUpdate", {{q("manual"), true}}), true);
    EXPECT_EQ(mMachine.installedVersion("maps"), q("1.0.0"));
    tCheck.letGo();
    waitForTheEndOfARun();
    EXPECT_EQ(mMachine.installedVersion("viewer"), q("2.0.0")) << result();
    EXPECT_EQ(mMachine.installedVersion("maps"), q("2.0.0")) << result();
}

#include "ServiceRig.h"

#include "sqlite/Database.h"

#include <csignal>

using tarn::vkcore::Database;

// Set, kill -9 right behind the answer, show.
TEST_F(ServiceTest, EachSettingSurvivesAKill)
{
    mRig.start();
    const QByteArray tMonitoring =
        R"({"eventMailsEnabled": true, "eventMailOnUpdate": true, "eventMailOnOverdue": true,
        "eventMailOnManualIntervention": true, "summarizedMailsEnabled": true, "summarizedMailsOnChangeOnly": true,
        "summarizedMailPeriod": 2147483647, "updateOverduePeriod": 9, "clientName": "\u6a5f %1\n",
        "notificationEmailAddresses": [{"address": "a@example.com", "verified": false}], "lastSummary": null,
        "clientSettings": {"text1": "one", "text2": null, "text3": "", "text4": "four", "date1": null,
        "date2": "2026-01-01T01:02:03"}})";
    const struct
    {
        const char* mSet;
        QByteArray mTo;
        const char* mGet;
        QByteArray mAsk;
        QByteArray mShown; // members that the result has
    } tCases[] = {
        {"updateDefaultServer", R"({"uri": "https://a.example.com/", "user": "u", "password": "p"})",
         "getDefaultServer", R"({"withPassword": true})",
         R"({"uri": "https://a.example.com/", "user": "u", "password": "p"})"},
        {"setNetProxySettings",
         R"({"mode": 2, "proxy": {"enabled": true, "configured": true, "host": "h", "port": 9,
            "user": "u", "password": "p", "passwordChanged": true}})",
         "getNetProxySettings", "{}", R"({"mode": 2})"},
        {"setLanguages", R"({"app": "de", "data": "fr"})", "getLanguages", "{}",
         R"({"app": "de", "data": "fr"})"},
        {"setScheduleParameters",
         R"({"mode": 2, "flags": 0, "nextCheck": "2199-01-02T03:04:05", "periodCount": 2,
            "unit": 2, "extra": "e", "save": true})",
         "getScheduleParameters", "{}",
         R"({"mode": 2, "nextCheck": "2199-01-02T03:04:05", "periodCount": 2, "unit": 2, "extra": "e"})"},
        {"setMonitoringSettings", R"({"settings": )" + tMonitoring + '}', "getMonitoringSettings", "{}",
         tMonitoring},
        {"addServer", R"({"server": {"name": "second", "uri": "file:///s", "userName": "", "enabled": false,
            "default": false, "savePassword": false}})",
         "getServerList", "{}", "{}"},
    };
    for (const auto& tCase : tCases) {
        SCOPED_TRACE(tCase.mSet);
        ASSERT_EQ(mRig.connect().call(tCase.mSet, tCase.mTo), true);
        ASSERT_NO_FATAL_FAILURE(mRig.killAndRestart());
        const QJsonObject tResult = mRig.connect().call(tCase.mGet, tCase.mAsk).toObject();
        const QJsonObject tShown = Json(tCase.mShown);
        for (const QString& tMember : tShown.keys()) {
            EXPECT_EQ(tResult.value(tMember), tShown.value(tMember)) << tMember;
        }
    }
    RawPeer tPeer = mRig.connect();
    const QJsonArray tServers = tPeer.call("getServerList")[q("servers")].toArray();
    ASSERT_EQ(tServers.size(), 2);
    EXPECT_EQ(tServers.at(1)[q("name")], q("second"));

    ASSERT_EQ(tPeer.errorOf("removeServer", R"({"index": 0})"), 0);
    ASSERT_EQ(tPeer.errorOf("setKdmlDataDirectory", R"({"path": "/data"})"), 0);
    ASSERT_EQ(tPeer.errorOf("setConfigValue", R"({"name": "v", "value": "1"})"), 0);
    ASSERT_NO_FATAL_FAILURE(mRig.killAndRestart());
    RawPeer tAfter = mRig.connect();
    EXPECT_EQ(tAfter.call("getServerList")[q("servers")].toArray().size(), 1);
    EXPECT_EQ(tAfter.call("getDefaultServer", R"({"withPassword": true})"),
              QJsonValue(Json(R"({"uri": "", "user": "", "password": null})")));
    EXPECT_EQ(tAfter.call("getKdmlDataDirectory"), q("/data"));
    EXPECT_EQ(tAfter.call("getConfigValue", R"({"name": "v", "default": ""})"), q("1"));
}

TEST_F(ServiceTest, ScheduleThatIsNotSavedEndsWithTheService)
{
    mRig.start();
    const QByteArray tSchedule =
        R"({"mode": 2, "flags": 0, "nextCheck": "2199-01-02T03:04:05", "periodCount": 2,
        "unit": 2, "extra": "", "save": false})";
    RawPeer tPeer = mRig.connect();
    ASSERT_EQ(tPeer.call("setScheduleParameters", tSchedule), true);
    const auto tMode = [](RawPeer& pPeer) { return pPeer.call("getScheduleParameters")[q("mode")].toInt(); };
    EXPECT_EQ(tMode(tPeer), 2);
    mRig.killAndRestart();
    RawPeer tAfter = mRig.connect();
    EXPECT_EQ(tMode(tAfter), 0);
}

TEST_F(ServiceTest, ScheduleIsConsistentAfterEachChange)
{
    RawPeer tPeer = mRig.startAndConnect();
    ASSERT_EQ(
        tPeer.call("setScheduleParameters",
                   R"({"mode": 2, "flags": 0, "nextCheck": "2020-01-02T03:04:05", "periodCount": 1, "unit": 1,
                             "extra": null, "save": true})"),
        true);
    const QString tNext = tPeer.call("getScheduleParameters")[q("nextCheck")].toString();
    EXPECT_TRUE(tNext.endsWith(q("T03:04:05"))) << tNext;
    EXPECT_GT(tNext, QDateTime::currentDateTimeUtc().toString(q("yyyy-MM-dd")));
}

TEST_F(ServiceTest, ConfiguredServerComesWithTheFirstStartOnly)
{
    mRig.configure("defaultServer = \"https://updates.example.com/\"\n");
    RawPeer tPeer = mRig.startAndConnect();
    const QJsonObject tAsk = Json(R"({"withPassword": false})");
    EXPECT_EQ(tPeer.call("getDefaultServer", tAsk)[q("uri")], q("https://updates.example.com/"));
    ASSERT_EQ(tPeer.errorOf("removeServer", R"({"index": 0})"), 0);
    mRig.killAndRestart();
    RawPeer tAfter = mRig.connect();
    EXPECT_EQ(tAfter.call("getDefaultServer", tAsk)[q("uri")], q(""));
}

TEST_F(ServiceTest, DamagedStoreIsSetAsideAndSaidSo)
{
    mRig.start();
    ASSERT_EQ(mRig.connect().errorOf("setKdmlDataDirectory", R"({"path": "/data"})"), 0);
    EXPECT_EQ(mRig.stop(), 0);
    mRig.installation().writeFile("state/state.db", "not a database, whatever it was\n");
    RawPeer tPeer = mRig.startAndConnect();
    EXPECT_NE(tPeer.call("getKdmlDataDirectory"), q("/data"));
    EXPECT_EQ(tPeer.call("getLastServiceResult", R"({"thisSession": false})"), 10);
    EXPECT_EQ(tPeer.call("getServiceStatus"), 4);
    ASSERT_EQ(tPeer.call("enterMonitorMode"), true);
    EXPECT_TRUE(tPeer.waitForEvent("serviceErrorReceived"));
    const QStringList tKept = QDir(mRig.installation().path("state")).entryList({q("state.db.damaged-*")});
    EXPECT_FALSE(tKept.isEmpty());
    EXPECT_TRUE(mRig.log().contains("store was damaged")) << mRig.log();
}

// The file is overwritten under the running service, which finds out when it reads what its cache can't hold.
TEST_F(ServiceTest, StoreDamagedUnderTheServiceIsReplaced)
{
    mRig.start();
    RawPeer tMonitor = mRig.connect();
    ASSERT_EQ(tMonitor.call("enterMonitorMode"), true);
    RawPeer tPeer = mRig.connect();
    for (int i = 0; i < 8; ++i) {
        const QJsonObject tBig{{q("name"), QString::number(i)}, {q("value"), QString(900 * 1024, u'x')}};
        ASSERT_EQ(tPeer.errorOf("setConfigValue", tBig), 0);
    }
    for (const char* tFile : {"state.db", "state.db-wal"}) {
        const QString tPath = mRig.state(tFile);
        overwrite(tPath, 4096, QByteArray(QFileInfo(tPath).size() - 4096, '\xdb'));
    }
    int tErrors = 0;
    for (int i = 0; i < 8; ++i) {
        const QJsonObject tName{{q("name"), QString::number(i)}, {q("default"), QString()}};
        tErrors += tPeer.errorOf("getConfigValue", tName) == 1 ? 1 : 0;
    }
    EXPECT_EQ(tErrors, 1) << "one request finds it out, the next ones have the fresh store";
    EXPECT_TRUE(tMonitor.waitForEvent("serviceErrorReceived"));
    ASSERT_EQ(tPeer.errorOf("setKdmlDataDirectory", R"({"path": "/data"})"), 0);
    ASSERT_NO_FATAL_FAILURE(mRig.killAndRestart());
    EXPECT_EQ(mRig.connect().call("getKdmlDataDirectory"), q("/data"));
}

TEST_F(ServiceTest, StoreOfANewerVersionIsRefused)
{
    mRig.start();
    EXPECT_EQ(mRig.stop(), 0);
    Database tDatabase;
    ASSERT_TRUE(tDatabase.open(mRig.state("state.db"), Database::Mode::ReadWrite));
    ASSERT_TRUE(tDatabase.setSchemaVersion(1000));
    tDatabase.close();
    expectRefusal(mRig.startAnother()->wait(), "newer version");
    EXPECT_EQ(QDir(mRig.state("")).entryList({q("state.db.*")}), QStringList()) << "it is left alone";
    ASSERT_TRUE(tDatabase.open(mRig.state("state.db"), Database::Mode::ReadOnly));
    EXPECT_EQ(tDatabase.schemaVersion(), 1000);
}

#include "ServiceRig.h"

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

TEST_F(ServiceTest, LostStoreIsSaidSoUnlessItIsTheFirstStart)
{
    RawPeer tFirst = mRig.startAndConnect();
    EXPECT_EQ(tFirst.call("getLastServiceResult", R"({"thisSession": false})"), 0);
    EXPECT_EQ(mRig.stop(), 0);
    mRig.installation().writeFile("state/installation.json", R"({"format": 1, "id": "a", "roots": []})");
    mRig.installation().writeFile("state/state.db", "");
    RawPeer tPeer = mRig.startAndConnect();
    EXPECT_EQ(tPeer.call("getLastServiceResult", R"({"thisSession": false})"), 10);
    EXPECT_TRUE(mRig.log().contains("store was missing or empty. Its settings are lost.")) << mRig.log();
}

// The file is overwritten while the service runs, which notices when it reads more than its cache holds.
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

#include "ServiceRig.h"

#include "sqlite/Database.h"

#include <QtCore/QDir>
#include <QtCore/QFile>
#include <QtCore/QJsonArray>

#include <csignal>

using tarn::vkcore::Database;

// Set, kill -9 right behind the answer, show.
TEST_F(ServiceTest, EachSettingSurvivesAKill)
{
    mRig.start();
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
        {"setMonitoringSettings", R"({"settings": {"eventMailsEnabled": true, "eventMailOnUpdate": true,
            "eventMailOnOverdue": true, "eventMailOnManualIntervention": true, "summarizedMailsEnabled": true,
            "summarizedMailsOnChangeOnly": true, "summarizedMailPeriod": 3, "updateOverduePeriod": 9,
            "clientName": "box", "notificationEmailAddresses": [], "lastSummary": null, "clientSettings":
            {"text1": "", "text2": "", "text3": "", "text4": "", "date1": null, "date2": null}}})",
         "getMonitoringSettings", "{}",
         R"({"clientName": "box", "summarizedMailPeriod": 3, "eventMailOnOverdue": true})"},
        {"addServer", R"({"server": {"name": "second", "uri": "file:///s", "userName": "", "enabled": false,
            "default": false, "savePassword": false}})",
         "getServerList", "{}", "{}"},
    };
    for (const auto& tCase : tCases) {
        SCOPED_TRACE(tCase.mSet);
        ASSERT_EQ(mRig.connect().call(QLatin1String(tCase.mSet), json(tCase.mTo)), QJsonValue(true));
        ASSERT_NO_FATAL_FAILURE(mRig.killAndRestart());
        const QJsonObject tResult =
            mRig.connect().call(QLatin1String(tCase.mGet), json(tCase.mAsk)).toObject();
        const QJsonObject tShown = json(tCase.mShown);
        for (const QString& tMember : tShown.keys()) {
            EXPECT_EQ(tResult.value(tMember), tShown.value(tMember)) << tMember.toStdString();
        }
    }
    RawPeer tPeer = mRig.connect();
    const QJsonArray tServers =
        tPeer.call(QStringLiteral("getServerList")).toObject().value(QLatin1String("servers")).toArray();
    ASSERT_EQ(tServers.size(), 2);
    EXPECT_EQ(tServers.at(1).toObject().value(QLatin1String("name")), QJsonValue(QStringLiteral("second")));

    ASSERT_EQ(tPeer.errorOf(QStringLiteral("removeServer"), json(R"({"index": 0})")), 0);
    ASSERT_EQ(tPeer.errorOf(QStringLiteral("setKdmlDataDirectory"), json(R"({"path": "/data"})")), 0);
    ASSERT_EQ(tPeer.errorOf(QStringLiteral("setConfigValue"), json(R"({"name": "v", "value": "1"})")), 0);
    ASSERT_NO_FATAL_FAILURE(mRig.killAndRestart());
    RawPeer tAfter = mRig.connect();
    EXPECT_EQ(tAfter.call(QStringLiteral("getServerList"))
                  .toObject()
                  .value(QLatin1String("servers"))
                  .toArray()
                  .size(),
              1);
    EXPECT_EQ(tAfter.call(QStringLiteral("getDefaultServer"), json(R"({"withPassword": true})")),
              QJsonValue(json(R"({"uri": "", "user": "", "password": null})")));
    EXPECT_EQ(tAfter.call(QStringLiteral("getKdmlDataDirectory")), QJsonValue(QStringLiteral("/data")));
    EXPECT_EQ(tAfter.call(QStringLiteral("getConfigValue"), json(R"({"name": "v", "default": ""})")),
              QJsonValue(QStringLiteral("1")));
}

TEST_F(ServiceTest, ScheduleThatIsNotSavedEndsWithTheService)
{
    mRig.start();
    const QByteArray tSchedule =
        R"({"mode": 2, "flags": 0, "nextCheck": "2199-01-02T03:04:05", "periodCount": 2,
        "unit": 2, "extra": "", "save": false})";
    RawPeer tPeer = mRig.connect();
    ASSERT_EQ(tPeer.call(QStringLiteral("setScheduleParameters"), json(tSchedule)), QJsonValue(true));
    const auto tMode = [](RawPeer& pPeer) {
        return pPeer.call(QStringLiteral("getScheduleParameters"))
            .toObject()
            .value(QLatin1String("mode"))
            .toInt();
    };
    EXPECT_EQ(tMode(tPeer), 2);
    mRig.killAndRestart();
    RawPeer tAfter = mRig.connect();
    EXPECT_EQ(tMode(tAfter), 0);
}

TEST_F(ServiceTest, ScheduleIsConsistentAfterEachChange)
{
    mRig.start();
    RawPeer tPeer = mRig.connect();
    ASSERT_EQ(
        tPeer.call(
            QStringLiteral("setScheduleParameters"),
            json(R"({"mode": 2, "flags": 0, "nextCheck": "2020-01-02T03:04:05", "periodCount": 1, "unit": 1,
                             "extra": null, "save": true})")),
        QJsonValue(true));
    const QString tNext = tPeer.call(QStringLiteral("getScheduleParameters"))
                              .toObject()
                              .value(QLatin1String("nextCheck"))
                              .toString();
    EXPECT_TRUE(tNext.endsWith(QStringLiteral("T03:04:05"))) << tNext.toStdString();
    EXPECT_GT(tNext, QDateTime::currentDateTimeUtc().toString(QStringLiteral("yyyy-MM-dd")));
}

TEST_F(ServiceTest, ConfiguredServerComesWithTheFirstStartOnly)
{
    mRig.configure("defaultServer = \"https://updates.example.com/\"\n");
    mRig.start();
    RawPeer tPeer = mRig.connect();
    const QJsonObject tAsk = json(R"({"withPassword": false})");
    EXPECT_EQ(tPeer.call(QStringLiteral("getDefaultServer"), tAsk).toObject().value(QLatin1String("uri")),
              QJsonValue(QStringLiteral("https://updates.example.com/")));
    ASSERT_EQ(tPeer.errorOf(QStringLiteral("removeServer"), json(R"({"index": 0})")), 0);
    mRig.killAndRestart();
    RawPeer tAfter = mRig.connect();
    EXPECT_EQ(tAfter.call(QStringLiteral("getDefaultServer"), tAsk).toObject().value(QLatin1String("uri")),
              QJsonValue(QStringLiteral("")));
}

TEST_F(ServiceTest, DamagedStoreIsSetAsideAndSaidSo)
{
    mRig.start();
    ASSERT_EQ(mRig.connect().errorOf(QStringLiteral("setKdmlDataDirectory"), json(R"({"path": "/data"})")),
              0);
    mRig.program().signal(SIGTERM);
    mRig.program().wait();
    mRig.installation().writeFile(QStringLiteral("state/state.db"), "not a database, whatever it was\n");
    mRig.start();
    RawPeer tPeer = mRig.connect();
    EXPECT_EQ(tPeer.call(QStringLiteral("getKdmlDataDirectory")), QJsonValue(QStringLiteral("")));
    EXPECT_EQ(tPeer.call(QStringLiteral("getLastServiceResult"), json(R"({"thisSession": false})")),
              QJsonValue(10));
    EXPECT_EQ(tPeer.call(QStringLiteral("getServiceStatus")), QJsonValue(4));
    ASSERT_EQ(tPeer.call(QStringLiteral("enterMonitorMode")), QJsonValue(true));
    EXPECT_TRUE(tPeer.waitForEvent(QStringLiteral("serviceErrorReceived")));
    const QStringList tKept = QDir(mRig.installation().path(QStringLiteral("state")))
                                  .entryList({QStringLiteral("state.db.damaged-*")});
    EXPECT_FALSE(tKept.isEmpty());
    EXPECT_TRUE(mRig.log().contains("store was damaged")) << mRig.log().toStdString();
}

// The file is overwritten under the running service, which finds out when it reads what its cache can't hold.
TEST_F(ServiceTest, StoreDamagedUnderTheServiceIsReplaced)
{
    mRig.start();
    RawPeer tMonitor = mRig.connect();
    ASSERT_EQ(tMonitor.call(QStringLiteral("enterMonitorMode")), QJsonValue(true));
    RawPeer tPeer = mRig.connect();
    for (int i = 0; i < 8; ++i) {
        const QJsonObject tBig{{QStringLiteral("name"), QString::number(i)},
                               {QStringLiteral("value"), QString(900 * 1024, u'x')}};
        ASSERT_EQ(tPeer.errorOf(QStringLiteral("setConfigValue"), tBig), 0);
    }
    for (const char* tFile : {"state.db", "state.db-wal"}) {
        QFile tStore(mRig.state(tFile));
        ASSERT_TRUE(tStore.open(QIODevice::ReadWrite));
        ASSERT_TRUE(tStore.seek(4096));
        tStore.write(QByteArray(static_cast<int>(tStore.size()) - 4096, '\xdb'));
    }
    int tErrors = 0;
    for (int i = 0; i < 8; ++i) {
        const QJsonObject tName{{QStringLiteral("name"), QString::number(i)},
                                {QStringLiteral("default"), QString()}};
        tErrors += tPeer.errorOf(QStringLiteral("getConfigValue"), tName) == 1 ? 1 : 0;
    }
    EXPECT_EQ(tErrors, 1) << "one request finds it out, the next ones have the fresh store";
    EXPECT_TRUE(tMonitor.waitForEvent(QStringLiteral("serviceErrorReceived")));
    ASSERT_EQ(tPeer.errorOf(QStringLiteral("setKdmlDataDirectory"), json(R"({"path": "/data"})")), 0);
    ASSERT_NO_FATAL_FAILURE(mRig.killAndRestart());
    EXPECT_EQ(mRig.connect().call(QStringLiteral("getKdmlDataDirectory")),
              QJsonValue(QStringLiteral("/data")));
}

TEST_F(ServiceTest, StoreOfANewerVersionIsRefused)
{
    mRig.start();
    mRig.program().signal(SIGTERM);
    mRig.program().wait();
    Database tDatabase;
    ASSERT_TRUE(tDatabase.open(mRig.state("state.db"), Database::Mode::ReadWrite));
    ASSERT_TRUE(tDatabase.setSchemaVersion(1000));
    tDatabase.close();
    const Program::Result tResult = mRig.startAnother()->wait();
    EXPECT_EQ(tResult.mStatus, 1);
    EXPECT_TRUE(tResult.mErr.contains("newer version")) << tResult.mErr.toStdString();
}

TEST_F(ServiceTest, TwoClientsCannotOverwriteEachOther)
{
    mRig.start();
    RawPeer tOne = mRig.connect();
    RawPeer tOther = mRig.connect();
    const auto tAdd = [](RawPeer& pPeer, const QString& pName) {
        QJsonObject tServer =
            json(R"({"userName": "", "enabled": true, "default": false, "savePassword": false})");
        tServer.insert(QStringLiteral("name"), pName);
        tServer.insert(QStringLiteral("uri"), QStringLiteral("https://%1.example.com/").arg(pName));
        return pPeer.errorOf(QStringLiteral("addServer"), {{QStringLiteral("server"), tServer}});
    };
    ASSERT_EQ(tAdd(tOne, QStringLiteral("a")), 0);
    ASSERT_EQ(tAdd(tOne, QStringLiteral("b")), 0);
    const QJsonValue tSeen =
        tOne.call(QStringLiteral("getServerList")).toObject().value(QLatin1String("revision"));
    const QJsonObject tFirst{{QStringLiteral("index"), 0}, {QStringLiteral("revision"), tSeen}};
    EXPECT_EQ(tOther.call(QStringLiteral("removeServer"), tFirst), QJsonValue(true));
    EXPECT_EQ(tOne.call(QStringLiteral("removeServer"), tFirst), QJsonValue(false));
    const QJsonArray tLeft =
        tOne.call(QStringLiteral("getServerList")).toObject().value(QLatin1String("servers")).toArray();
    ASSERT_EQ(tLeft.size(), 1);
    EXPECT_EQ(tLeft.at(0).toObject().value(QLatin1String("name")), QJsonValue(QStringLiteral("b")));
}

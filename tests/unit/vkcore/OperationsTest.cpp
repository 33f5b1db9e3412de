#include "ScriptedService.h"
#include "Test.h"
#include "TestApplication.h"

#include <vkcore/IPCClient.h>
#include <vkcore/MonitoringSettings.h>
#include <vkcore/Server.h>
#include <vkcore/ServerList.h>

using namespace tarn::vkcore;

namespace {

// A value of any type as the text of it.
QByteArray compact(const QJsonValue& pValue)
{
    return QJsonDocument(QJsonArray{pValue}).toJson(QJsonDocument::Compact).mid(1).chopped(1);
}

QJsonObject object(const QByteArray& pJson)
{
    return QJsonDocument::fromJson(pJson).object();
}

struct Operation
{
    const char* mMethod;
    // What the call gives, as text; "fallback" where it failed.
    std::function<QString(IPCClient&)> mCall;
    QByteArray mParams;
    QByteArray mResult;
    const char* mGives;
};

QString word(bool pOk)
{
    return pOk ? q("true") : q("fallback");
}

const QByteArray sProxy = R"({"configured":false,"enabled":true,"host":"h","password":null,)"
                          R"("passwordChanged":false,"port":3128,"user":"u"})";
const QByteArray sMonitoring =
    R"({"eventMailsEnabled":true,"eventMailOnUpdate":false,"eventMailOnOverdue":true,)"
    R"("eventMailOnManualIntervention":false,"summarizedMailsEnabled":true,"summarizedMailsOnChangeOnly":false,)"
    R"("summarizedMailPeriod":3,"updateOverduePeriod":4,"clientName":"c","notificationEmailAddresses":)"
    R"([{"address":"a@b.example","verified":true}],"lastSummary":null,"clientSettings":{"text1":"1","text2":null,)"
    R"("text3":null,"text4":null,"date1":"2024-03-07T01:02:03","date2":null}})";
const QByteArray sSchedule = R"({"mode":2,"flags":1,"nextCheck":"2024-03-07T01:02:03","periodCount":5,)"
                             R"("unit":3,"extra":"x")";
const QDateTime sDate(QDate(2024, 3, 7), QTime(1, 2, 3));

GRef<Server> someServer()
{
    GRef<Server> tServer(new Server(nullptr));
    tServer->setName(q("n"));
    tServer->setUri(q("https://x"));
    return tServer;
}

const QByteArray sServer = R"({"default":false,"enabled":true,"name":"n","savePassword":false,)"
                           R"("uri":"https://x","userName":null})";

QString serverNames(IPCClient& pClient)
{
    const GRef<ServerList> tList(new ServerList(nullptr));
    tList->mServers.append(GRef2<Server>(new Server(nullptr)));
    if (!pClient.getServerList(tList.get())) {
        return tList->mServers.size() == 1 ? q("fallback") : q("list changed");
    }
    QString tNames;
    for (const auto& tServer : tList->mServers) {
        tNames += tServer->getName() + (tServer->isDefault() ? q("* ") : q(" "));
    }
    return tNames;
}

QList<Operation> operations()
{
    using C = IPCClient;
    return {
        {"ping", [](C& c) { return word(c.ping()); }, "{}", "true", "true"},
        {"isServiceActive",
         [](C& c) {
             bool tOk = false;
             const bool tActive = c.isServiceActive(&tOk);
             return tOk ? q("ok %1").arg(tActive) : q("fallback");
         },
         "{}", "false", "ok 0"},
        {"isServiceActive", [](C& c) { return word(c.isServiceActive(nullptr)); }, "{}", "true", "true"},
        {"isVKClientActive", [](C& c) { return word(c.isVKClientActive()); }, "{}", "true", "true"},
        {"getServiceStatus",
         [](C& c) {
             bool tOk = false;
             const int tStatus = c.getServiceStatus(&tOk);
             EXPECT_TRUE(tOk || tStatus == StatusIdle);
             return tOk ? QString::number(tStatus) : q("fallback");
         },
         "{}", "3", "3"},
        {"getServiceProgress",
         [](C& c) {
             ServiceActivity tActivity{};
             bool tCancelable = false;
             QString tText;
             long long tNumbers[4]{};
             int tCounts[3]{};
             if (!c.getServiceProgress(&tActivity, &tCancelable, &tText, &tNumbers[0], &tNumbers[1],
                                       &tNumbers[2], &tNumbers[3], &tCounts[0], &tCounts[1], &tCounts[2])) {
                 return q("fallback");
             }
             return q("%1 %2 %3 %4 %5 %6 %7 %8 ")
                        .arg(int{tActivity})
                        .arg(tCancelable)
                        .arg(tText)
                        .arg(tNumbers[0])
                        .arg(tNumbers[1])
                        .arg(tNumbers[2])
                        .arg(tNumbers[3])
                        .arg(tCounts[0]) +
                    q("%1 %2").arg(tCounts[1]).arg(tCounts[2]);
         },
         "{}",
         R"({"activity":1,"cancelable":true,"text":"t","bytesDone":5000000000,"bytesTotal":2,"done":3,"total":4,)"
         R"("package":5,"packageCount":6,"failedCount":7})",
         "1 1 t 5000000000 2 3 4 5 6 7"},
        {"getServiceProgress",
         [](C& c) {
             return word(c.getServiceProgress(nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr,
                                              nullptr, nullptr, nullptr));
         },
         "{}",
         R"({"activity":0,"cancelable":false,"text":null,"bytesDone":0,"bytesTotal":0,"done":0,"total":0,)"
         R"("package":0,"packageCount":0,"failedCount":0})",
         "true"},
        {"getLastServiceResult",
         [](C& c) {
             const int t = c.getLastServiceResult(true);
             return t != 0 ? QString::number(t) : word(false);
         },
         R"({"thisSession":true})", "7", "7"},
        {"getLastServiceResultStr",
         [](C& c) {
             const QString t = c.getLastServiceResultStr(false);
             return t.isNull() ? word(false) : t;
         },
         R"({"thisSession":false})", "\"done\"", "done"},
        {"triggerUpdate", [](C& c) { return word(c.triggerUpdate(true)); }, R"({"manual":true})", "true",
         "true"},
        {"triggerUpdate", [](C& c) { return word(c.triggerUpdate(false)); }, R"({"manual":false})", "false",
         "fallback"},
        {"abortUpdate", [](C& c) { return word(c.abortUpdate()); }, "{}", "true", "true"},
        {"quitService", [](C& c) { return word(c.quitService()); }, "{}", "true", "true"},
        {"reloadConfig", [](C& c) { return word(c.reloadConfig()); }, "{}", "true", "true"},
        {"getDefaultServer",
         [](C& c) {
             QString tUri = q("kept");
             QString tUser;
             const bool tOk = c.getDefaultServer(&tUri, &tUser, nullptr);
             EXPECT_TRUE(tOk || tUri == q("kept"));
             return tOk ? tUri + tUser : word(false);
         },
         R"({"withPassword":false})", R"({"uri":"https://x","user":"u","password":null})", "https://xu"},
        {"getDefaultServer",
         [](C& c) {
             QString tPassword;
             return c.getDefaultServer(nullptr, nullptr, &tPassword) ? tPassword : word(false);
         },
         R"({"withPassword":true})", R"({"uri":"https://x","user":"u","password":"p"})", "p"},
        {"updateDefaultServer",
         [](C& c) { return word(c.updateDefaultServer(q("a\n"), QString(), q("\u00e9"))); },
         "{\"password\":\"\u00e9\",\"uri\":\"a\\n\",\"user\":null}", "true", "true"},
        {"getNetProxySettings",
         [](C& c) {
             NetProxyMode tMode{};
             NetProxy tProxy(false, true);
             tProxy.mHost = q("kept");
             const bool tOk = c.getNetProxySettings(&tMode, &tProxy);
             EXPECT_TRUE(tOk || (tProxy.mHost == q("kept") && tProxy.mConfigured));
             const QString tText = q("%1 %2 %3 %4 %5 %6").arg(int{tMode}).arg(tProxy.mHost).arg(tProxy.mPort);
             return tOk ? tText.arg(tProxy.mUser).arg(tProxy.mEnabled).arg(tProxy.mConfigured) : word(false);
         },
         "{}", "{\"mode\":2,\"proxy\":" + sProxy + "}", "2 h 3128 u 1 0"},
        {"setNetProxySettings",
         [](C& c) {
             NetProxy tProxy(true, false);
             tProxy.mHost = q("h");
             tProxy.mPort = 3128;
             tProxy.mUser = q("u");
             return word(c.setNetProxySettings(NetProxyModeManual, tProxy));
         },
         "{\"mode\":2,\"proxy\":" + sProxy + "}", "true", "true"},
        {"getKdmlDataDirectory",
         [](C& c) {
             const QString t = c.getKdmlDataDirectory();
             return t.isNull() ? word(false) : t;
         },
         "{}", "\"\"", ""},
        {"setKdmlDataDirectory", [](C& c) { return word(c.setKdmlDataDirectory(q("/d"))); },
         R"({"path":"/d"})", "true", "true"},
        {"getLanguages",
         [](C& c) {
             QString tApp, tData;
             return c.getLanguages(&tApp, &tData) ? tApp + tData : word(false);
         },
         "{}", R"({"app":"de","data":"en"})", "deen"},
        {"setLanguages", [](C& c) { return word(c.setLanguages(QString(), q("de"))); },
         R"({"app":null,"data":"de"})", "true", "true"},
        {"getConfigValue", [](C& c) { return c.getConfigValue(q("k"), q("fallback")); },
         R"({"default":"fallback","name":"k"})", "\"v\"", "v"},
        {"setConfigValue", [](C& c) { return word(c.setConfigValue(q("k"), q(""))); },
         R"({"name":"k","value":""})", "true", "true"},
        {"getScheduleParameters",
         [](C& c) {
             Scheduler::AutoUpdateMode tMode{};
             Scheduler::PeriodUnit tUnit{};
             int tFlags = 0, tCount = 0;
             QDateTime tDate;
             QString tExtra;
             if (!c.getScheduleParameters(&tMode, &tFlags, &tDate, &tCount, &tUnit, &tExtra)) {
                 return word(false);
             }
             EXPECT_EQ(tDate, sDate);
             return q("%1 %2 %3 %4 %5").arg(int{tMode}).arg(tFlags).arg(tCount).arg(int{tUnit}).arg(tExtra);
         },
         "{}", sSchedule + "}", "2 1 5 3 x"},
        {"setScheduleParameters",
         [](C& c) {
             return word(c.setScheduleParameters(Scheduler::AutoUpdateAutomatic, 1, sDate, 5,
                                                 Scheduler::PeriodMonth, q("x"), true));
         },
         sSchedule + ",\"save\":true}", "true", "true"},
        {"getMonitoringSettings",
         [](C& c) {
             MonitoringSettings tSettings;
             return c.getMonitoringSettings(&tSettings)
                        ? tSettings.clientName() + tSettings.notificationEmailAddresses()[0].mAddress
                        : word(tSettings == MonitoringSettings() ? false : true);
         },
         "{}", sMonitoring, "ca@b.example"},
        {"getServerList", serverNames, "{}",
         R"({"revision":7,"servers":[{"name":"a","uri":"u","userName":null,"enabled":true,"default":true,)"
         R"("savePassword":false},{"name":null,"uri":"","userName":"x","enabled":false,"default":false,)"
         R"("savePassword":true}]})",
         "a*  "},
        {"addServer", [](C& c) { return word(c.addServer(someServer().get())); },
         "{\"server\":" + sServer + "}", "true", "true"},
        {"changeServer", [](C& c) { return word(c.changeServer(2, someServer().get())); },
         "{\"index\":2,\"server\":" + sServer + "}", "true", "true"},
        {"removeServer", [](C& c) { return word(c.removeServer(0)); }, R"({"index":0})", "true", "true"},
        {"enterMonitorMode", [](C& c) { return word(c.enterMonitorMode()); }, "{}", "true", "true"},
    };
}

class OperationsTest : public testing::Test
{
protected:
    // What the call gives when the service answers so.
    std::string gives(const Operation& pOperation, const QByteArray& pResult)
    {
        mService = std::make_unique<ScriptedService>(mApp->path(q("service")));
        mService->answer(pOperation.mMethod, pResult);
        IPCClient tClient(mApp.get(), nullptr);
        tClient.setServerName(mApp->path(q("service")));
        return pOperation.mCall(tClient).toStdString();
    }

    GRef<TestApplication> mApp{new TestApplication};
    std::unique_ptr<ScriptedService> mService;
};

} // namespace

TEST_F(OperationsTest, SayAndReadWhatTheSocketsPageSays)
{
    for (const Operation& tOperation : operations()) {
        SCOPED_TRACE(tOperation.mMethod);
        EXPECT_EQ(gives(tOperation, tOperation.mResult), tOperation.mGives);
        QByteArray tCall(tOperation.mMethod);
        if (tOperation.mParams != "{}") {
            tCall += ' ' + compact(object(tOperation.mParams));
        }
        EXPECT_EQ(mService->allCalls().mid(1), QStringList(q(tCall))); // behind "hello"
    }
}

TEST_F(OperationsTest, RefuseAnswersOfAnotherType)
{
    for (const Operation& tOperation : operations()) {
        QList<QJsonValue> tWrong{1.5, QJsonArray(), QJsonObject()};
        // Of an object each member in turn is missing, or of another type.
        const QJsonObject tGood = object(tOperation.mResult);
        for (const QString& tKey : tGood.keys()) {
            QJsonObject tBad = tGood;
            tBad.remove(tKey);
            tWrong.append(tBad);
            tBad.insert(tKey, QJsonArray{QJsonArray()});
            if (tKey != q("revision")) {
                tWrong.append(tBad);
            }
        }
        for (const QJsonValue& tValue : tWrong) {
            SCOPED_TRACE(tOperation.mMethod + compact(tValue).toStdString());
            EXPECT_EQ(gives(tOperation, compact(tValue)), "fallback");
        }
    }
}

TEST_F(OperationsTest, TheRevisionOfTheListGoesWithItsPositions)
{
    const Operation tInTurn{"getServerList",
                            [](IPCClient& pClient) {
                                const GRef<Server> tServer = someServer();
                                tServer->setPassword(q("p"));
                                EXPECT_EQ(serverNames(pClient), QString());
                                EXPECT_TRUE(pClient.removeServer(3));
                                return word(pClient.changeServer(1, tServer.get()));
                            },
                            {},
                            {},
                            {}};
    EXPECT_EQ(gives(tInTurn, R"({"revision":"r-8","servers":[]})"), "true");
    QByteArray tServer = sServer;
    tServer.replace(R"(,"savePassword")", R"(,"password":"p","savePassword")");
    EXPECT_EQ(mService->calls().mid(1),
              QStringList({q(R"(removeServer {"index":3,"revision":"r-8"})"),
                           q(R"(changeServer {"index":1,"revision":"r-8","server":)" + tServer + '}')}));
}

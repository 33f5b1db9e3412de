#include "RawPeer.h"
#include "ScriptedService.h"
#include "Test.h"
#include "TestApplication.h"

#include <vkcore/IPCClient.h>
#include <vkcore/MonitoringSettings.h>
#include <vkcore/Server.h>
#include <vkcore/ServerList.h>

#include <QtCore/QTextStream>

using namespace tarn::vkcore;

// What rkm asks of the service and makes of its answers is the business of its own tests; here the calls that
// read answers of several members, and those that only other clients make.

namespace {

class OperationsTest : public testing::Test
{
protected:
    void SetUp() override { mClient.setServerName(mApp->path(q("service"))); }

    GRef<TestApplication> mApp{new TestApplication};
    ScriptedService mService{mApp->path(q("service"))};
    IPCClient mClient{mApp.get(), nullptr};
};

struct Query
{
    const char* mMethod;
    std::function<QString(IPCClient&)> mCall; // what it gives, "fallback" where it failed
    QByteArray mAnswer;
    const char* mGives;
};

template <typename... T>
QString words(bool pOk, const T&... pValues)
{
    QString tText;
    QTextStream tStream(&tText);
    ((tStream << pValues << ' '), ...);
    return pOk ? tText.trimmed() : q("fallback");
}

QString serverNames(IPCClient& pClient)
{
    const GRef<ServerList> tList(new ServerList(nullptr));
    tList->mServers.append(GRef2<Server>(new Server(nullptr)));
    const bool tOk = pClient.getServerList(tList.get());
    EXPECT_TRUE(tOk || tList->mServers.size() == 1) << "the list has changed";
    QString tNames;
    for (const auto& tServer : tList->mServers) {
        tNames += tServer->getName() + (tServer->isDefault() ? q("* ") : q("-"));
    }
    return words(tOk, tNames);
}

const Query sQueries[] = {
    {"ping", [](IPCClient& c) { return words(c.ping(), "true"); }, "true", "true"},
    {"getServiceStatus",
     [](IPCClient& c) {
         bool tOk = false;
         const int tStatus = c.getServiceStatus(&tOk);
         return words(tOk, tStatus);
     },
     "3", "3"},
    {"getServiceProgress",
     [](IPCClient& c) {
         ServiceActivity tActivity{};
         bool tCancelable = false;
         QString tText;
         long long n[4]{};
         int tCounts[3]{};
         const bool tOk = c.getServiceProgress(&tActivity, &tCancelable, &tText, &n[0], &n[1], &n[2], &n[3],
                                               &tCounts[0], &tCounts[1], &tCounts[2]);
         return words(tOk, int{tActivity}, int{tCancelable}, tText, n[0], n[1], n[2], n[3], tCounts[0],
                      tCounts[1], tCounts[2]);
     },
     R"({"activity":1,"cancelable":true,"text":"t","bytesDone":5000000000,"bytesTotal":2,"done":3,"total":4,
         "package":5,"packageCount":6,"failedCount":7})",
     "1 1 t 5000000000 2 3 4 5 6 7"},
    {"getDefaultServer",
     [](IPCClient& c) {
         QString tUri = q("kept");
         QString tPassword;
         const bool tOk = c.getDefaultServer(&tUri, nullptr, &tPassword);
         EXPECT_TRUE(tOk || tUri == q("kept"));
         return words(tOk, tUri, tPassword);
     },
     R"({"uri":"https://x","user":"u","password":"p"})", "https://x p"},
    {"getNetProxySettings",
     [](IPCClient& c) {
         NetProxyMode tMode{};
         NetProxy p(false, true);
         p.mHost = q("kept");
         const bool tOk = c.getNetProxySettings(&tMode, &p);
         EXPECT_TRUE(tOk || p.mHost == q("kept"));
         return words(tOk, int{tMode}, p.mHost, p.mPort, p.mUser, int{p.mEnabled}, int{p.mConfigured});
     },
     R"({"mode":2,"proxy":{"configured":false,"enabled":true,"host":"h","password":null,"passwordChanged":false,
         "port":3128,"user":"u"}})",
     "2 h 3128 u 1 0"},
    {"getLanguages",
     [](IPCClient& c) {
         QString tApp;
         QString tData;
         const bool tOk = c.getLanguages(&tApp, &tData);
         return words(tOk, tApp, tData);
     },
     R"({"app":"de","data":"en"})", "de en"},
    {"getScheduleParameters",
     [](IPCClient& c) {
         Scheduler::AutoUpdateMode tMode{};
         Scheduler::PeriodUnit tUnit{};
         int tFlags = 0;
         int tCount = 0;
         QDateTime tDate;
         QString tExtra;
         const bool tOk = c.getScheduleParameters(&tMode, &tFlags, &tDate, &tCount, &tUnit, &tExtra);
         return words(tOk, int{tMode}, tFlags, tDate.toString(Qt::ISODate), tCount, int{tUnit}, tExtra);
     },
     R"({"mode":2,"flags":1,"nextCheck":"2024-03-07T01:02:03","periodCount":5,"unit":3,"extra":"x"})",
     "2 1 2024-03-07T01:02:03 5 3 x"},
    {"getMonitoringSettings",
     [](IPCClient& c) {
         MonitoringSettings tSettings;
         const bool tOk = c.getMonitoringSettings(&tSettings);
         EXPECT_TRUE(tOk || tSettings == MonitoringSettings());
         return words(tOk, tSettings.clientName(), tSettings.notificationEmailAddresses().size());
     },
     R"({"eventMailsEnabled":true,"eventMailOnUpdate":false,"eventMailOnOverdue":true,
         "eventMailOnManualIntervention":false,"summarizedMailsEnabled":true,"summarizedMailsOnChangeOnly":false,
         "summarizedMailPeriod":3,"updateOverduePeriod":4,"clientName":"c","notificationEmailAddresses":
         [{"address":"a@b.example","verified":true}],"lastSummary":null,"clientSettings":{"text1":"1","text2":null,
         "text3":null,"text4":null,"date1":"2024-03-07T01:02:03","date2":null}})",
     "c 1"},
    {"getServerList", serverNames,
     R"({"revision":7,"servers":[{"name":"a","uri":"u","userName":null,"enabled":true,"default":true,
         "savePassword":false},{"name":null,"uri":"","userName":"x","enabled":false,"default":false,
         "savePassword":true}]})",
     "a* -"},
};

} // namespace

TEST_F(OperationsTest, ReadAnswersWholeOrNotAtAll)
{
    for (const Query& tQuery : sQueries) {
        mService.answer(tQuery.mMethod, tQuery.mAnswer);
        EXPECT_EQ(tQuery.mCall(mClient), q(tQuery.mGives)) << tQuery.mMethod;
        // Of an object each member in turn is missing, or of another type.
        QJsonArray tWrong{1.5, QJsonArray(), QJsonObject()};
        const Json tGood(tQuery.mAnswer);
        for (const QString& tKey : tGood.keys()) {
            QJsonObject tBad = tGood;
            tBad.remove(tKey);
            tWrong.append(tBad);
            tBad.insert(tKey, QJsonArray{QJsonArray()});
            if (tKey != q("revision")) {
                tWrong.append(tBad);
            }
        }
        for (const QJsonValue tValue : std::as_const(tWrong)) {
            const QByteArray tAnswer = QJsonDocument(QJsonArray{tValue}).toJson(QJsonDocument::Compact);
            mService.answer(tQuery.mMethod, tAnswer.mid(1).chopped(1));
            EXPECT_EQ(tQuery.mCall(mClient), q("fallback")) << tQuery.mMethod << tAnswer;
        }
    }
}

TEST_F(OperationsTest, TheRevisionOfTheListGoesWithItsPositions)
{
    const GRef<Server> tServer(new Server(nullptr));
    tServer->setName(q("n"));
    EXPECT_TRUE(mClient.removeServer(0));
    mService.answer("getServerList", R"({"revision":"r-8","servers":[]})");
    EXPECT_EQ(serverNames(mClient), q(""));
    EXPECT_TRUE(mClient.changeServer(1, tServer.get()));
    EXPECT_EQ(mService.calls().value(0), q(R"(removeServer {"index":0})"));
    EXPECT_TRUE(
        mService.calls().last().startsWith(q(R"(changeServer {"index":1,"revision":"r-8","server":{)")));
}

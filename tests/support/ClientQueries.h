#pragma once

#include "Text.h"

#include <vkcore/IPCClient.h>
#include <vkcore/MonitoringSettings.h>
#include <vkcore/Server.h>
#include <vkcore/ServerList.h>

#include <QtCore/QTextStream>

namespace tarn::test {

using namespace vkcore;

// Each call of the client library that reads an answer with several members, and some that read one value.
struct ClientQuery
{
    const char* mMethod;
    // Its result as one text; "failed" if it failed and changed nothing.
    QString (*mCall)(tarn::vkcore::IPCClient&);
    const char* mAnswer;
    const char* mGives; // for that answer
};

template <typename... T>
QString words(bool pOk, bool pUnchanged, const T&... pValues)
{
    QString tText;
    QTextStream tStream(&tText);
    ((tStream << pValues << ' '), ...);
    return pOk ? tText.trimmed() : q(pUnchanged ? "failed" : "failed, but changed something");
}

inline QString serverNames(IPCClient& pClient)
{
    const GRef<ServerList> tList(new ServerList(nullptr));
    tList->mServers.append(GRef2<Server>(new Server(nullptr)));
    const bool tOk = pClient.getServerList(tList.get());
    QString tNames;
    for (const auto& tServer : tList->mServers) {
        tNames += tServer->getName() + (tServer->isDefault() ? q("* ") : q("-"));
    }
    return words(tOk, tList->mServers.size() == 1, tNames);
}

inline const ClientQuery sClientQueries[] = {
    {"ping", [](IPCClient& c) { return words(c.ping(), true, "true"); }, "true", "true"},
    {"getServiceStatus",
     [](IPCClient& c) {
         bool tOk = false;
         const int tStatus = c.getServiceStatus(&tOk);
         return words(tOk, tStatus == StatusIdle, tStatus);
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
         return words(tOk, !tCancelable, int{tActivity}, int{tCancelable}, tText, n[0], n[1], n[2], n[3],
                      tCounts[0], tCounts[1], tCounts[2]);
     },
     R"({"activity":1,"cancelable":true,"text":"t","bytesDone":5000000000,"bytesTotal":2,"done":3,"total":4,
         "package":5,"packageCount":6,"failedCount":7})",
     "1 1 t 5000000000 2 3 4 5 6 7"},
    {"getDefaultServer",
     [](IPCClient& c) {
         QString tUri = q("kept");
         QString tPassword;
         const bool tOk = c.getDefaultServer(&tUri, nullptr, &tPassword);
         return words(tOk, tUri == q("kept"), tUri, tPassword);
     },
     R"({"uri":"https://x","user":"u","password":"p"})", "https://x p"},
    {"getNetProxySettings",
     [](IPCClient& c) {
         NetProxyMode tMode{};
         NetProxy p(false, true);
         p.mHost = q("kept");
         const bool tOk = c.getNetProxySettings(&tMode, &p);
         return words(tOk, p.mHost == q("kept"), int{tMode}, p.mHost, p.mPort, p.mUser, int{p.mEnabled},
                      int{p.mConfigured});
     },
     R"({"mode":2,"proxy":{"configured":false,"enabled":true,"host":"h","password":null,"passwordChanged":false,
         "port":3128,"user":"u"}})",
     "2 h 3128 u 1 0"},
    {"getLanguages",
     [](IPCClient& c) {
         QString tApp;
         QString tData;
         const bool tOk = c.getLanguages(&tApp, &tData);
         return words(tOk, tApp.isNull(), tApp, tData);
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
         return words(tOk, tDate.isNull(), int{tMode}, tFlags, tDate.toString(Qt::ISODate), tCount,
                      int{tUnit}, tExtra);
     },
     R"({"mode":2,"flags":1,"nextCheck":"2024-03-07T01:02:03","periodCount":5,"unit":3,"extra":"x"})",
     "2 1 2024-03-07T01:02:03 5 3 x"},
    {"getMonitoringSettings",
     [](IPCClient& c) {
         MonitoringSettings tSettings;
         const bool tOk = c.getMonitoringSettings(&tSettings);
         return words(tOk, tSettings == MonitoringSettings(), tSettings.clientName(),
                      tSettings.notificationEmailAddresses().size());
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

} // namespace tarn::test

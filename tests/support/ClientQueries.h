#pragma once

#include "Text.h"

#include <vkcore/IPCClient.h>
#include <vkcore/MonitoringSettings.h>
#include <vkcore/Server.h>
#include <vkcore/ServerList.h>

#include <QtCore/QTextStream>

namespace tarn::test {

using namespace vkcore;

// Calls of the client library by the shape of their answers: one value, an object, objects in objects, a
// list.
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

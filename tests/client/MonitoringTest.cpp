#include "ClientTest.h"
#include "RawPeer.h"

#include <unistd.h>

TEST(ShowMonitoringTest, PrintsAllSettings)
{
    const QByteArray tAddressless = R"({"eventMailsEnabled": false, "eventMailOnUpdate": true,
        "eventMailOnOverdue": false, "eventMailOnManualIntervention": true, "summarizedMailsEnabled": true,
        "summarizedMailsOnChangeOnly": false, "summarizedMailPeriod": 1, "updateOverduePeriod": 0,
        "clientName": null, "notificationEmailAddresses": [], "lastSummary": null,
        "clientSettings": {"text1": null, "text2": null, "text3": null, "text4": null, "date1": null,
        "date2": null}})";
    check({
        ok("show-monitoring-settings",
           "Send event e-mails: yes\n  When an update is performed: no\n  When an update is overdue: yes\n"
           "  When manual intervention is necessary: no\n\nSend summarized status e-mail: no\n"
           "  Only send on status changes: yes\n  Send interval: 7 day(s)\n\n"
           "An update is considered overdue after 14 day(s)\n\nComputer name: rechner\n\nNotification e-mail "
           "addresses:\n"
           "  a@example.org (verified)\n"
           "  b@example.org (not verified)\n",
           {"getMonitoringSettings"}),
        ok("show-monitoring-settings",
           "Send event e-mails: no\n  When an update is performed: yes\n  When an update is overdue: no\n"
           "  When manual intervention is necessary: yes\n\nSend summarized status e-mail: yes\n"
           "  Only send on status changes: no\n  Send interval: 1 day(s)\n\n"
           "An update is considered overdue after 0 day(s)\n\nComputer name: \n\nNotification e-mail "
           "addresses:\n",
           {"getMonitoringSettings"}, {answers("getMonitoringSettings", tAddressless)}),
        fails("show-monitoring-settings", "Failed to get monitoring settings\n", {"getMonitoringSettings"},
              {refuses("getMonitoringSettings")}),
    });
}

TEST(UpdateMonitoringTest, RefusesWithoutAChange)
{
    const auto tRefuses = [](const Words& pOptions, const QByteArray& pError) {
        return fails(Words("update-monitoring-settings") + pOptions, pError + '\n',
                     guarded({"getMonitoringSettings"}));
    };
    check({
        tRefuses("-e --summary-interval=0 --addresses=x", "Invalid summary interval '0'"),
        tRefuses("-i 2147483648", "Invalid summary interval '2147483648'"),
        tRefuses("-i x%1", "Invalid summary interval 'x%1'"),
        tRefuses("-d 1.5 -a x", "Invalid overdue tolerance '1.5'"),
        tRefuses("--overdue-tolerance=0", "Invalid overdue tolerance '0'"),
        tRefuses({"-a", "a@b.de , no address,x"}, "Invalid e-mail address 'no address'"),
        tRefuses("-a a@localhost", "Invalid e-mail address 'a@localhost'"),
        tRefuses("-a a@b.d", "Invalid e-mail address 'a@b.d'"),
        tRefuses("-a ä@b.de", "Invalid e-mail address 'ä@b.de'"),
        tRefuses({"-a", " a@b.de"}, "Invalid e-mail address ' a@b.de'"),
        tRefuses({"-a", "a@b.de\n"}, "Invalid e-mail address 'a@b.de\n'"),
        fails("update-monitoring-settings -e", "Failed to get monitoring settings\n",
              guarded({"getMonitoringSettings"}), {refuses("getMonitoringSettings")}),
    });
}

// The settings that are written back, except for those that the case changes.
struct MonitoringChange
{
    Words mOptions;
    QByteArray mChanges;       // members of the object
    QByteArray mBefore = "{}"; // differences to the usual object
};

TEST_F(ClientTest, UpdateMonitoringChangesWhatTheOptionsName)
{
    const auto tMerged = [](QJsonObject pTo, const QJsonObject& pFrom) {
        for (auto tIt = pFrom.begin(); tIt != pFrom.end(); ++tIt) {
            pTo.insert(tIt.key(), tIt.value());
        }
        return pTo;
    };
    RawPeer tPeer(mInstallation.socketPath());
    const QJsonObject tOrdinary = tPeer.call("getMonitoringSettings").toObject();
    char tHost[256] = {};
    ASSERT_EQ(::gethostname(tHost, sizeof tHost - 1), 0);
    const QByteArray tHostName = R"("clientName": ")" + QByteArray(tHost) + '"';

    const MonitoringChange tChanges[] = {
        {"-E -u -O -m -s -C",
         R"("eventMailsEnabled": false, "eventMailOnUpdate": true, "eventMailOnOverdue": false,
            "eventMailOnManualIntervention": true, "summarizedMailsEnabled": true,
            "summarizedMailsOnChangeOnly": false)"},
        {"--event-mails --no-send-on-update --send-on-overdue --no-send-on-manual-intervention "
         "--no-send-summary --send-summary-on-change",
         ""},
        {"-sS --send-summary", R"("summarizedMailsEnabled": true)"},
        {"-i 2147483647 --overdue-tolerance=1",
         R"("summarizedMailPeriod": 2147483647, "updateOverduePeriod": 1)"},
        {{"-n", "%1 ein \"Name\""}, R"("clientName": "%1 ein \"Name\"")"},
        {"--computer-name=", R"("clientName": "")", R"({"clientName": ""})"},
        {"-e", tHostName, R"({"clientName": null})"},
        {{"--addresses=A.B+1@EXAMPLE.ORG, \t,c_d%@x-y.info"},
         R"("notificationEmailAddresses": [{"address": "A.B+1@EXAMPLE.ORG", "verified": false},
            {"address": "c_d%@x-y.info", "verified": false}])"},
        {"-a ,", R"("notificationEmailAddresses": [])"},
    };
    for (const MonitoringChange& tChange : tChanges) {
        SCOPED_TRACE(tChange.mOptions.join(' '));
        const QJsonObject tBefore = tMerged(tOrdinary, Json(tChange.mBefore));
        mService.answer("getMonitoringSettings", QJsonDocument(tBefore).toJson());
        const Program::Result tResult =
            mInstallation.run(Words("update-monitoring-settings") + tChange.mOptions);
        expectResult(tResult, sApplied, "", 0);
        const QJsonObject tAfter = tMerged(tBefore, Json("{" + tChange.mChanges + "}"));
        EXPECT_EQ(mService.calls().last().toUtf8(), R"(setMonitoringSettings {"settings":)" +
                                                        QJsonDocument(tAfter).toJson(QJsonDocument::Compact) +
                                                        "}");
    }

    mService.refuse("setMonitoringSettings");
    const Program::Result tResult = mInstallation.run({"update-monitoring-settings", "-e"});
    EXPECT_EQ(tResult.mErr, "Failed to update monitoring settings\n");
    EXPECT_EQ(tResult.mStatus, 1);
}

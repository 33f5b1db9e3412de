#include "ClientTest.h"

#include <csignal>

using Peer = ScriptedService::Peer;

static const QByteArray sClear = "\x1b[1G\x1b[K";
static const QByteArray sFinished = "Update finished: All is well\n";
static const QByteArray sWarning = "Aborting the installation process can lead to inconsistent "
                                   "installations. If you want to abort the update "
                                   "anyway, please press Ctrl-C again.\n";
static const QByteArray sAborting = "Aborting update ...\n";
static const QByteArray sStatus = R"(getScheduleParameters
getLastServiceResult {"thisSession":false}
getLastServiceResultStr {"thisSession":false}
getConfigValue {"default":null,"name":"service.lastRun"}
getServiceStatus
getServiceProgress)";

static QByteArray progress(const QByteArray& pActivity, const QByteArray& pDone, const QByteArray& pTotal)
{
    return R"({"cancelable": true, "text": "x", "bytesDone": 1, "bytesTotal": 2, "package": 1, "packageCount": 1,
        "failedCount": 0, "activity": )" +
           pActivity + R"(, "done": )" + pDone + R"(, "total": )" + pTotal + '}';
}

TEST(ServiceStatusTest, SaysWhatTheServiceDoes)
{
    const QByteArray tHead = "Last update: 2024-03-07 02:15:00\nLast result: All is well\nCurrent status: ";
    const Script tLastRun = answers("getConfigValue", R"("20240307021500")");
    const auto tShows = [&](const QByteArray& pState, const QByteArray& pProgress, const QByteArray& pOut) {
        return ok("service-status", tHead + pOut, sStatus.split('\n'),
                  {tLastRun, answers("getServiceStatus", pState), answers("getServiceProgress", pProgress)});
    };
    const QByteArray tCurrent = "\nCurrent progress: ";
    check({
        tShows("0", progress("0", "1", "2"), "Idle\n"),
        tShows("1", progress("7", "1", "2"), "Updates are currently suppressed\n"),
        tShows("2", progress("1", "999", "1000"),
               "Update is in progress" + tCurrent + "Downloading updates (99% complete)\n"),
        tShows("3", progress("2", "5", "0"),
               "Process is being aborted" + tCurrent + "Verifying updates (0% complete)\n"),
        tShows("4", progress("3", "1", "2"),
               "An error occurred during the last update" + tCurrent +
                   "Waiting for Tavo applications to be closed.\n"),
        tShows("5", progress("4", "3", "2"), tCurrent + "Preparing installation (150% complete)\n"),
        tShows("-1", progress("6", "-1", "2"), tCurrent + "Removing obsolete files (-50% complete)\n"),
        tShows("2", progress("5", "9007199254740991", "1"),
               "Update is in progress" + tCurrent + "Installing updates (2147483647% complete)\n"),
        ok("service-status", tHead + "Idle\n", sStatus.split('\n'),
           {tLastRun, refuses("getServiceProgress")}),
    });
}

TEST(ServiceStatusTest, SaysWhenTheServiceRan)
{
    const auto tShows = [](const QByteArray& pResult, const QByteArray& pLastRun, const QByteArray& pText) {
        QList<QByteArray> tCalls = sStatus.split('\n');
        if (pText == "never") {
            tCalls.removeAt(3);
        }
        return ok("service-status", "Last update: " + pText + "\nLast result: %1 ok\nCurrent status: Idle\n",
                  tCalls,
                  {answers("getLastServiceResult", pResult), answers("getConfigValue", pLastRun),
                   answers("getLastServiceResultStr", R"("%1 ok")")});
    };
    check({
        tShows("256", R"("20240307021500")", "never"),
        tShows("7", R"("20240307021500")", "2024-03-07 02:15:00"),
        tShows("1", R"("2024-03-07 02:15:00")", ""),
        fails("service-status", "Failed to get current schedule parameters.\n", {"getScheduleParameters"},
              {refuses("getScheduleParameters")}),
        ok("service-status", "Automatic updates are not enabled.\n", {"getScheduleParameters"},
           {answers("getScheduleParameters", R"({"mode": 1, "flags": 0, "nextCheck": null, "periodCount": 1,
                                                 "unit": 1, "extra": null})")}),
    });
}

// What the service does when the update is triggered. It sends all events before its answer, so before rkm
// can wait for any.
static Script onTrigger(const QList<QByteArray>& pEvents)
{
    return [=](ScriptedService& pService) {
        pService.onCall("triggerUpdate", [&pService, pEvents](Peer& pPeer, const QJsonObject&) {
            for (const QByteArray& tEvent : pEvents) {
                const QList<QByteArray> tParts = tEvent.split(' ');
                pService.sendEvent(tParts[0], tEvent.mid(tParts[0].size() + 1));
            }
            pPeer.reply("true");
        });
    };
}

static QByteArray state(int pState)
{
    return R"(serviceStatusChanged {"status": )" + QByteArray::number(pState) + "}";
}

static QByteArray message(const char* pEvent, int pType, const QByteArray& pText, const QByteArray& pDetails)
{
    return pEvent + (R"( {"type": )" + QByteArray::number(pType)) + R"(, "text": ")" + pText +
           R"(", "details": ")" + pDetails + R"("})";
}

static const QList<QByteArray> sWaits{"isVKClientActive", "enterMonitorMode",
                                      R"(triggerUpdate {"manual":true})"};
static const QList<QByteArray> sWaitsAndAsks =
    sWaits + QList<QByteArray>{R"(getLastServiceResultStr {"thisSession":true})",
                               R"(getLastServiceResult {"thisSession":true})"};

TEST(UpdateTest, FailsWhereItCanNotStart)
{
    check({
        fails("update", "Cannot perform an update while the wizard is active.\n", {"isVKClientActive"},
              {answers("isVKClientActive", "true"), answers("isServiceActive", "true")}),
        fails("update", "", sWaits.mid(0, 2), {answers("enterMonitorMode", "false")}),
        fails("update", "Failed to start update\n", sWaits, {refuses("triggerUpdate")}),
        fails("update --no-wait", "Failed to start update\n", {sWaits[0], sWaits[2]},
              {answers("triggerUpdate", "false")}),
        ok("update --no-wait -q", "", {sWaits[0], sWaits[2]}),
    });
}

TEST(UpdateTest, EndsWithTheResultOfTheService)
{
    const struct
    {
        const char* mResult;
        int mStatus;
    } tResults[] = {{"257", 0}, {"256", 100}, {"10", 110}, {"155", 255}};
    for (const auto& tResult : tResults) {
        check({{"update",
                sClear + "Update finished: %1 done\n",
                "",
                tResult.mStatus,
                sWaitsAndAsks,
                {onTrigger({state(0)}), answers("getLastServiceResult", tResult.mResult),
                 answers("getLastServiceResultStr", R"("%1 done")")}}});
    }
}

// A run with nothing to do ends before rkm waits for it.
TEST(UpdateTest, ARunThatEndsAtOnceIsNotWaitedForForever)
{
    // The end of the previous run does not count; this one ends while it is asked for its progress.
    const auto tOldEnd = [](ScriptedService& pService) {
        pService.onCall("enterMonitorMode", [](Peer& pPeer, const QJsonObject&) {
            pPeer.send(pPeer.answerLine("true") +
                       ScriptedService::eventLine("serviceStatusChanged", R"({"status": 0})"));
        });
        pService.onCall("getServiceProgress", [&pService](Peer& pPeer, const QJsonObject&) {
            pService.sendEvent("serviceStatusChanged", R"({"status": 0})");
            pPeer.reply(progress("1", "1", "2"));
        });
    };
    const auto tEndsBehindAnswer = [](ScriptedService& pService) {
        pService.onCall("triggerUpdate", [&pService](Peer& pPeer, const QJsonObject&) {
            pPeer.reply("true");
            pService.sendEvent("serviceStatusChanged", R"({"status": 0})");
        });
    };
    check({
        ok("update", sClear + sFinished, sWaitsAndAsks, {onTrigger({state(2), state(0)})}),
        ok("update", sClear + sFinished, sWaitsAndAsks, {tEndsBehindAnswer}),
        ok("update", sClear + "Downloading updates (50% complete)" + sClear + sFinished,
           sWaits + QList<QByteArray>{"getServiceProgress"} + sWaitsAndAsks.mid(3), {tOldEnd}),
        ok("update", sClear + sFinished, sWaitsAndAsks, {onTrigger({state(1)})}),
        ok("update", sClear + sFinished, sWaitsAndAsks,
           {onTrigger({state(2), state(3), state(9), state(-1), state(4)})}),
        ok("update --quiet", sClear + "Update started" + sClear + sFinished, sWaitsAndAsks,
           {onTrigger({state(0)})}),
    });
}

TEST(UpdateTest, PrintsTheMessagesOfTheService)
{
    const char* const tNote = "serviceNotificationReceived";
    const QByteArray tOut = sClear + "Error: %1 zero\n\n\n" + sClear +
                            "Warning: one\nDetails:\nwhy\nso\n\n\n" + sClear + "Information: zwei ü\n\n\n" +
                            sClear + "Information: \nDetails:\nd\n\n\n" + sClear + sFinished;
    check({ok("update", tOut, sWaitsAndAsks,
              {onTrigger({message(tNote, 0, "%1 zero", ""), message(tNote, 1, "one", "why\\nso"),
                          message("serviceErrorReceived", 2, "zwei ü", ""), message(tNote, 4, "", "d"),
                          state(4)})})});
}

TEST(UpdateTest, TellsALostLinkFromAnOrderlyEnd)
{
    const QByteArray tLost = "Lost connection to the service\n";
    const auto tHangsUp = [](bool pMonitorsOnly, bool pAnnounced) -> Script {
        return [=](ScriptedService& pService) {
            pService.onCall("triggerUpdate", [=, &pService](Peer& pPeer, const QJsonObject&) {
                pPeer.reply("true");
                // Before the announcement, after which the client reads this link.
                if (!pMonitorsOnly) {
                    pPeer.hangUp();
                }
                if (pAnnounced) {
                    pService.sendEvent("quitRequestReceived", "{}");
                }
                pService.hangUp(true);
            });
        };
    };
    check({
        ok("update", sClear, sWaits, {onTrigger({"quitRequestReceived {}"})}),
        {"update", sClear, tLost, 1, sWaits, {tHangsUp(false, false)}},
        {"update", sClear, tLost, 1, sWaits, {tHangsUp(false, true)}},
        ok("update", sClear + sFinished, sWaitsAndAsks, {tHangsUp(true, false)}),
        ok("update", sClear, sWaits, {tHangsUp(true, true)}),
    });
}

// On a terminal Ctrl-C reaches all processes there, and a progress line is visible.
TEST_F(ClientTest, TheProgressLineIsRewrittenAndGivesWayToMessages)
{
    mService.answer("getServiceProgress", progress("1", "1", "3"));
    const std::unique_ptr<Program> tProgram = mInstallation.start({"update"}, Program::Console::Terminal);
    ASSERT_TRUE(tProgram->waitForOutput("(33% complete)"));
    mService.answer("getServiceProgress", progress("5", "2", "3"));
    mService.sendEvent("serviceNotificationReceived", R"({"type": 4, "text": "hm", "details": ""})");
    ASSERT_TRUE(tProgram->waitForOutput("(66% complete)"));
    mService.refuse("getServiceProgress"); // blanks the line
    ASSERT_TRUE(tProgram->waitForOutput("(66% complete)" + sClear));
    const QByteArray tSoFar = sClear + "Downloading updates (33% complete)" + sClear +
                              "Information: hm\n\n\n" + sClear + "Installing updates (66% complete)";
    tProgram->write("\x03");
    ASSERT_TRUE(tProgram->waitForOutput(sClear + sWarning));
    EXPECT_TRUE(tProgram->output().startsWith(tSoFar)) << tProgram->output();
    tProgram->write("\x03");
    ASSERT_TRUE(tProgram->waitForOutput(sClear + sAborting));
    mService.sendEvent("serviceStatusChanged", R"({"status": 0})");
    EXPECT_TRUE(tProgram->wait().mOut.endsWith(sClear + sFinished));
}

namespace {

// A running update, followed quietly.
class CancelTest : public ClientTest
{
protected:
    void start(int pActivity)
    {
        onTrigger({R"(serviceActivityChanged {"activity": )" + QByteArray::number(pActivity) + "}",
                   message("serviceNotificationReceived", 4, "under way", "")})(mService);
        mProgram = mInstallation.start({"update", "--quiet"});
        // When the message is printed, the activity before it has been received.
        ASSERT_TRUE(mProgram->waitForOutput("under way\n\n\n"));
        mSoFar = mProgram->output();
    }

    void end(int pResult, const QByteArray& pOut, const QByteArray& pErr, int pStatus)
    {
        mService.answer("getLastServiceResult", QByteArray::number(pResult));
        mService.sendEvent("serviceStatusChanged", R"({"status": 3})");
        mService.sendEvent("serviceStatusChanged", R"({"status": 0})");
        expectResult(mProgram->wait(), mSoFar + pOut, pErr, pStatus);
    }

    std::unique_ptr<Program> mProgram;
    QByteArray mSoFar;
};

} // namespace

TEST_F(CancelTest, AnInterruptAbortsAtOnceOnlyWhereThatIsSafe)
{
    int tAborts = 0;
    for (int tActivity = 0; tActivity < 8; ++tActivity) {
        SCOPED_TRACE(tActivity);
        const bool tSafe = tActivity == 1 || tActivity == 2 || tActivity == 4;
        start(tActivity);
        mProgram->signal(SIGINT);
        if (!tSafe) {
            ASSERT_TRUE(mProgram->waitForOutput(sWarning));
            EXPECT_EQ(mService.calls().count(q("abortUpdate")), tAborts);
            mProgram->signal(SIGINT);
        }
        ASSERT_TRUE(mService.waitForCall("abortUpdate", ++tAborts));
        end(4, (tSafe ? QByteArray() : sClear + sWarning) + sClear + sAborting + sClear + sFinished, "", 104);
    }
    EXPECT_EQ(mInstallation.log().count("Update was canceled (activity  = "), tAborts);
}

TEST_F(CancelTest, AForcedRequestAsksNobodyAndAFurtherOneAbortsAgain)
{
    start(5);
    mProgram->signal(SIGHUP);
    ASSERT_TRUE(mService.waitForCall("abortUpdate"));
    mProgram->signal(SIGTERM);
    ASSERT_TRUE(mService.waitForCall("abortUpdate", 2));
    end(1, sClear + sAborting + sClear + sAborting + sClear + sFinished, "", 0);
}

TEST_F(CancelTest, AServiceThatRefusesToAbortIsLeft)
{
    mService.refuse("abortUpdate");
    start(1);
    mProgram->signal(SIGINT);
    ASSERT_TRUE(mService.waitForCall("abortUpdate"));
    // The run continues, and its end is still received.
    ASSERT_TRUE(mService.waitForHangUp());
    end(1, sClear + sAborting + sClear, "Lost connection to the service\n", 1);
    EXPECT_FALSE(mService.calls().contains(q("quitService")));
}

// The service is gone then, even if the stop comes in the middle of a request.
TEST(UpdateTest, TheProgressLineEndsWithTheHardStop)
{
    const Installation tInstallation;
    for (const bool tAnswers : {true, false}) {
        ScriptedService tService(tInstallation.socketPath(), refuses("abortUpdate"));
        if (!tAnswers) {
            tService.ignore("getServiceProgress");
        }
        const std::unique_ptr<Program> tProgram = tInstallation.start({"update"});
        ASSERT_TRUE(tService.waitForCall("getServiceProgress"));
        tProgram->signal(SIGTERM);
        ASSERT_TRUE(tService.waitForCall("abortUpdate") && tService.waitForHangUp());
        EXPECT_FALSE(tProgram->waitForOutput("no more", 1, 2500)) << "two ticks and more";
        tService.sendEvent("serviceStatusChanged", R"({"status": 0})");
        EXPECT_EQ(tProgram->wait().mErr, "Lost connection to the service\n");
        EXPECT_EQ(tInstallation.log().count("getServiceProgress failed"), tAnswers ? 0 : 1);
    }
}

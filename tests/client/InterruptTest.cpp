#include "ClientTest.h"

#include <csignal>

using Peer = ScriptedService::Peer;

#ifdef __SANITIZE_ADDRESS__
constexpr qint64 sSecondMs = 2000; // the sanitizer searches for leaks when a process ends
#else
constexpr qint64 sSecondMs = 1000;
#endif

// Commands against a service that never answers one of their calls: while connecting, asking, changing, and
// waiting for an update.
TEST(InterruptTest, EndsTheCommandByItsOwnFailurePath)
{
    const struct
    {
        const char* mSilent;
        Words mArguments;
        QByteArray mOut;
        QByteArray mErr;
        int mStatus = 1;
    } tCases[] = {
        {"hello", "list-servers", "",
         "Connection to the service failed!\nPlease check the permissions of TMP\n"},
        {"setKdmlDataDirectory", "update-settings -dx", "", "Failed to set the kdml data directory\n"},
        {"getServiceStatus", "service-status", // an unavailable status is shown as the fallback
         "Last update: \nLast result: All is well\nCurrent status: Idle\n", "", 0},
        {"enterMonitorMode", "update", "", ""},
    };
    for (const auto& tCase : tCases) {
        SCOPED_TRACE(tCase.mSilent);
        const Installation tInstallation;
        ScriptedService tService(tInstallation.socketPath());
        tService.ignore(tCase.mSilent);
        const std::unique_ptr<Program> tProgram = tInstallation.start(tCase.mArguments);
        ASSERT_TRUE(tService.waitForCall(tCase.mSilent));
        QElapsedTimer tTimer;
        tTimer.start();
        tProgram->signal(SIGINT);
        const QByteArray tErr = QByteArray(tCase.mErr).replace("TMP", tInstallation.path("tmp").toUtf8());
        expectResult(tProgram->wait(), tCase.mOut, tErr, tCase.mStatus);
        EXPECT_LT(tTimer.elapsed(), sSecondMs);
        EXPECT_TRUE(tInstallation.log().contains("Current operation was canceled"));
    }
}

// The first interrupt warns, because an update may be running. The second one gets its abort to a slow
// service, and ends a trigger that hangs.
TEST_F(ClientTest, TheSecondInterruptEndsATriggerThatHangs)
{
    for (const bool tSlow : {true, false}) {
        SCOPED_TRACE(tSlow);
        const ScriptedService tService(mInstallation.socketPath(), [tSlow](ScriptedService& pService) {
            pService.onCall("triggerUpdate", [&pService, tSlow](Peer& pTrigger, const QJsonObject&) {
                const QByteArray tRefusal = pTrigger.answerLine("false");
                pService.ignore("hello");
                if (tSlow) {
                    pService.onCall("hello", [](Peer& pPeer, const QJsonObject&) {
                        std::this_thread::sleep_for(std::chrono::milliseconds(600));
                        pPeer.reply("true");
                    });
                    pService.onCall("abortUpdate", [&pTrigger, tRefusal](Peer& pPeer, const QJsonObject&) {
                        pPeer.reply("true");
                        pTrigger.send(tRefusal);
                    });
                }
            });
        });
        const std::unique_ptr<Program> tProgram =
            mInstallation.start(Words(tSlow ? "update" : "update --no-wait"));
        ASSERT_TRUE(tService.waitForCall("triggerUpdate"));
        tProgram->signal(SIGINT);
        ASSERT_TRUE(tProgram->waitForOutput("press Ctrl-C again."));
        tProgram->signal(SIGINT);
        const Program::Result tResult = tProgram->wait();
        EXPECT_TRUE(tResult.mOut.endsWith("Aborting update ...\n"));
        EXPECT_EQ(tResult.mErr, "Failed to start update\n");
        EXPECT_EQ(tResult.mStatus, 1);
        EXPECT_EQ(tService.calls().contains(q("abortUpdate")), tSlow);
    }
}

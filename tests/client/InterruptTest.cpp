#include "ClientTest.h"

#include <csignal>
#include <thread>

using Peer = ScriptedService::Peer;

namespace {

// A command against a service that never answers one of its calls.
struct InterruptCase
{
    const char* mSilent;
    QList<QByteArray> mArguments;
    QByteArray mOut;
    QByteArray mErr;
    int mStatus = 1;
};

#ifdef __SANITIZE_ADDRESS__
constexpr qint64 sSecondMs = 2000; // the sanitizer looks for leaks when a process ends
#else
constexpr qint64 sSecondMs = 1000;
#endif

// What GoogleTest calls the case.
std::ostream& operator<<(std::ostream& pStream, const InterruptCase& pCase)
{
    return pStream << pCase.mArguments.join(' ');
}

class InterruptTest : public ClientTest, public testing::WithParamInterface<InterruptCase>
{
};

const QByteArray sNoConnection = "Connection to the service failed!\nPlease check the permissions of TMP\n";
const QByteArray sServerLine = "Default server: https://updates.example.org/kdml (username=anna)\n";

const InterruptCase sInterrupts[] = {
    {"hello", {"list-servers"}, "", sNoConnection},
    {"ping", {"update"}, "", sNoConnection},
    {"getKdmlDataDirectory",
     {"show-settings", "-sd"},
     sServerLine,
     "Failed to query the kdml data directory\n"},
    {"isServiceActive",
     {"update-settings", "--config-var=a:b"},
     "",
     "Failed to set configuration variable 'a'\n"},
    {"setKdmlDataDirectory", {"update-settings", "-dx"}, "", "Failed to set the kdml data directory\n"},
    {"reloadConfig", {"update-settings", "-dx"}, "", "Failed to reload the service configuration\n"},
    {"getScheduleParameters", {"show-schedule-settings"}, "", "Failed to get current schedule parameters.\n"},
    {"setScheduleParameters", {"update-schedule-settings", "-i1d"}, "", "Failed to update settings.\n"},
    {"getMonitoringSettings", {"show-monitoring-settings"}, "", "Failed to get monitoring settings\n"},
    {"setMonitoringSettings",
     {"update-monitoring-settings", "-e"},
     "",
     "Failed to update monitoring settings\n"},
    {"getServerList", {"list-servers"}, "", "Failed to get server list!\n"},
    {"addServer", {"add-server", "-a/x"}, "", ""},
    {"changeServer", {"update-server", "-M1"}, "", ""},
    {"removeServer", {"remove-server", "-M1"}, "", ""},
    {"getServiceStatus",
     {"service-status"}, // a status that can't be had is shown as the fall-back
     "Last update: \nLast result: All is well\nCurrent status: Idle\n",
     "",
     0},
    {"isVKClientActive", {"update"}, "", "Failed to start update\n"},
    {"enterMonitorMode", {"update"}, "", ""},
    {"isVKClientActive", {"update", "--no-wait"}, "", "Failed to start update\n"},
};

} // namespace

TEST_P(InterruptTest, EndsTheCommandByItsOwnFailurePath)
{
    const InterruptCase& tCase = GetParam();
    mService.ignore(tCase.mSilent);
    const std::unique_ptr<Program> tProgram = mInstallation.start(tCase.mArguments);
    ASSERT_TRUE(mService.waitForCall(tCase.mSilent));
    QElapsedTimer tTimer;
    tTimer.start();
    tProgram->signal(SIGINT);
    const Program::Result tResult = tProgram->wait();
    EXPECT_LT(tTimer.elapsed(), sSecondMs);
    expectResult(tResult, tCase.mOut,
                 QByteArray(tCase.mErr).replace("TMP", mInstallation.path("tmp").toUtf8()), tCase.mStatus);
    EXPECT_TRUE(mInstallation.log().contains("Current operation was canceled"));
}

INSTANTIATE_TEST_SUITE_P(Commands, InterruptTest, testing::ValuesIn(sInterrupts),
                         [](const testing::TestParamInfo<InterruptCase>& pInfo) {
                             return std::to_string(pInfo.index) + "_" + pInfo.param.mSilent;
                         });

// The first interrupt warns, since an update may be under way. The second one gets its abort through to a
// service that is slow, and ends a trigger that hangs.
TEST_F(ClientTest, TheSecondInterruptEndsATriggerThatHangs)
{
    const QList<QByteArray> tCommands[] = {{"update"}, {"update", "--no-wait"}};
    for (const QList<QByteArray>& tCommand : tCommands) {
        for (const bool tSlow : {true, false}) {
            SCOPED_TRACE((tCommand.join(' ') + (tSlow ? " slow" : " silent")).toStdString());
            const ScriptedService::Script tHangs = [tSlow](ScriptedService& pService) {
                pService.onCall("triggerUpdate", [&pService, tSlow](Peer& pTrigger, const QJsonObject&) {
                    const QByteArray tRefusal = pTrigger.answerLine("false");
                    pService.ignore("hello");
                    if (tSlow) {
                        pService.onCall("hello", [](Peer& pPeer, const QJsonObject&) {
                            std::this_thread::sleep_for(std::chrono::milliseconds(600));
                            pPeer.reply("true");
                        });
                        pService.onCall("abortUpdate",
                                        [&pTrigger, tRefusal](Peer& pPeer, const QJsonObject&) {
                                            pPeer.reply("true");
                                            pTrigger.send(tRefusal);
                                        });
                    }
                });
            };
            const ScriptedService tService(mInstallation.socketPath(), tHangs);
            const std::unique_ptr<Program> tProgram = mInstallation.start(tCommand);
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
}

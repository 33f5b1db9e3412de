#include "ClientTest.h"

#include <csignal>

using Peer = ScriptedService::Peer;

namespace {

QByteArray package(const char* pName, const char* pState, const QByteArray& pDamage = {}, int pCount = 0)
{
    return QByteArray(
               R"({"name":"NAME","version":"1.0.0.0","folder":"packages/NAME/1","indexed":true,"state":"STATE",)"
               R"("checked":"2026-03-07T02:15:00","files":2,"bytes":1500,"damageCount":COUNT,"damage":[DAMAGE]})")
        .replace("NAME", pName)
        .replace("STATE", pState)
        .replace("COUNT", QByteArray::number(pCount))
        .replace("DAMAGE", pDamage);
}

QByteArray packages(const QByteArrayList& pPackages)
{
    return R"({"packages":[)" + pPackages.join(',') + "]}";
}

QByteArray verification(bool pRunning, const char* pFailure = "")
{
    return QByteArray(
               R"({"running":RUNNING,"waiting":false,"package":"a","bytesDone":3,"bytesTotal":12,)"
               R"("began":"2026-03-07T02:14:00","ended":"2026-03-07T02:15:00","damaged":0,"unproven":0,)"
               R"("failure":"FAILURE"})")
        .replace("RUNNING", pRunning ? "true" : "false")
        .replace("FAILURE", pFailure);
}

const QByteArray sSound = packages({package("a", "sound")});
const QByteArray sUnproven = packages({package("a", "sound"), package("b", "unproven")});
const QByteArray sDamaged = packages({package(
    "a", "damaged", R"({"path":"bin/\u001b[2Jx","problem":"content"},{"path":"","problem":"mode"})", 9)});

// A service that knows these packages, verifies them when it is asked to, and repairs them by an update.
Script machine(const QByteArray& pPackages, const char* pFailure = "", const QByteArray& pRepaired = sSound)
{
    return [=](ScriptedService& pService) {
        pService.answer("getPackages", pPackages);
        pService.answer("getVerification", verification(false, pFailure));
        pService.answer("getLeftOut", R"({"packages":[]})");
        pService.onCall("startVerification", [&pService](Peer& pPeer, const QJsonObject&) {
            pPeer.reply("true");
            for (const bool tRunning : {false, true, false}) { // the first tells of an earlier one
                pService.sendEvent("verificationChanged", verification(tRunning));
            }
        });
        pService.onCall("triggerUpdate", [&pService, pRepaired](Peer& pPeer, const QJsonObject&) {
            pPeer.reply("true");
            pService.answer("getPackages", pRepaired);
            pService.sendEvent("serviceStatusChanged", R"({"status":2})");
            pService.sendEvent("serviceStatusChanged", R"({"status":0})");
        });
        pService.answer("getLastServiceResult", pFailure[0] == '\0' ? "1" : "2");
        pService.answer("getLastServiceResultStr", R"("Done.")");
    };
}

const QByteArray sDamageText = "Damaged: a 1.0.0.0 in packages/a/1\n  bin/ [2Jx: has other content\n"
                               "  .: has other permissions or another owner\n  and 7 more\n";

} // namespace

TEST(CtlTest, TellsByTextAndStatusWhatTheServiceKnows)
{
    const struct
    {
        const char* mName;
        Words mArguments;
        Script mScript;
        QByteArray mOut;
        QByteArray mErr;
        int mStatus;
    } tCases[] = {
        {"status", "status", machine(sUnproven),
         "Last verification: 2026-03-07 02:15:00\nInstalled packages: 2\n  a 1.0.0.0: sound\n"
         "  b 1.0.0.0: can't be proven\n",
         "", 0},
        {"status of damage", "status", machine(sDamaged),
         "Last verification: 2026-03-07 02:15:00\nInstalled packages: 1\n  a 1.0.0.0: damaged\n" +
             sDamageText,
         "", 2},
        {"verify", "verify", machine(sSound),
         "Verified: 2 files, 1.5 kB; packages: 1\nAll files are as they were published.\n", "", 0},
        {"verify without index", "verify", machine(sUnproven),
         "Verified: 4 files, 3.0 kB; packages: 2\n"
         "These packages have no index and can't be proven: b 1.0.0.0\n",
         "", 3},
        {"verify damage", "verify", machine(sDamaged),
         "Verified: 2 files, 1.5 kB; packages: 1\n" + sDamageText +
             "The next update or \"vkctl repair\" installs the damaged packages again.\n",
         "", 2},
        {"verify cut short", "verify", machine(sSound, "It was stopped."), "",
         "The verification did not come to its end: It was stopped.\n", 1},
        {"verify refused", "verify", refuses("startVerification"), "", "Failed to start the verification.\n",
         1},
        {"no such method", "status", refuses("getPackages"), "", "Failed to get the installed packages.\n",
         1},
        {"nothing to repair", "repair", machine(sSound),
         "No package is known to be damaged; \"vkctl verify\" looks for damage.\n", "", 0},
        {"repair", "repair", machine(sDamaged),
         "Update finished: Done.\nThe damaged packages were installed again.\n", "", 0},
        {"repair in vain", "repair", machine(sDamaged, "", sDamaged),
         "Update finished: Done.\n" + sDamageText, "", 2},
        {"repair fails", "repair", machine(sDamaged, "x"), "", "The packages were not repaired: Done.\n", 1},
        {"lost", "verify",
         [](ScriptedService& pService) {
             pService.onCall("startVerification", [&pService](Peer& pPeer, const QJsonObject&) {
                 pPeer.reply("true");
                 pService.hangUp(true);
             });
         },
         "", "Lost connection to the service\n", 1},
        {"hold", "hold a 1.2 --until=2199-01-02",
         [](ScriptedService& pService) {
             pService.onCall("setHold", [&pService](Peer& pPeer, const QJsonObject& pParams) {
                 pService.answer("getHolds", R"({"holds":[)" +
                                                 QJsonDocument(pParams).toJson(QJsonDocument::Compact) +
                                                 "]}");
                 pPeer.reply("true");
             });
         },
         "Held packages: 1\n  a 1.2 until 2199-01-02 00:00:00\n", "", 0},
        {"hold what is no version", "hold a 1.x", {}, "", "Not the beginning of a version: 1.x\n", 1},
        {"hold nothing", "hold", {}, "", "The command needs: NAME [VERSION-PREFIX]\n", 1},
        {"an option of another command", "holds --until=2199-01-01", {}, "", "Unknown option: 'until'\n", 1},
        {"status of what was left out", "status",
         [](ScriptedService& pService) {
             machine(sSound)(pService);
             pService.answer("getLeftOut",
                             R"({"packages":[{"name":"a\u001b","version":"2","reason":"requirement",)"
                             R"("required":"b","date":null},{"name":"c","version":"1","reason":"phase",)"
                             R"("required":null,"date":"2026-03-07T02:15:00"}]})");
         },
         "Last verification: 2026-03-07 02:15:00\nInstalled packages: 1\n  a 1.0.0.0: sound\n"
         "Left out by the last update: 2\n  a 2: requires b, which is left out\n"
         "  c 1: waits for its phase until 2026-03-07 02:15:00\n",
         "", 0},
        {"unknown command", "prove", {}, "", "Unknown command: prove\n", 1},
        {"unknown option", "verify --jsn", {}, "", "Unknown option: 'jsn'\n", 1},
        {"too many", "verify repair", {}, "", "Unhandled argument 'repair'\n", 1},
    };
    for (const auto& tCase : tCases) {
        SCOPED_TRACE(tCase.mName);
        const Installation tInstallation({q("vkctl")});
        const ScriptedService tService(tInstallation.socketPath(), tCase.mScript);
        expectResult(tInstallation.start(tCase.mArguments, Program::Console::Pipes, "vkctl")->wait(),
                     tCase.mOut, tCase.mErr, tCase.mStatus);
    }
}

TEST(CtlTest, WritesOneJsonObject)
{
    const std::tuple<const char*, const char*, int> tCases[] = {
        {"status", "damaged", 2}, {"verify", "damaged", 2}, {"repair", "sound", 0}};
    for (const auto& [tCommand, tResult, tStatus] : tCases) {
        SCOPED_TRACE(tCommand);
        const Installation tInstallation({q("vkctl")});
        const ScriptedService tService(tInstallation.socketPath(), machine(sDamaged));
        const auto tEnded =
            tInstallation.start({tCommand, "--json"}, Program::Console::Terminal, "vkctl")->wait();
        EXPECT_EQ(tEnded.mStatus, tStatus);
        EXPECT_EQ(tEnded.mOut.count('\n'), 1) << tEnded.mOut;
        EXPECT_FALSE(tEnded.mOut.contains('\x1b')) << tEnded.mOut;
        const QJsonObject tJson = QJsonDocument::fromJson(tEnded.mOut).object();
        EXPECT_EQ(tJson.value(q("result")).toString(), q(tResult));
        EXPECT_EQ(tJson.value(q("packages")).toArray().size(), 1);
        EXPECT_EQ(tJson.value(q("verification")).toObject().value(q("bytesTotal")).toInt(), 12);
        EXPECT_EQ(tJson.value(q("update")).toObject().value(q("code")).toInt(), tStatus == 0 ? 1 : 0);
    }
}

TEST(CtlTest, AnInterruptEndsTheFollowingAndSaysSo)
{
    const Installation tInstallation({q("vkctl")});
    const ScriptedService tService(tInstallation.socketPath(), [](ScriptedService& pService) {
        pService.onCall("startVerification", [&pService](Peer& pPeer, const QJsonObject&) {
            pPeer.reply("true");
            pService.sendEvent("verificationChanged", verification(true));
        });
    });
    const auto tProgram = tInstallation.start({"verify"}, Program::Console::Terminal, "vkctl");
    ASSERT_TRUE(tProgram->waitForOutput("Verifying a (25% complete)"));
    tProgram->signal(SIGINT);
    const Program::Result tResult = tProgram->wait();
    EXPECT_EQ(tResult.mStatus, 4);
    EXPECT_TRUE(
        tResult.mOut.endsWith("\x1b[1G\x1b[KInterrupted. The verification continues in the service.\n"))
        << tResult.mOut;
    EXPECT_EQ(tService.calls().filter(q("stopVerification")).size(), 0);
}

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
const QString sOddPath = q("bin/a\nb \u009b2J\x7f\u202e\u2028\u200b\U000e0001 \u00e4\U0001f600\\u0041\"");

constexpr auto sOverview =
    R"({"status":2,"activity":5,"version":"1.1","code":2,"text":"No \u001b[1mserver.","ended":"2026-03-07T02:15:00",)"
    R"("lastSuccess":null,"nextCheck":"2026-03-08T02:15:00","metadataExpires":"2026-03-07T01:00:00"})";
constexpr auto sHistory =
    R"({"runs":[{"date":"2026-03-07T02:15:00","code":1,"text":"Fine.","packages":[)"
    R"({"name":"a","title":"A","version":"1.1","previous":"1.0","status":"ok","report":"r"},)"
    R"({"name":"b","title":null,"version":"2.0","previous":null,"status":"error","report":"Bad\u001bhash."}]},)"
    R"({"date":"2026-03-06T02:15:00","packages":[)"
    R"({"name":"a","title":"A","version":"1.0","previous":"1.0","status":"ok","report":null}]}]})";
// With what an operator asks for.
Script overseen(const QByteArray& pPackages)
{
    return [pPackages](ScriptedService& pService) {
        pService.answer("getPackages", pPackages);
        pService.answer("getVerification", R"({"running":false,"waiting":false,"package":"","bytesDone":0,)"
                                           R"("bytesTotal":0,"began":null,"ended":null,"damaged":0,)"
                                           R"("unproven":0,"failure":null})");
        pService.answer("getOverview", sOverview);
        pService.answer("getLeftOut", R"({"packages":[]})");
        pService.answer("getHistory", sHistory);
    };
}

// A service that knows these packages, verifies them when it is asked to, and repairs them by an update.
Script machine(const QByteArray& pPackages, const char* pFailure = "", const QByteArray& pRepaired = sSound)
{
    return [=](ScriptedService& pService) {
        refuses("getOverview")(pService); // one of version 1.0 does not know it
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
        {"status of updates", "status", overseen(sSound),
         "Last update: 2026-03-07 02:15:00\nResult: No [1mserver.\nLast success: never\n"
         "Next check: 2026-03-08 02:15:00\nActivity: installing\n"
         "Trusted metadata is valid until: 2026-03-07 01:00:00, which is over\n"
         "Last verification: never\nInstalled packages: 1\n  a 1.0.0.0: sound\n",
         "", 0},
        {"history", "history", overseen(sSound),
         "2026-03-07 02:15:00: Fine.\n  a 1.0 -> 1.1: installed\n  b 2.0: not installed. Bad hash.\n"
         "2026-03-06 02:15:00\n  a 1.0: installed\n",
         "", 0},
        {"no history", "history", refuses("getHistory"), "", "Failed to get the installed updates.\n", 1},
        {"packages, damaged, of a service of 1.0", "packages", machine(sDamaged),
         "NAME  VERSION  LANGUAGE  SIZE  INSTALLED  STATE    TITLE\n"
         "a     1.0.0.0  -         -     -          damaged\n",
         "", 0},
        {"packages", "packages",
         overseen(QByteArray(sSound).replace("\"files\"",
                                             "\"title\":\"A\\u001b\",\"language\":\"de\",\"size\":2500000,"
                                             "\"installed\":\"2026-03-07T02:15:00\",\"files\"")),
         "NAME  VERSION  LANGUAGE  SIZE    INSTALLED            STATE  TITLE\n"
         "a     1.0.0.0  de        2.5 MB  2026-03-07 02:15:00  sound  A\n",
         "", 0},
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
        {"verify refused", "verify", refuses("startVerification"), "",
         "The verification can't be started: no\n", 1},
        {"hold refused", "hold a", refuses("setHold"), "", "The package can't be held: no\n", 1},
        {"unhold refused", "unhold a", refuses("removeHold"), "", "The hold can't be ended: no\n", 1},
        {"channel refused", "channel b", refuses("setChannel"), "", "The channel can't be set: no\n", 1},
        {"rollback refused", "rollback",
         [](ScriptedService& pService) {
             pService.answer("getRefusals", R"({"refused":[]})");
             refuses("rollBack")(pService);
         },
         "", "The packages were not changed: no\n", 1},
        {"accept refused", "accept a",
         [](ScriptedService& pService) {
             pService.onCall("acceptPackage", [](Peer& pPeer, const QJsonObject&) {
                 pPeer.send(R"({"jsonrpc":"2.0","id":)" + pPeer.callId() +
                            R"(,"error":{"code":1,"message":"An\u001b\nupdate."}})" + '\n');
             });
         },
         "", "The package was not accepted: An update.\n", 1},
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
         "Left out by the last update: 2\n  a 2: requires b, which is left out\n"
         "  c 1: waits for its phase until 2026-03-07 02:15:00\n"
         "Last verification: 2026-03-07 02:15:00\nInstalled packages: 1\n  a 1.0.0.0: sound\n",
         "", 0},
        {"unknown command", "prove", {}, "", "Unknown command: prove\n", 1},
        {"command from elsewhere", "a\x1b[2J\xe2\x80\xae", {}, "", "Unknown command: a [2J\n", 1},
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

// A script finds the file by its path, and a terminal that shows the JSON is not controlled by it.
TEST(CtlTest, WritesExactPathsIntoPlainJson)
{
    const QJsonObject tDamage{
        {q("path"), q("bin/a b")}, {q("exactPath"), sOddPath}, {q("problem"), q("extra")}};
    const QByteArray tPackages =
        packages({package("a", "damaged", QJsonDocument(tDamage).toJson(QJsonDocument::Compact), 1)});
    const Installation tInstallation({q("vkctl")});
    const ScriptedService tService(tInstallation.socketPath(), machine(tPackages));
    const QByteArray tOut =
        tInstallation.start({"status", "--json"}, Program::Console::Pipes, "vkctl")->wait().mOut;
    EXPECT_TRUE(tOut.contains(
        "bin/a\\nb \\u009b2J\\u007f\\u202e\\u2028\\u200b\\udb40\\udc01 \xc3\xa4\xf0\x9f\x98\x80"))
        << tOut;
    EXPECT_TRUE(
        std::none_of(tOut.begin(), tOut.end() - 1, [](char pChar) { return pChar >= 0 && pChar < ' '; }));
    const QJsonObject tPackage = QJsonDocument::fromJson(tOut)[q("packages")][0].toObject();
    EXPECT_EQ(tPackage[q("damage")][0],
              QJsonValue(QJsonObject{{q("path"), sOddPath}, {q("problem"), q("extra")}}));
    EXPECT_TRUE(tInstallation.start({"status"}, Program::Console::Pipes, "vkctl")
                    ->wait()
                    .mOut.contains("  bin/a b: does not belong to the package\n"));
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

#include "Machine.h"
#include "RawPeer.h"
#include "Test.h"

// What a machine takes of what is offered: holds, channels, halts and phases, with all real programs.

namespace {

class ChoicesTest : public testing::Test
{
protected:
    // Part of what it prints, which ends with the status pStatus.
    void vkctl(const QList<QByteArray>& pArguments, const QByteArray& pPart, int pStatus = 0,
               int pLine = __builtin_LINE()) const
    {
        const auto tResult =
            mMachine.installation().start(pArguments, Program::Console::Pipes, "vkctl")->wait();
        EXPECT_EQ(tResult.mStatus, pStatus) << tResult.mErr << "line " << pLine;
        EXPECT_TRUE((tResult.mOut + tResult.mErr).contains(pPart)) << tResult.mOut << tResult.mErr << pLine;
    }
    void update(const QByteArray& pResult, const char* pVersion, int pLine = __builtin_LINE()) const
    {
        const auto tResult = mMachine.rkm({"update"});
        EXPECT_EQ(tResult.mStatus, 0) << pLine;
        EXPECT_TRUE(tResult.mOut.endsWith("Update finished: " + pResult + '\n')) << tResult.mOut << pLine;
        EXPECT_EQ(mMachine.installedVersion("viewer"), q(pVersion)) << pLine;
    }
    void offer(const char* pVersion, const QList<QByteArray>& pOptions = {},
               const QList<QByteArray>& pPublish = {})
    {
        mMachine.add("viewer", pVersion, pOptions);
        mMachine.publish(pPublish);
    }

    mutable Machine mMachine;
};

} // namespace

TEST_F(ChoicesTest, AMachineTakesWhatItsAdministratorAndItsPublisherLet)
{
    offer("1.0");
    update("1 package was updated.", "1.0");
    offer("1.1");
    offer("2.0");
    vkctl({"hold", "viewer", "1.1", "--until=2199-01-01"}, "  viewer 1.1 until 2199-01-01 00:00:00\n");
    update("1 package was updated. 1 package is held.", "1.1");
    update("No updates are available; 1 package is held.", "1.1");
    vkctl({"status"}, "Left out by the last update: 1\n  viewer 2.0.0.0: held until 2199-01-01 00:00:00\n");
    vkctl({"unhold", "viewer"}, "Held packages: 0\n");
    vkctl({"unhold", "viewer"}, "Not held: viewer\n", 1);
    vkctl({"hold", "viewer", "--until=2001-01-01"}, "Not a date in the future: 2001-01-01\n", 1);
    vkctl({"hold", "../viewer"}, "The package can't be held: A package's name has at most 100 of", 1);

    mMachine.installation().publish({"halt", "viewer", "2.0"});
    update("No updates are available; 1 package was stopped by its publisher.", "1.1");
    mMachine.installation().publish({"halt", "viewer", "--lift"});
    update("1 package was updated.", "2.0");

    offer("3.0", {"--channel", "beta"});
    update("All packages are up to date.", "2.0");
    vkctl({"channel", "beta"}, "Channel: beta\n");
    update("1 package was updated.", "3.0");
    vkctl({"channel", "stable", "--json"}, "{\"channel\":\"stable\"}\n");

    offer("4.0", {}, {"--phase-days", "300"});
    const auto tService = mMachine.startService();
    RawPeer tPeer(mMachine.installation().socketPath());
    RawPeer tMonitor(mMachine.installation().socketPath());
    ASSERT_EQ(tMonitor.call("enterMonitorMode"), true);
    EXPECT_EQ(tPeer.call("triggerUpdate", R"({"manual":false})"), true);
    ASSERT_TRUE(tMonitor.waitForEvent("serviceStatusChanged", "status", 0));
    vkctl({"status"}, "  viewer 4.0.0.0: waits for its phase until 2");
    mMachine.installation().publish({"halt", "viewer", "4.0"});
    update("No updates are available; 1 package was stopped by its publisher.", "3.0");
    mMachine.installation().publish({"halt", "viewer", "--lift"});
    update("1 package was updated.", "4.0"); // by hand
}

TEST_F(ChoicesTest, AMachineTakesFixesAloneAndTellsWhatTheyAreAbout)
{
    mMachine.installation().writeFile(q("advisory"), "CVE-2026-1: reads\nbehind its end\n");
    const QByteArray tAdvisory = "advisory=" + mMachine.path("advisory").toUtf8();
    const auto tSet = [this](const QByteArray& pValue) {
        return mMachine.rkm({"update-settings", "--config-var=update.only:" + pValue}).mStatus;
    };
    ASSERT_EQ(tSet("security"), 0);
    EXPECT_EQ(tSet("fixes"), 1);
    mMachine.add("charts", "1.0");
    offer("1.0");
    const auto tFirst = mMachine.rkm({"update"});
    EXPECT_TRUE(tFirst.mOut.endsWith("Update finished: 2 packages were updated.\n")) << "a new machine";

    mMachine.add("charts", "1.1");
    mMachine.add("tool", "1.0", {"--security"});
    offer("1.1");
    update("No updates are available; 3 packages are no security updates.", "1.0");
    vkctl({"status"}, "Updates install: security updates alone\n");
    vkctl({"status"}, "  viewer 1.1.0.0: no security update\n");

    // The version with the fix is gone before the machine sees it.
    offer("1.2", {"--security", "--attach", tAdvisory});
    mMachine.installation().publish({"remove", "viewer", "--version", "1.2"});
    mMachine.add("library", "1.0");
    offer("1.3", {"--requires", "library", "--report", "en=News"});
    vkctl({"hold", "viewer"}, "viewer");
    update("No updates are available; 4 packages are held or are no security updates.", "1.0");
    vkctl({"status"}, "Security updates that are not installed: viewer 1.3.0.0\n");
    vkctl({"status"}, "  viewer 1.3.0.0: a security update, held\n");
    vkctl({"packages"}, "not verified yet, lacks the security update 1.3.0.0");
    vkctl({"unhold", "viewer"}, "Held packages: 0\n");
    update("2 packages were updated. 2 packages are no security updates.", "1.3");
    EXPECT_EQ(mMachine.installedVersion("library"), q("1.0"));
    EXPECT_EQ(mMachine.installedVersion("charts"), q("1.0"));
    EXPECT_FALSE(mMachine.installation()
                     .start({"status"}, Program::Console::Pipes, "vkctl")
                     ->wait()
                     .mOut.contains("Security updates"));
    const auto tLog = mMachine.rkm({"install-log", "--all"});
    EXPECT_TRUE(tLog.mOut.contains("Install report: News\nAdvisory: CVE-2026-1: reads\nbehind its end\n"))
        << tLog.mOut;
    vkctl({"history", "--json"}, "\"report\":\"News Advisory: CVE-2026-1: reads behind its end\"");

    // Who goes back behind a fix is told at once what the machine lacks.
    vkctl({"rollback"}, "Generation 1 is in use.");
    vkctl({"status"}, "Security updates that are not installed: viewer 1.3.0.0\n");
    vkctl({"status"}, "  viewer 1.3.0.0: a security update, refused\n");
    vkctl({"accept", "viewer"}, "may be installed again");
    vkctl({"accept", "library"}, "may be installed again");
    update("2 packages were updated. 2 packages are no security updates.", "1.3");

    offer("1.4");
    update("No updates are available; 3 packages are no security updates.", "1.3");
    ASSERT_EQ(tSet("all"), 0);
    update("3 packages were updated.", "1.4");
}

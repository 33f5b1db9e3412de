#include "Machine.h"
#include "Test.h"

#include <QtCore/QProcess>

// A complete update: vkpublish, rkm, the worker that it starts, and the result on the disk.

TEST(Update, InstallsThenFindsNothingThenTakesTheNewerVersion)
{
    Machine tMachine;
    tMachine.add("viewer", "1.0.0", {"--title", "en=Viewer", "--requires", "charts"});
    tMachine.add("charts", "7.1", {"--kind", "data", "--title", "en=Charts"});
    tMachine.publish();

    Program::Result tResult = tMachine.rkm({"update"});
    EXPECT_EQ(Machine::afterProgress(tResult.mOut), "Update finished: 2 packages were updated.\n");
    EXPECT_EQ(tResult.mErr, "");
    EXPECT_EQ(tResult.mStatus, 0);
    EXPECT_EQ(tMachine.installedVersion("viewer"), q("1.0.0"));
    EXPECT_EQ(tMachine.installedVersion("charts"), q("7.1"));

    tResult = tMachine.rkm({"update", "--quiet"});
    EXPECT_TRUE(tResult.mOut.startsWith("\x1b[1G\x1b[KUpdate started")) << tResult.mOut;
    EXPECT_EQ(Machine::afterProgress(tResult.mOut), "Update finished: All packages are up to date.\n");
    EXPECT_EQ(tResult.mStatus, 0);

    tMachine.add("viewer", "1.2.0",
                 {"--title", "en=Viewer", "--requires", "charts", "--report", "en=Faster."});
    tMachine.publish();
    tResult = tMachine.rkm({"update"});
    EXPECT_EQ(Machine::afterProgress(tResult.mOut), "Update finished: 1 package was updated.\n");
    EXPECT_EQ(tMachine.installedVersion("viewer"), q("1.2.0"));

    const QByteArray tLog = tMachine.rkm({"install-log", "--interval=1h"}).mOut;
    EXPECT_EQ(tLog.count("Name: Viewer\n"), 2) << tLog;
    EXPECT_EQ(tLog.count("Name: Charts\n"), 0) << "it came along with the viewer";
    EXPECT_TRUE(tLog.contains("Status: OK\nInstall report: Faster.\n\n")) << tLog;
    EXPECT_EQ(tMachine.rkm({"install-log", "-a"}).mOut.count("Name: Charts\n"), 1);
}

TEST(Update, TakesWhatAMirrorHas)
{
    Machine tMachine;
    const QByteArray tRepository = tMachine.path("repository").toUtf8();
    const QByteArray tMirror = tMachine.path("mirror").toUtf8();
    for (const char* tVersion : {"1.0.0", "1.1.0"}) {
        tMachine.add("viewer", tVersion);
        tMachine.publish();
        const QList<QByteArray> tWords{"mirror",  tRepository, tMirror,
                                       "--prune", "--root",    tRepository + "/metadata/1.root.json"};
        const Program::Result tResult =
            tMachine.installation().start(tWords, Program::Console::Pipes, q("vkpublish"))->wait();
        EXPECT_EQ(tResult.mStatus, 0) << tResult.mErr;
        ASSERT_EQ(tMachine.rkm({"update-settings", "--server=" + tMirror}).mStatus, 0);
        QDir().rename(q(tRepository), q(tRepository + ".away"));
        EXPECT_EQ(Machine::afterProgress(tMachine.rkm({"update"}).mOut),
                  "Update finished: 1 package was updated.\n");
        QDir().rename(q(tRepository + ".away"), q(tRepository));
        EXPECT_EQ(tMachine.installedVersion("viewer"), q(tVersion));
    }
}

TEST(Update, WaitsForTheApplicationAndObeysTheSecondCtrlC)
{
    Machine tMachine;
    for (const char* tVersion : {"1.0.0", "2.0.0"}) {
        const QString tProgram = q("sources/viewer-%1/bin/viewer").arg(q(tVersion));
        tMachine.installation().writeFile(tProgram, readFile(q("/bin/sleep")));
        QFile::setPermissions(tMachine.path(tProgram),
                              QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
        tMachine.add("viewer", tVersion, {"--executable", "bin/viewer", "--title", "en=Viewer"});
        tMachine.publish();
        if (q(tVersion) == q("1.0.0")) {
            ASSERT_EQ(tMachine.rkm({"update"}).mStatus, 0);
        }
    }
    QProcess tApplication;
    tApplication.start(tMachine.path("installed/current/viewer/bin/viewer"), {q("60")});
    ASSERT_TRUE(tApplication.waitForStarted());

    auto tUpdate = tMachine.installation().start({"update"}, Program::Console::Terminal);
    ASSERT_TRUE(tUpdate->waitForOutput("Waiting for Tavo applications to be closed.")) << tUpdate->output();
    tUpdate->signal(SIGINT);
    ASSERT_TRUE(tUpdate->waitForOutput("please press Ctrl-C again."));
    tUpdate->signal(SIGINT);
    ASSERT_TRUE(tUpdate->waitForOutput("Aborting update ..."));
    EXPECT_EQ(tUpdate->wait().mStatus, 104);
    EXPECT_EQ(tMachine.installedVersion("viewer"), q("1.0.0"));

    tApplication.kill();
    tApplication.waitForFinished();
    EXPECT_EQ(tMachine.rkm({"update"}).mStatus, 0);
    EXPECT_EQ(tMachine.installedVersion("viewer"), q("2.0.0"));
}

// Each starts a worker, or finds that of another command.
TEST(Workers, CommandsAtOnceDoNotEndEachOthersWorkers)
{
    Machine tMachine;
    std::vector<std::unique_ptr<Program>> tCommands;
    for (int i = 0; i < 24; ++i) {
        tCommands.push_back(tMachine.installation().start({"show-settings"}));
        if (i % 6 == 5) {
            for (const auto& tCommand : std::exchange(tCommands, {})) {
                const Program::Result tResult = tCommand->wait();
                EXPECT_EQ(tResult.mStatus, 0) << tResult.mErr;
            }
        }
    }
}

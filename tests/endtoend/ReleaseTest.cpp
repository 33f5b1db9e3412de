#include "Machine.h"
#include "RawPeer.h"
#include "Test.h"

#include <unistd.h>

#include <csignal>

// Releases that prove themselves or go back: vkctl, the real service and a publisher.

namespace {

constexpr int sStatusError = 4;
constexpr int sCheckFailed = 11;

class ReleaseTest : public testing::Test
{
protected:
    void publish(const char* pVersion, const QByteArray& pCheck)
    {
        const QString tCheck = q("sources/viewer-%1/bin/check").arg(q(pVersion));
        mMachine.installation().writeFile(tCheck, "#!/bin/sh\n" + pCheck + '\n');
        QFile::setPermissions(mMachine.path(tCheck), QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
        mMachine.add("viewer", pVersion, {"--check", "bin/check", "--title", "en=Viewer"});
        mMachine.publish();
    }
    void expectVkctl(const QList<QByteArray>& pArguments, int pStatus, const QByteArray& pPart,
                     int pLine = __builtin_LINE()) const
    {
        const Program::Result tResult =
            mMachine.installation().start(pArguments, Program::Console::Pipes, "vkctl")->wait();
        EXPECT_EQ(tResult.mStatus, pStatus) << tResult.mErr << tResult.mOut << "line " << pLine;
        EXPECT_TRUE((tResult.mOut + tResult.mErr).contains(pPart))
            << tResult.mOut << tResult.mErr << "line " << pLine;
    }
    QString version() const { return mMachine.installedVersion("viewer"); }
    QByteArray log() const { return mMachine.installation().readFile("log/vkservice.log"); }

    mutable Machine mMachine;
};

} // namespace

TEST_F(ReleaseTest, GoesBackByItselfAndByHand)
{
    publish("1.0", "test \"$VK_PACKAGE $VK_VERSION\" = 'viewer 1.0.0.0' && test -x bin/check");
    EXPECT_EQ(mMachine.rkm({"update"}).mStatus, 0) << log();
    publish("2.0", "echo it is broken; exit 7");
    const Program::Result tResult = mMachine.rkm({"update"});
    EXPECT_EQ(tResult.mStatus, 111);
    EXPECT_TRUE(
        tResult.mOut.contains("Update finished: The new packages failed their check; the previous ones "
                              "are in use again. viewer 2.0.0.0: bin/check ended with status 7."))
        << tResult.mOut;
    EXPECT_EQ(version(), q("1.0"));
    EXPECT_TRUE(log().contains("bin/check: it is broken"));
    expectVkctl({"status"}, 0, "Left out by the last update: 1\n  viewer 2.0.0.0: refused\n");
    EXPECT_TRUE(mMachine.rkm({"install-log"}).mOut.contains("bin/check ended with status 7."));
    EXPECT_TRUE(mMachine.rkm({"update"}).mOut.contains("1 package is refused."));
    expectVkctl({"refused"}, 0, "viewer 2.0.0.0");
    expectVkctl({"accept", "nothing"}, 1, "No version of the package nothing is refused.");
    expectVkctl({"accept", "viewer"}, 0, "may be installed again");
    EXPECT_EQ(mMachine.rkm({"update"}).mStatus, 111) << "it is tried again";

    publish("3.0", "exit 0");
    EXPECT_EQ(mMachine.rkm({"update"}).mStatus, 0);
    EXPECT_EQ(version(), q("3.0"));
    expectVkctl({"generations"}, 0, "2 (current)");
    expectVkctl({"rollback", "7"}, 1, "The generation 7 is not there to go back to.");
    expectVkctl({"rollback", "x"}, 1, "Not a number of a generation: x");
    {
        const auto tService = mMachine.startService();
        RawPeer tWizard(mMachine.installation().socketPath());
        tWizard.call("hello", {{q("protocol"), 1}, {q("client"), q("wizard")}, {q("version"), q("1")}});
        expectVkctl({"rollback"}, 1, "while the wizard is active");
    }
    expectVkctl({"rollback"}, 0, "Not installed again until \"vkctl accept viewer\": viewer 3.0.0.0");
    EXPECT_EQ(version(), q("1.0"));
    EXPECT_EQ(mMachine.rkm({"update"}).mStatus, 0);
    EXPECT_EQ(version(), q("1.0"));
    expectVkctl({"rollback"}, 1, "There is no generation to go back to.");
}

// The service is killed in the middle of a check: the next one checks again, by itself.
TEST_F(ReleaseTest, TheNextServiceChecksAgain)
{
    publish("1.0", "exit 0");
    EXPECT_EQ(mMachine.rkm({"update"}).mStatus, 0);
    const QByteArray tMark = QFile::encodeName(mMachine.path("mark"));
    mMachine.installation().writeFile("etc/vk/check.d/mark", "#!/bin/sh\ntest -e " + tMark +
                                                                 " && exit 1\ntouch " + tMark +
                                                                 "\nsleep 600\n");
    QFile::setPermissions(mMachine.path("etc/vk/check.d/mark"),
                          QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
    publish("2.0", "exit 0");
    auto tService = mMachine.startService();
    EXPECT_EQ(mMachine.rkm({"update", "--no-wait"}).mStatus, 0);
    for (int i = 0; i < 2000 && !QFile::exists(mMachine.path("mark")); ++i) {
        ::usleep(10 * 1000);
    }
    tService->signal(SIGKILL);
    tService->wait();
    EXPECT_EQ(version(), q("2.0"));
    EXPECT_EQ(mMachine.rkm({"service-status"}).mStatus, 0);
    EXPECT_EQ(version(), q("2.0")) << "a worker for another command leaves it alone";
    tService = mMachine.installation().start({"-e"}, Program::Console::Pipes, "vkservice");
    RawPeer tPeer(mMachine.installation().socketPath());
    for (int i = 0; i < 2000 && tPeer.call("getServiceStatus") != sStatusError; ++i) {
        ::usleep(10 * 1000);
    }
    EXPECT_EQ(version(), q("1.0"));
    EXPECT_EQ(tPeer.call("getLastServiceResult", {{q("thisSession"), true}}), sCheckFailed);
}

TEST_F(ReleaseTest, TheWayBackByHandShowsAtOnceAndIsNoFailedCheck)
{
    const QString tFigures = mMachine.path("vk.prom");
    for (const char* tVersion : {"1.0", "2.0"}) {
        publish(tVersion, "exit 0");
        EXPECT_EQ(mMachine.rkm({"update"}).mStatus, 0);
    }
    EXPECT_EQ(
        mMachine.rkm({"update-settings", "--config-var=status.metricsFile:" + tFigures.toUtf8()}).mStatus, 0);
    const auto tService = mMachine.installation().start({"-e"}, Program::Console::Pipes, "vkservice");
    RawPeer tMonitor(mMachine.installation().socketPath());
    EXPECT_EQ(tMonitor.call("enterMonitorMode"), true);
    const auto tShow = [&tFigures](const QByteArray& pVersion, int pRefused) {
        const QByteArray tRefused = "left_out{reason=\"refused\"} " + QByteArray::number(pRefused) + '\n';
        for (int i = 0; i < 1000; ++i) {
            const QByteArray tText = QFile::exists(tFigures) ? readFile(tFigures) : QByteArray();
            if (tText.contains("version=\"" + pVersion + ".0.0\"} 1\n") && tText.contains(tRefused)) {
                return true;
            }
            ::usleep(10 * 1000);
        }
        return false;
    };
    EXPECT_TRUE(tShow("2.0", 0));
    expectVkctl({"rollback"}, 0, "Generation 1 is in use.");
    EXPECT_TRUE(tShow("1.0", 1));
    const QJsonObject tEvent = tMonitor.event();
    EXPECT_EQ(tEvent[q("method")], q("serviceNotificationReceived"));
    EXPECT_EQ(tEvent[q("params")][q("text")], q("The packages of the generation 1 are in use again."));
    expectVkctl({"status"}, 0, "viewer 2.0.0.0: refused");
    expectVkctl({"accept", "viewer"}, 0, "may be installed again");
    EXPECT_TRUE(tShow("1.0", 0));
}

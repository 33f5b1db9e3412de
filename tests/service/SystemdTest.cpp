#include "ServiceRig.h"
#include "UnixSocket.h"

#include <poll.h>
#include <unistd.h>

#include <csignal>

namespace {

// Reads up to a message with this text from the sd_notify socket.
bool hears(int pFd, const char* pText)
{
    pollfd tPoll = {pFd, POLLIN, 0};
    QByteArray tMessage;
    while (!tMessage.contains(pText) && ::poll(&tPoll, 1, 20000) > 0) {
        tMessage = QByteArray(4096, '\0');
        tMessage.truncate(std::max<ssize_t>(0, ::recv(pFd, tMessage.data(), 4096, 0)));
    }
    return tMessage.contains(pText);
}

} // namespace

TEST_F(ServiceTest, DaemonTellsSystemdHowItIs)
{
    const QString tPath = mRig.installation().path("notify");
    const int tFd = boundSocket(tPath, SOCK_DGRAM);
    mRig.installation().environment().insert("NOTIFY_SOCKET", QFile::encodeName(tPath));
    mRig.installation().environment().insert("WATCHDOG_USEC", "300000");
    mRig.configure("update.waitForApps = \"soon\"\n");
    mRig.start({});
    EXPECT_TRUE(hears(tFd, "READY=1") && hears(tFd, "WATCHDOG=1"));
    mRig.program().signal(SIGHUP);
    EXPECT_TRUE(hears(tFd, "RELOADING=1") && hears(tFd, "READY=1"));
    EXPECT_EQ(mRig.connect().errorOf("quitService"), 1) << "the machine would be without its schedule";
    EXPECT_EQ(mRig.connect().call("ping"), true);
    mRig.program().signal(SIGTERM);
    EXPECT_TRUE(hears(tFd, "STOPPING=1"));
    ::close(tFd);
    const Program::Result tResult = mRig.program().wait();
    EXPECT_EQ(tResult.mStatus, 0);
    EXPECT_TRUE(tResult.mErr.contains("<5>The service listens on")) << tResult.mErr;
    EXPECT_TRUE(tResult.mErr.contains("<4>The configuration key service.update.waitForApps is ignored"));
    EXPECT_TRUE(mRig.log().isEmpty());
}

TEST_F(ServiceTest, SocketOfSystemdIsUsedAndLeftToIt)
{
    const QByteArray tService = mRig.installation().path("bin/vkservice").toUtf8();
    Program tProgram(
        q("/usr/bin/systemd-socket-activate"),
        {"-l", QFile::encodeName(mRig.socket()), tService, "-e", "-s=" + QFile::encodeName(mRig.socket())},
        mRig.installation().environment());
    RawPeer tPeer = mRig.connect();
    ASSERT_EQ(tPeer.call("ping"), true);
    EXPECT_EQ(tPeer.call("quitService"), true);
    EXPECT_EQ(tProgram.wait().mStatus, 0);
    EXPECT_TRUE(QFile::exists(mRig.socket()));
}

// The installed units, checked by systemd's tools.
TEST_F(ServiceTest, UnitsAreSoundAndWellShut)
{
    const auto tUnit = [this](const char* pName) { return mRig.installation().path(q("units/") + q(pName)); };
    for (const char* tName :
         {"vkservice.service.in", "vkprocesses@.service.in", "vkservice.socket", "vkprocesses.socket"}) {
        QByteArray tText = readFile(q(SOURCE_DIR "/packaging/systemd/") + q(tName));
        tText.replace("@CMAKE_INSTALL_PREFIX@", mRig.installation().path(QString()).toUtf8());
        tText.replace("@CMAKE_INSTALL_LIBEXECDIR@", "bin");
        mRig.installation().writeFile(q("units/") + q(tName).remove(q(".in")), tText);
    }
    mRig.installation().addProgram(BUILD_DIR "/libexec/vkprocesses", "vkprocesses");
    const QByteArray tService = readFile(tUnit("vkservice.service"));
    EXPECT_TRUE(tService.contains("\nRestart=always\n") && tService.contains("\nMemoryMax="));
    const auto tAnalyze = [this](const QList<QByteArray>& pWords) {
        return Program(q("/usr/bin/systemd-analyze"), pWords, mRig.installation().environment()).wait();
    };
    const Program::Result tVerified = tAnalyze(
        {"verify", "--man=no", tUnit("vkservice.service").toUtf8(), tUnit("vkprocesses.socket").toUtf8()});
    EXPECT_EQ(tVerified.mStatus, 0) << tVerified.mErr;
    EXPECT_FALSE(tVerified.mErr.contains("vkservice") || tVerified.mErr.contains("vkprocesses"))
        << tVerified.mErr;
    // Fails at an exposure above that of tThreshold tenths.
    for (const auto& [tName, tThreshold] :
         {std::pair("vkservice.service", "12"), {"vkprocesses@.service", "8"}}) {
        const Program::Result tJudged = tAnalyze(
            {"security", "--offline=true", QByteArray("--threshold=") + tThreshold, tUnit(tName).toUtf8()});
        EXPECT_EQ(tJudged.mStatus, 0) << tJudged.mOut;
        EXPECT_TRUE(tJudged.mOut.contains("Overall exposure level")) << tJudged.mErr;
    }
}

#include "ServiceRig.h"
#include "UnixSocket.h"

#include <poll.h>
#include <unistd.h>

#include <csignal>

namespace {

// The other end of sd_notify.
class NotifySocket
{
public:
    explicit NotifySocket(const QString& pPath) : mFd(boundSocket(pPath, SOCK_DGRAM)) {}
    ~NotifySocket() { ::close(mFd); }

    // Reads on to a message with this text.
    bool waitFor(const char* pText)
    {
        pollfd tPoll = {mFd, POLLIN, 0};
        while (::poll(&tPoll, 1, 20000) > 0) {
            QByteArray tMessage(4096, '\0');
            tMessage.resize(
                std::max<ssize_t>(0, ::recv(mFd, tMessage.data(), static_cast<size_t>(tMessage.size()), 0)));
            if (tMessage.contains(pText)) {
                return true;
            }
        }
        return false;
    }

private:
    int mFd;
};

} // namespace

TEST_F(ServiceTest, DaemonTellsSystemdHowItIs)
{
    const QString tPath = mRig.installation().path("notify");
    NotifySocket tNotify(tPath);
    mRig.installation().environment().insert("NOTIFY_SOCKET", QFile::encodeName(tPath));
    mRig.installation().environment().insert("WATCHDOG_USEC", "300000");
    mRig.start({});
    EXPECT_TRUE(tNotify.waitFor("READY=1"));
    EXPECT_TRUE(tNotify.waitFor("WATCHDOG=1"));
    mRig.program().signal(SIGHUP);
    EXPECT_TRUE(tNotify.waitFor("RELOADING=1"));
    EXPECT_TRUE(tNotify.waitFor("READY=1"));
    EXPECT_EQ(mRig.connect().errorOf("quitService"), 1) << "the machine would be without its schedule";
    EXPECT_EQ(mRig.connect().call("ping"), true);
    mRig.program().signal(SIGTERM);
    EXPECT_TRUE(tNotify.waitFor("STOPPING=1"));
    EXPECT_EQ(mRig.program().wait().mStatus, 0);
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

// The unit as it is shipped, judged by systemd's own tools.
TEST_F(ServiceTest, UnitIsSoundAndWellShut)
{
    const QString tFolder = mRig.installation().path("units");
    QFile tTemplate(q(SOURCE_DIR "/packaging/systemd/vkservice.service.in"));
    ASSERT_TRUE(tTemplate.open(QIODevice::ReadOnly));
    QByteArray tUnit = tTemplate.readAll();
    EXPECT_TRUE(tUnit.contains("\nRestart=always\n") && tUnit.contains("\nMemoryMax="));
    tUnit.replace("@CMAKE_INSTALL_PREFIX@", mRig.installation().path(QString()).toUtf8());
    mRig.installation().writeFile("units/vkservice.service", tUnit);
    ASSERT_TRUE(
        QFile::copy(q(SOURCE_DIR "/packaging/systemd/vkservice.socket"), tFolder + q("/vkservice.socket")));
    const QByteArray tService = (tFolder + q("/vkservice.service")).toUtf8();

    Program tVerify(q("/usr/bin/systemd-analyze"), {"verify", "--man=no", tService},
                    mRig.installation().environment());
    const Program::Result tVerified = tVerify.wait();
    EXPECT_EQ(tVerified.mStatus, 0) << tVerified.mErr;
    EXPECT_FALSE(tVerified.mErr.contains("vkservice")) << tVerified.mErr;

    // Fails from an exposure of 2.0 on.
    Program tSecurity(q("/usr/bin/systemd-analyze"),
                      {"security", "--offline=true", "--threshold=19", tService},
                      mRig.installation().environment());
    const Program::Result tJudged = tSecurity.wait();
    EXPECT_EQ(tJudged.mStatus, 0) << tJudged.mOut;
    EXPECT_TRUE(tJudged.mOut.contains("Overall exposure level")) << tJudged.mErr;
}

TEST_F(ServiceTest, DaemonLogsForTheJournal)
{
    mRig.configure("update.waitForApps = \"soon\"\n");
    mRig.start({});
    mRig.program().signal(SIGTERM);
    const Program::Result tResult = mRig.program().wait();
    EXPECT_EQ(tResult.mStatus, 0);
    EXPECT_TRUE(tResult.mErr.contains("<5>The service listens on")) << tResult.mErr;
    EXPECT_TRUE(tResult.mErr.contains("<4>The configuration key service.update.waitForApps is ignored"));
    EXPECT_TRUE(mRig.log().isEmpty());
}

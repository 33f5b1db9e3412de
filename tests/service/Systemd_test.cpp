#include "ServiceRig.h"

#include <QtCore/QFile>

#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <csignal>
#include <cstring>

namespace {

// The other end of sd_notify.
class NotifySocket
{
public:
    explicit NotifySocket(const QString& pPath)
    {
        sockaddr_un tAddress = {};
        tAddress.sun_family = AF_UNIX;
        std::strncpy(tAddress.sun_path, QFile::encodeName(pPath).constData(), sizeof(tAddress.sun_path) - 1);
        mFd = ::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
        if (::bind(mFd, reinterpret_cast<sockaddr*>(&tAddress), sizeof(tAddress)) != 0) {
            qFatal("no socket for notifications");
        }
    }
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
    const QString tPath = mRig.installation().path(QStringLiteral("notify"));
    NotifySocket tNotify(tPath);
    mRig.installation().environment().insert("NOTIFY_SOCKET", QFile::encodeName(tPath));
    mRig.installation().environment().insert("WATCHDOG_USEC", "300000");
    mRig.start({});
    EXPECT_TRUE(tNotify.waitFor("READY=1"));
    EXPECT_TRUE(tNotify.waitFor("WATCHDOG=1"));
    mRig.program().signal(SIGHUP);
    EXPECT_TRUE(tNotify.waitFor("RELOADING=1"));
    EXPECT_TRUE(tNotify.waitFor("READY=1"));
    mRig.program().signal(SIGTERM);
    EXPECT_TRUE(tNotify.waitFor("STOPPING=1"));
    EXPECT_EQ(mRig.program().wait().mStatus, 0);
}

TEST_F(ServiceTest, DaemonLogsForTheJournal)
{
    mRig.configure("update.waitForApps = \"soon\"\n");
    mRig.start({});
    mRig.program().signal(SIGTERM);
    const Program::Result tResult = mRig.program().wait();
    EXPECT_EQ(tResult.mStatus, 0);
    EXPECT_TRUE(tResult.mErr.contains("<5>The service listens on")) << tResult.mErr.toStdString();
    EXPECT_TRUE(tResult.mErr.contains("<4>The configuration key service.update.waitForApps is ignored"));
    EXPECT_TRUE(mRig.log().isEmpty());
}

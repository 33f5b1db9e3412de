#include "ServiceRig.h"
#include "UnixSocket.h"

#include <poll.h>
#include <unistd.h>

#include <csignal>

namespace {

// Runs the service with its standard error and the journal's socket as systemd would set them up. The socket
// takes the journal's place in a mount namespace.
const QByteArray sUnderJournal = R"(
mount -t tmpfs none /run && mkdir -p /run/systemd/journal && mount --bind "$0" /run/systemd/journal || exit 99
export JOURNAL_STREAM=$(stat -Lc %d:%i /proc/self/fd/2)
exec "$1"
)";

// The next message with this MESSAGE_ID.
QByteArray hear(int pFd, const QByteArray& pId)
{
    pollfd tPoll = {pFd, POLLIN, 0};
    while (::poll(&tPoll, 1, 20000) > 0) {
        QByteArray tMessage(65536, '\0');
        tMessage.truncate(std::max<ssize_t>(0, ::recv(pFd, tMessage.data(), 65536, 0)));
        if (tMessage.contains("MESSAGE_ID=" + pId + '\n')) {
            return '\n' + tMessage;
        }
    }
    return "nothing came";
}

} // namespace

TEST_F(ServiceTest, JournalGetsEventsWithTheirFields)
{
    Installation& tPlace = mRig.installation();
    HeldUpdate tHeld;
    ASSERT_NO_FATAL_FAILURE(tHeld.prepare(mRig));
    QDir().mkpath(tPlace.path("journal"));
    const int tFd = boundSocket(tPlace.path("journal/socket"), SOCK_DGRAM);
    Program tService(q("/usr/bin/unshare"),
                     {"--mount", "/bin/sh", "-c", sUnderJournal, tPlace.path("journal").toUtf8(),
                      tPlace.path("bin/vkservice").toUtf8()},
                     tPlace.environment());
    RawPeer tPeer = mRig.connect();
    if (!tPeer.isConnected()) {
        GTEST_SKIP() << "no mount namespace of our own here";
    }
    ASSERT_EQ(tPeer.call("triggerUpdate", R"({"manual": true})"), true);
    EXPECT_TRUE(hear(tFd, "488dd02abe824149b76c23ace496272d").contains("\nVK_MANUAL=yes\n"));
    const QByteArray tInstalled = hear(tFd, "43e2f1cac34e4bdf9e877f9912af7220");
    for (const char* tField : {"\nMESSAGE=The package sleeper 1.0.0.0 was installed.\n", "\nPRIORITY=6\n",
                               "\nVK_PACKAGE=sleeper\n", "\nVK_VERSION=1.0.0.0\n", "\nVK_PREVIOUS_VERSION=\n",
                               "\nSYSLOG_IDENTIFIER=vkservice\n"}) {
        EXPECT_TRUE(tInstalled.contains(tField)) << tField << tInstalled;
    }
    EXPECT_TRUE(hear(tFd, "4740bf730d7c49cba8c108755ec30285").contains("\nVK_RESULT=1\n"));
    ::close(tFd);
    tService.signal(SIGTERM);
    // Without the journal's socket the lines go where they always went.
    EXPECT_FALSE(tService.wait().mErr.contains("was installed"));
}

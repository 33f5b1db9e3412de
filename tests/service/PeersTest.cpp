#include "Child.h"
#include "ServiceRig.h"
#include "UnixSocket.h"

#include <grp.h>
#include <sys/stat.h>

namespace {

constexpr uid_t sStranger = 65534;
constexpr gid_t sGroup = 1; // "daemon" on every Debian machine

// Runs in a process of another user; true if the service answers it.
bool speaksAs(gid_t pGroup, const QList<gid_t>& pMore, const QString& pSocket)
{
    const pid_t tPid = ::fork();
    if (tPid == 0) {
        if (::setgroups(static_cast<size_t>(pMore.size()), pMore.constData()) != 0 || ::setgid(pGroup) != 0 ||
            ::setuid(sStranger) != 0) {
            ::_exit(3);
        }
        RawPeer tPeer(pSocket, 0);
        ::_exit(tPeer.isConnected() && tPeer.call("ping") == QJsonValue(true) ? 0 : 1);
    }
    int tStatus = 0;
    ::waitpid(tPid, &tStatus, 0);
    EXPECT_NE(WEXITSTATUS(tStatus), 3);
    return tStatus == 0;
}

class PeersTest : public ServiceTest
{
protected:
    void SetUp() override
    {
        if (::geteuid() != 0) {
            GTEST_SKIP() << "only root can take on other users";
        }
    }
    // Other users have to reach the socket.
    void openTheWay()
    {
        for (const char* tDir : {"", "tmp"}) {
            ::chmod(QFile::encodeName(mRig.installation().path(tDir)).constData(), 0755);
        }
    }
};

} // namespace

TEST_F(ServiceTest, WizardIsSeenByOthersUntilItsConnectionEnds)
{
    RawPeer tPeer = mRig.startAndConnect();
    {
        RawPeer tWizard = mRig.connect();
        ASSERT_TRUE(
            tWizard.call("hello", R"({"protocol": 1, "client": "wizard", "version": ""})").isObject());
        EXPECT_EQ(tPeer.call("isVKClientActive"), true);
        EXPECT_EQ(tWizard.call("isVKClientActive"), false) << "not by itself";
    }
    for (int i = 0; i < 1000 && tPeer.call("isVKClientActive").toBool(); ++i) {
    }
    EXPECT_EQ(tPeer.call("isVKClientActive"), false);
}

TEST_F(PeersTest, OtherUsersAreDroppedEvenWhereTheFileLetsThemIn)
{
    mRig.start();
    openTheWay();
    EXPECT_FALSE(speaksAs(sStranger, {}, mRig.socket())) << "the mode of the file keeps them out";
    ASSERT_EQ(::chmod(QFile::encodeName(mRig.socket()).constData(), 0666), 0);
    EXPECT_FALSE(speaksAs(sStranger, {}, mRig.socket())) << "and so does the service";
    EXPECT_TRUE(mRig.log().contains("user 65534")) << mRig.log();
    EXPECT_EQ(mRig.connect().call("ping"), true);
}

TEST_F(PeersTest, MembersOfTheGroupMaySpeak)
{
    mRig.configure("socketGroup = \"daemon\"\n");
    mRig.start();
    openTheWay();
    struct stat tStat = {};
    ASSERT_EQ(::stat(QFile::encodeName(mRig.socket()).constData(), &tStat), 0);
    EXPECT_EQ(tStat.st_gid, sGroup);
    EXPECT_EQ(tStat.st_mode & 0777, 0660u);
    EXPECT_TRUE(speaksAs(sGroup, {}, mRig.socket()));
    EXPECT_TRUE(speaksAs(sStranger, {42, sGroup}, mRig.socket()));
    EXPECT_FALSE(speaksAs(sStranger, {42}, mRig.socket()));
    ASSERT_EQ(::chmod(QFile::encodeName(mRig.socket()).constData(), 0666), 0);
    EXPECT_FALSE(speaksAs(sStranger, {42}, mRig.socket()));
}

// Each in a mount namespace with an empty /run, whatever is in the folder for temporary files.
TEST_F(PeersTest, TheServiceOfRootListensWhereNobodyElseCanPutAnything)
{
    const auto tUnshare = [this](QList<QByteArray> pCommand) {
        pCommand.prepend("--mount");
        return Program(q("/usr/bin/unshare"), pCommand, mRig.installation().environment()).wait();
    };
    if (tUnshare({"true"}).mStatus != 0) {
        GTEST_SKIP() << "this root may not make name spaces";
    }
    mRig.installation().addProgram(BUILD_DIR "/bin/rkm", "rkm");
    mRig.configure("socketName = \"\"\n");
    mRig.installation().writeFile("tmp/vkservice", "junk");
    const struct
    {
        QByteArray mBefore;
        bool mWorks;
    } tCases[] = {
        {"true", true},
        {"install -d -m 0700 /run/vkservice", true},
        {"install -d -m 0777 /run/vkservice", false},
        {"install -d -o 65534 /run/vkservice", false},
        {"ln -s /tmp /run/vkservice", false},
    };
    for (const auto& tCase : tCases) {
        SCOPED_TRACE(tCase.mBefore);
        const Program::Result tResult =
            tUnshare({"sh", "-ec", "mount -t tmpfs none /run; " + tCase.mBefore + "; \"$0\" list-servers",
                      mRig.installation().path("bin/rkm").toUtf8()});
        EXPECT_EQ(tResult.mStatus, tCase.mWorks ? 0 : 1);
        EXPECT_EQ(tResult.mErr.contains("permissions of /run/vkservice\n"), !tCase.mWorks) << tResult.mErr;
    }
    EXPECT_EQ(mRig.log().count("The service listens on /run/vkservice/socket."), 2);
    EXPECT_EQ(mRig.log().count("nobody else may write to"), 3);
}

// A process that is not a service occupies the name in a shared folder.
TEST_F(PeersTest, SocketOfAStrangerIsTakenOver)
{
    openTheWay();
    ASSERT_EQ(::chmod(QFile::encodeName(mRig.installation().path("tmp")).constData(), 01777), 0);
    const Child tStranger(
        [this] { return ::setuid(sStranger) == 0 && ::listen(boundSocket(mRig.socket()), 1000) == 0; });
    ASSERT_TRUE(tStranger.isReady());
    const auto tService = mRig.startAnother();
    bool tAnswered = false;
    for (int i = 0; i < 400 && !tAnswered; ++i) {
        RawPeer tPeer(mRig.socket(), 0);
        tPeer.sendRequest("ping");
        tAnswered = tPeer.readLine(50).has_value();
    }
    EXPECT_TRUE(tAnswered);
}

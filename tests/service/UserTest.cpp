#include "Files.h"
#include "ServiceRig.h"

#include <QtCore/QDirIterator>

#include <poll.h>
#include <pwd.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace {

constexpr uid_t sNobody = 65534;

uid_t ownerOf(const QString& pPath)
{
    struct stat tStat = {};
    EXPECT_EQ(::lstat(QFile::encodeName(pPath).constData(), &tStat), 0) << qPrintable(pPath);
    return tStat.st_uid;
}

// The users of all that is in a folder, and of the folder.
QSet<uid_t> ownersBelow(const QString& pFolder)
{
    QSet<uid_t> tOwners{ownerOf(pFolder)};
    QDirIterator tFiles(pFolder, QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot,
                        QDirIterator::Subdirectories);
    while (tFiles.hasNext()) {
        tOwners.insert(ownerOf(tFiles.next()));
    }
    return tOwners;
}

// A service whose user is "nobody", with the folders that an administrator would have given to that user.
class UserTest : public ServiceTest
{
protected:
    void SetUp() override
    {
        if (::geteuid() != 0 || ::getpwnam("nobody") == nullptr) {
            GTEST_SKIP() << "only root can take on other users";
        }
        mRig.installation().addProgram(BUILD_DIR "/bin/rkm", "rkm");
        QDir().mkpath(mRig.installation().path("libexec"));
        mRig.installation().addProgram(BUILD_DIR "/libexec/vkprocesses", "../libexec/vkprocesses");
        ::chmod(path("").constData(), 0755);
        ::chmod(path("tmp").constData(), 01777);
        for (const char* tDir : {"log", "installed"}) {
            QDir().mkpath(mRig.installation().path(tDir));
            give(tDir);
        }
        mRig.configure(sKey);
    }
    QByteArray path(const char* pBelow) { return QFile::encodeName(mRig.installation().path(pBelow)); }
    void give(const char* pBelow) { ASSERT_EQ(::chown(path(pBelow).constData(), sNobody, sNobody), 0); }
    static QByteArray status(int pPid) { return readFile(q("/proc/%1/status").arg(pPid)); }
    QByteArray status() { return status(mRig.program().pid()); }
    // That of the only program that the service has started.
    int child()
    {
        return readFile(q("/proc/%1/task/%1/children").arg(mRig.program().pid())).trimmed().toInt();
    }
    // Whether it has no right, or that to see what programs run, if this machine has it.
    static bool hasRights(const QByteArray& pStatus, const char* pSet, bool pSees)
    {
        const QByteArray tLine = QByteArray("\n") + pSet + ":\t00000000000";
        return pStatus.contains(tLine + "00000\n") || (pSees && pStatus.contains(tLine + "80000\n"));
    }

    static constexpr auto sKey = "user = \"nobody\"\n";
};

} // namespace

TEST_F(UserTest, WorkerOfRootBecomesTheServicesUserForGood)
{
    HeldUpdate tUpdate;
    ASSERT_NO_FATAL_FAILURE(tUpdate.prepare(mRig));
    mRig.configure(QByteArray(sKey) + "defaultServer = \"file://" + path("repository") +
                   "\"\nsocketGroup = \"daemon\"\n");
    RawPeer tPeer = mRig.startAndConnect();
    const QByteArray tStatus = status();
    EXPECT_TRUE(tStatus.contains("\nUid:\t65534\t65534\t65534\t65534\n")) << tStatus;
    EXPECT_TRUE(tStatus.contains("\nGid:\t65534\t65534\t65534\t65534\n")) << tStatus;
    EXPECT_TRUE(tStatus.contains("\nGroups:\t1 65534 \n")) << "and of the socket's group\n" << tStatus;
    EXPECT_TRUE(tStatus.contains("\nNoNewPrivs:\t1\n")) << tStatus;
    for (const char* tSet : {"CapInh", "CapPrm", "CapEff", "CapBnd", "CapAmb"}) {
        EXPECT_TRUE(hasRights(tStatus, tSet, false)) << tStatus;
    }
    const int tHelper = child();
    const QByteArray tHelpers = status(tHelper);
    pollfd tEnd = {static_cast<int>(::syscall(SYS_pidfd_open, tHelper, 0)), POLLIN, 0};
    EXPECT_TRUE(tHelpers.startsWith("Name:\tvkprocesses\n")) << tHelpers;
    EXPECT_TRUE(tHelpers.contains("\nUid:\t65534\t65534\t65534\t65534\n")) << tHelpers;
    for (const char* tSet : {"CapPrm", "CapEff", "CapBnd"}) {
        EXPECT_TRUE(hasRights(tHelpers, tSet, true)) << tHelpers;
    }
    EXPECT_TRUE(hasRights(tHelpers, "CapInh", false) && hasRights(tHelpers, "CapAmb", false)) << tHelpers;
    EXPECT_EQ(ownerOf(mRig.socket()), sNobody);
    EXPECT_NE(::getsid(static_cast<pid_t>(mRig.program().pid())), ::getsid(0))
        << "not on the terminal of root";
    {
        RawPeer tMonitor = mRig.connect();
        ASSERT_EQ(tMonitor.call("enterMonitorMode"), true);
        ASSERT_EQ(tPeer.call("triggerUpdate", R"({"manual": true})"), true);
        ASSERT_TRUE(tMonitor.waitForEvent("serviceStatusChanged", "status", 0)) << mRig.log();
    }
    EXPECT_EQ(tPeer.call("getLastServiceResult", R"({"thisSession": true})"), 1) << mRig.log();
    EXPECT_TRUE(QFile::exists(mRig.installation().path("installed/current/sleeper/bin/sleeper")));
    tUpdate.hold(); // root runs it
    {
        RawPeer tMonitor = mRig.connect();
        ASSERT_EQ(tMonitor.call("enterMonitorMode"), true);
        ASSERT_EQ(tPeer.call("triggerUpdate", R"({"manual": true})"), true);
        constexpr int sWaitingForApps = 3;
        EXPECT_TRUE(tMonitor.waitForEvent("serviceActivityChanged", "activity", sWaitingForApps))
            << mRig.log();
        tUpdate.letGo();
        ASSERT_TRUE(tMonitor.waitForEvent("serviceStatusChanged", "status", 0)) << mRig.log();
    }
    EXPECT_EQ(tPeer.call("quitService"), true) << "it still knows who has started it";
    EXPECT_EQ(mRig.program().wait().mStatus, 0);
    EXPECT_EQ(::poll(&tEnd, 1, 20000), 1) << "it ends with the worker";
    ::close(tEnd.fd);
    for (const char* tDir : {"state", "installed", "log"}) {
        EXPECT_EQ(ownersBelow(mRig.installation().path(tDir)), QSet<uid_t>{sNobody}) << tDir;
    }
}

TEST_F(UserTest, StateOfRootKeepsTheWorkerOfRoot)
{
    QDir().mkpath(mRig.installation().path("state"));
    mRig.start();
    EXPECT_TRUE(status().contains("\nUid:\t0\t0\t0\t0\n"));
    EXPECT_EQ(ownersBelow(mRig.installation().path("state")), QSet<uid_t>{0});
}

TEST_F(UserTest, StateOfAThirdUserIsRefused)
{
    QDir().mkpath(mRig.installation().path("state"));
    ASSERT_EQ(::chown(path("state").constData(), 1, 1), 0);
    const Program::Result tResult = mRig.startAnother({"-e", "-worker"})->wait();
    EXPECT_EQ(tResult.mStatus, 1);
    EXPECT_TRUE(tResult.mErr.contains("belongs neither to root nor to nobody")) << tResult.mErr;
    EXPECT_EQ(ownersBelow(mRig.installation().path("state")), QSet<uid_t>{1});
}

// Each time a service of "nobody" runs.
TEST_F(UserTest, ClientTrustsOnlyWhomTheFilesOfRootName)
{
    const struct
    {
        const char* mWhat;
        const char* mKey;
        mode_t mMode;
        uid_t mOwner;
        bool mTrusted;
    } tCases[] = {
        {"the key of root", sKey, 0644, 0, true},
        {"no key", "", 0644, 0, false},
        {"another name", "user = \"daemon\"\n", 0644, 0, false},
        {"a file that a group can change", sKey, 0664, 0, false},
        {"a file that all can change", sKey, 0646, 0, false},
        {"a file of that user", sKey, 0644, sNobody, false},
    };
    mRig.start();
    for (const auto& tCase : tCases) {
        SCOPED_TRACE(tCase.mWhat);
        mRig.configure(tCase.mKey);
        ASSERT_EQ(::chmod(path("etc/vk/vk.cfg").constData(), tCase.mMode), 0);
        ASSERT_EQ(::chown(path("etc/vk/vk.cfg").constData(), tCase.mOwner, 0), 0);
        QFile::remove(mRig.installation().path("log/rkm.log"));
        // Without a service that it trusts, rkm starts its own, which finds the state in use.
        const Program::Result tResult = mRig.installation().run({"service-status"});
        EXPECT_EQ(tResult.mStatus == 0, tCase.mTrusted) << tResult.mOut << tResult.mErr;
        EXPECT_EQ(mRig.installation().log().contains("belongs to the user with the number 65534"),
                  !tCase.mTrusted)
            << mRig.installation().log();
    }
}

// Unlike the key, the file is for the service alone. What rkm has set counts before both.
TEST_F(ServiceTest, PasswordOfACredentialIsUsedAndNotShown)
{
    mRig.installation().writeFile("credentials/mail.password", "fromSystemd\n");
    mRig.installation().environment().insert("CREDENTIALS_DIRECTORY",
                                             QFile::encodeName(mRig.installation().path("credentials")));
    mRig.configure("mail.password = \"key\"\n");
    RawPeer tPeer = mRig.startAndConnect();
    const auto tShown = [&tPeer] {
        return tPeer.call("getConfigValue", R"({"name": "mail.password", "default": ""})").toString();
    };
    EXPECT_EQ(tShown(), QString(11, u'*'));
    EXPECT_EQ(tPeer.call("setConfigValue", R"({"name": "mail.password", "value": "set"})"), true);
    EXPECT_EQ(tShown(), QString(3, u'*'));
    EXPECT_EQ(tPeer.call("setConfigValue", R"({"name": "mail.password", "value": ""})"), true);
    QFile::remove(mRig.installation().path("credentials/mail.password"));
    EXPECT_EQ(tShown(), QString(3, u'*')) << "the key is left";
    mRig.installation().writeFile("credentials/mail.password", QByteArray(5000, 'x'));
    EXPECT_EQ(tPeer.call("reloadConfig"), true);
    EXPECT_TRUE(mRig.log().contains("WARNING: The credential mail.password is longer than"));
    EXPECT_FALSE(mRig.log().contains("fromSystemd"));
}

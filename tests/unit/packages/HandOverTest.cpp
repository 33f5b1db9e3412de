#include "Files.h"
#include "Test.h"

#include "packages/HandOver.h"

#include <QtCore/QTemporaryDir>

#include <sched.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

using namespace tarn;
using namespace tarn::packages;

namespace {

constexpr uid_t sUser = 65534;

// An installation of root: its state, the folder that it installs to, a data folder, and folders of others.
class HandOverTest : public testing::Test
{
protected:
    void SetUp() override
    {
        if (::geteuid() != 0) {
            GTEST_SKIP() << "only root can change owners";
        }
        write("state/state.db", "x");
        write("state/trust/root.json", "x");
        write("state/refused.json", "{}");
        write("install/.prepared.json", "{}");
        write("state/installation.json",
              R"({"format": 1, "id": "ours", "roots": ["%1/install", "%1/data", "%1/lost", "%1/foreign"]})");
        for (const char* tRoot : {"install", "data", "foreign", "unknown"}) {
            const QByteArray tName = tRoot;
            write(tName + "/packages/a/1/file", "x");
            write(tName + "/.vk-root", tName == "foreign" ? R"({"format": 1, "installation": "theirs"})"
                                                          : R"({"format": 1, "installation": "ours"})");
        }
        write("outside", "x");
        write("data/own/file", "x");
        for (const char* tLink : {"install/packages/a/1/link", "state/trust/link", "install/current"}) {
            ASSERT_EQ(::symlink(at("outside").constData(), at(tLink).constData()), 0);
        }
        ASSERT_EQ(::chown(at("install/packages/a/1/file").constData(), 1, 1), 0);
    }
    QByteArray at(const QByteArray& pBelow) const { return QFile::encodeName(mDir.path()) + '/' + pBelow; }
    void write(const QByteArray& pBelow, const QByteArray& pText) const
    {
        writeFile(QFile::decodeName(at(pBelow)), QByteArray(pText).replace("%1", at("").chopped(1)));
    }
    Failure give(const os::Ownership& pOwnership, const QByteArray& pInstall = "install")
    {
        HandOver tHandOver(pOwnership, QFile::decodeName(at("state")));
        Failure tFailure = tHandOver.give(QFile::decodeName(at(pInstall)));
        mLeft = tHandOver.left();
        return tFailure;
    }
    void expectOwner(uid_t pOwner, const QList<QByteArray>& pFiles, int pLine = __builtin_LINE()) const
    {
        for (const QByteArray& tFile : pFiles) {
            struct stat tStat = {};
            ASSERT_EQ(::lstat(at(tFile).constData(), &tStat), 0) << tFile;
            EXPECT_EQ(tStat.st_uid, pOwner) << tFile << ", line " << pLine;
        }
    }

    const os::Ownership mOver{0, sUser, sUser};
    const os::Ownership mBack{sUser, 0, 0};
    QTemporaryDir mDir;
    QStringList mLeft;
};

const QList<QByteArray> sOurs{"state",
                              "state/state.db",
                              "state/trust",
                              "state/trust/link",
                              "state/installation.json",
                              "state/refused.json",
                              "install/.prepared.json",
                              "install",
                              "install/packages",
                              "install/packages/a",
                              "install/packages/a/1/link",
                              "install/current",
                              "install/.vk-root",
                              "data/packages/a/1/file"};
const QList<QByteArray> sNotOurs{"outside",          "data",    "data/own",
                                 "data/own/file",    "foreign", "foreign/packages",
                                 "foreign/.vk-root", "unknown", "unknown/packages"};

} // namespace

TEST_F(HandOverTest, GivesWhatIsOursAndNothingElse)
{
    // A try before this one has come so far.
    ASSERT_EQ(::chown(at("install/packages").constData(), sUser, sUser), 0);
    ASSERT_EQ(::chown(at("state/trust").constData(), sUser, sUser), 0);
    for (int i = 0; i < 2; ++i) {
        EXPECT_FALSE(give(mOver));
        expectOwner(sUser, sOurs);
        expectOwner(0, sNotOurs);
        expectOwner(1, {"install/packages/a/1/file"});
        EXPECT_EQ(mLeft.size(), 2) << "the data folder itself, and that of others";
    }
    EXPECT_FALSE(give(mBack));
    expectOwner(0, sOurs + sNotOurs);
}

// Version 1.0.0 had no markers.
TEST_F(HandOverTest, TakesTheFolderOfAnEarlierVersionWithoutAMarker)
{
    QFile::remove(QFile::decodeName(at("state/installation.json")));
    QFile::remove(QFile::decodeName(at("unknown/.vk-root")));
    write("unknown/someone's", "x");
    EXPECT_FALSE(give(mOver, "unknown"));
    expectOwner(0, {"unknown/packages"});
    QDir().mkpath(QFile::decodeName(at("unknown/generations/1")));
    EXPECT_FALSE(give(mOver, "unknown"));
    expectOwner(sUser, {"unknown/packages/a/1/file", "unknown/generations/1"});
    expectOwner(0, {"unknown", "unknown/someone's", "data/packages"});
}

TEST_F(HandOverTest, BelievesNoMarkerInASharedFolderAndNoOtherNameOfAFile)
{
    ASSERT_EQ(::chown(at("data/.vk-root").constData(), sUser, sUser), 0);
    ASSERT_EQ(::chmod(at("data").constData(), 01777), 0);
    ASSERT_EQ(::chown(at("install/packages/a").constData(), sUser, sUser), 0);
    ASSERT_EQ(::link(at("outside").constData(), at("install/packages/a/planted").constData()), 0);
    EXPECT_FALSE(give(mOver));
    expectOwner(0, {"data", "data/packages", "outside"});
    expectOwner(sUser, {"install/packages/a/1/link"});
}

// Also if it is on the same disk.
TEST_F(HandOverTest, EntersNoMount)
{
    QDir().mkpath(QFile::decodeName(at("install/packages/mounted")));
    const pid_t tChild = ::fork();
    if (tChild == 0) {
        if (::unshare(CLONE_NEWNS) != 0 ||
            ::mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0 ||
            ::mount(at("data/own").constData(), at("install/packages/mounted").constData(), nullptr, MS_BIND,
                    nullptr) != 0) {
            ::_exit(77);
        }
        ::_exit(give(mOver) ? 1 : 0);
    }
    int tStatus = -1;
    ASSERT_EQ(::waitpid(tChild, &tStatus, 0), tChild);
    if (WEXITSTATUS(tStatus) == 77) {
        GTEST_SKIP() << "may not mount";
    }
    EXPECT_EQ(tStatus, 0);
    expectOwner(0, {"data/own", "data/own/file"});
    expectOwner(sUser, {"install/packages"});
}

TEST_F(HandOverTest, TakesTheInstallFolderByItsMarkerIfTheStateIsLost)
{
    QFile::remove(QFile::decodeName(at("state/installation.json")));
    EXPECT_FALSE(give(mOver));
    expectOwner(sUser, {"install/packages/a/1/link", "install/.vk-root", "install"});
    expectOwner(0, {"data/packages"});
}

TEST_F(HandOverTest, LeavesAConfiguredStateFolderWithOtherFiles)
{
    write("state/someone's", "x");
    const Failure tFailure = give(mOver);
    EXPECT_TRUE(tFailure.mText.contains(q("someone's"))) << qPrintable(tFailure.mText);
    expectOwner(0, {"state", "state/someone's"});
}

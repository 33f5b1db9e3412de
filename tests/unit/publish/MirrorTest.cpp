// A copy of a repository, whatever happens to it and to its origin.
#include "mirror/Mirror.h"
#include "FaultyFileSystem.h"
#include "mirror/Origin.h"
#include "Publisher.h"
#include "TestServer.h"
#include "Verification.h"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

using namespace tarn;
using namespace tarn::vkpublish;

namespace {

const QString sOne = q("a-1.0.0.0.tar.zst");
const QString sTwo = q("a-2.0.0.0.tar.zst");

// A repository "r" with one package, mirrored into "m".
class MirrorTest : public PublisherTest
{
protected:
    MirrorTest()
    {
        succeed("init @r");
        succeed("add @r @f --name a --version 1 --level 1");
        succeed("publish @r");
        succeed("mirror @r @m --root @r/metadata/1.root.json");
        EXPECT_EQ(followAsClient("seen", "m"), sOne);
    }

    // The second version, with a delta, instead of the first.
    void change() const
    {
        write("f/data", readFile(q(VKPUBLISH)).first(50000));
        succeed("add @r @f --name a --version 2 --level 1");
        succeed("remove @r a --version 1");
        succeed("publish @r");
    }

    Failure mirror(os::FileSystem& pFileSystem, MirrorJob pJob = {}, const char* pFrom = "r")
    {
        mReport = {};
        pJob.mNow = pJob.mNow.isValid() ? pJob.mNow : QDateTime::currentDateTimeUtc();
        pJob.mWait = [](int) {};
        const auto tOrigin = openOrigin(os::realFileSystem(), {false, path(pFrom)}, {});
        return Mirror(pFileSystem, path("m"), *tOrigin).run(pJob, &mReport);
    }
    Failure mirror(MirrorJob pJob = {}, const char* pFrom = "r")
    {
        return mirror(os::realFileSystem(), pJob, pFrom);
    }

    // A new machine and one that has seen the mirror before see this, with all its files.
    void expectWhole(const QStringList& pOneOf) const
    {
        QDir(path("fresh")).removeRecursively();
        copy("seen", "again");
        const QString tFresh = followAsClient("fresh", "m");
        EXPECT_TRUE(pOneOf.contains(tFresh)) << qPrintable(tFresh);
        EXPECT_EQ(followAsClient("again", "m"), tFresh);
        const QStringList tProblems = verifyRepository(path("m"), readFile(path("r/metadata/1.root.json")),
                                                       QDateTime::currentDateTimeUtc())
                                          .mProblems;
        EXPECT_EQ(tProblems, QStringList());
    }

    MirrorReport mReport;
};

TEST_F(MirrorTest, AKillOrAFullDiskAtAnyMomentLeavesAWholeState)
{
    change();
    succeed("rotate-key @r timestamp");
    succeed("rotate-key @r root");
    copy("m", "m.before");
    for (const bool tForGood : {true, false}) {
        bool tFailed = true;
        for (int i = 1; tFailed; ++i) {
            SCOPED_TRACE(testing::Message() << "operation " << i << ", for good: " << tForGood);
            copy("m.before", "m");
            FaultyFileSystem tFileSystem;
            tFileSystem.mForGood = tForGood;
            tFileSystem.failAt(i, ENOSPC);
            const Failure tFailure = mirror(tFileSystem, {.mPruneSeconds = 0});
            tFailed = tFileSystem.hasFailed();
            EXPECT_TRUE(!tFailure || tFailed) << tFailure.mText;
            expectWhole(tFailure ? QStringList{sOne, sTwo} : QStringList{sTwo});
            const Failure tAgain = mirror({.mPruneSeconds = 0});
            EXPECT_FALSE(tAgain) << tFileSystem.failed() << ": " << tAgain.mText;
            expectWhole({sTwo});
            EXPECT_FALSE(mirror({.mPruneSeconds = 0})) << "which removes what the first state named";
            EXPECT_EQ(files("m/targets"), files("r/targets").filter(QRegularExpression(q("-2|delta|index"))))
                << tFileSystem.failed();
            EXPECT_EQ(mReport.mForeign, QStringList());
            EXPECT_EQ(files("m/.vk-mirror/incoming"), QStringList());
            ASSERT_LT(i, 300);
        }
    }
}

// A machine in the middle of an update has one more run of the mirror to finish it.
TEST_F(MirrorTest, PrunesItsOwnFilesOneRunLater)
{
    const auto tCount = [this] { return files("m/targets").filter(q("-1.0.0.0")).size(); };
    const QDateTime tNow = QDateTime::currentDateTimeUtc();
    write("m/targets/stranger", "x");
    write("m/index.html", "x");
    change();
    ASSERT_FALSE(mirror({.mPruneSeconds = 0}));
    EXPECT_EQ(tCount(), 1);
    EXPECT_EQ(mReport.mForeign, (QStringList{q("index.html"), q("targets/stranger")}));
    ASSERT_FALSE(mirror({.mPruneSeconds = 3600}));
    EXPECT_EQ(tCount(), 1);
    ASSERT_FALSE(mirror({.mPruneSeconds = 3600, .mNow = tNow.addSecs(3700)}));
    EXPECT_EQ(tCount(), 0);
    EXPECT_EQ(mReport.mPruned, 4) << "archive, index, targets and snapshot";
    EXPECT_TRUE(QFileInfo::exists(path("m/targets/stranger")));
    EXPECT_TRUE(files("m/metadata").contains(q("1.root.json")));
}

TEST_F(MirrorTest, NothingThatItsOriginSpoilsArrives)
{
    const QStringList tOld = files("r/metadata") + files("r/targets");
    change();
    succeed("rotate-key @r snapshot");
    copy("m", "m.before");
    for (const char* tFolder : {"r/metadata/", "r/targets/"}) {
        for (const QString& tName : files(tFolder)) {
            const QString tPath = path(tFolder) + tName;
            const QByteArray tGood = readFile(tPath);
            if ((tOld.contains(tName) && tName != q("timestamp.json")) ||
                tName.startsWith(q("2.")) == (tName.contains(q("snapshot")))) {
                continue; // not asked for
            }
            for (const QByteArray& tBad :
                 {tGood.chopped(1), tGood + 'x', QByteArray(tGood).replace(10, 1, "~"), QByteArray()}) {
                SCOPED_TRACE(testing::Message() << qPrintable(tName) << ", " << tBad.size());
                copy("m.before", "m");
                tBad.isEmpty() ? void(QFile::remove(tPath)) : writeFile(tPath, tBad);
                const Failure tFailure = mirror();
                writeFile(tPath, tGood);
                EXPECT_TRUE(tFailure || tName.contains(q("root"))) << "a root may be unknown";
                expectWhole({sOne});
                EXPECT_FALSE(mirror());
                expectWhole({sTwo});
            }
        }
    }
}

TEST_F(MirrorTest, AnOriginCannotGoBackOrStandStill)
{
    copy("r", "r.old");
    change();
    ASSERT_FALSE(mirror());
    EXPECT_EQ(mirror({}, "r.old").mKind, Failure::Kind::OutOfDate);
    expectWhole({sTwo});
    const Failure tFrozen = mirror({.mNow = QDateTime::currentDateTimeUtc().addDays(20)});
    EXPECT_EQ(tFrozen.mKind, Failure::Kind::Expired) << tFrozen.mText;
    expectWhole({sTwo});
}

TEST_F(MirrorTest, ACheckFindsAndRepairsDamage)
{
    for (const char* tFolder : {"m/metadata/", "m/targets/"}) {
        for (const QString& tName : files(tFolder)) {
            spoil(path(tFolder) + tName);
            ASSERT_FALSE(mirror({.mCheck = true}));
            EXPECT_EQ(mReport.mFiles, q(tFolder) == q("m/targets/") ? 1 : 0);
            expectWhole({sOne});
            QFile::remove(path(tFolder) + tName);
            ASSERT_FALSE(mirror());
            expectWhole({sOne});
        }
    }
}

TEST_F(MirrorTest, TransfersOnlyWhatChangedAndContinues)
{
    TestServer tServer(path("r"));
    tServer.setUser("site", "secret");
    ASSERT_TRUE(tServer.start());
    write("netrc", "machine localhost login site password secret\n");
    const QByteArray tMirror = "mirror " + tServer.uri(q("/private")).toUtf8() + " @m --ca-file " +
                               tServer.caFile().toUtf8() + " --rate-limit 4000";
    EXPECT_TRUE(run(tMirror).mErr.contains("401"));
    tServer.forgetRequests();
    EXPECT_TRUE(run(tMirror + " --netrc @netrc").mOut.startsWith("Nothing new"));
    EXPECT_EQ(tServer.requests(), QStringList{q("GET /private/metadata/timestamp.json 200 site")});

    change();
    const QString tArchive = files("r/targets").filter(sTwo).first();
    write("m/.vk-mirror/incoming/" + tArchive.left(64).toUtf8(),
          readFile(path("r/targets/") + tArchive).first(1000));
    tServer.forgetRequests();
    const Program::Result tResult = run(tMirror + " --netrc @netrc");
    EXPECT_TRUE(tResult.mOut.contains("3 files fetched")) << tResult.mOut << tResult.mErr;
    const QStringList tTargets = tServer.requests().filter(q("/targets/"));
    EXPECT_EQ(tTargets.size(), 3) << tTargets.join(u'\n');
    EXPECT_TRUE(tTargets.contains(q("GET /private/targets/%1?range 206 site").arg(tArchive)));
    expectWhole({sTwo});
}

TEST_F(MirrorTest, OutlastsServersThatCutAndKnowNoRanges)
{
    HostileServer tServer(path("r"));
    write("f/noise", readFile(q(VKPUBLISH)).repeated(3));
    change();
    for (const auto& [tWay, tArrives] : {std::pair("cut", true), {"refuse", false}, {"redirect", false}}) {
        SCOPED_TRACE(tWay);
        const auto tOrigin =
            openOrigin(os::realFileSystem(), {true, tServer.uri(q(tWay))}, {.mCaFile = tServer.caFile()});
        int tPauses = 0;
        MirrorJob tJob{.mNow = QDateTime::currentDateTimeUtc(), .mWait = [&](int) { ++tPauses; }};
        copy("m", "m.before");
        const Failure tFailure = Mirror(os::realFileSystem(), path("m"), *tOrigin).run(tJob, &mReport);
        EXPECT_EQ(!tFailure, tArrives) << tFailure.mText;
        EXPECT_LT(tPauses, 40);
        expectWhole({tArrives ? sTwo : sOne});
        copy("m.before", "m");
    }
}

TEST_F(MirrorTest, RefusesInOneLine)
{
    write("foreign/file", "x");
    succeed("init @other");
    const int tFd = ::open(path("m/.vk-mirror/lock").toUtf8().constData(), O_RDWR | O_CLOEXEC);
    ASSERT_EQ(::flock(tFd, LOCK_EX), 0);
    const std::tuple<const char*, int, const char*> sCases[] = {
        {"mirror @r @m", 1, "Another vkpublish is mirroring"},
        {"mirror @r @foreign --root @r/metadata/1.root.json", 1, "neither empty nor a mirror"},
        {"mirror @other @r --root @other/metadata/1.root.json", 1, "neither empty nor a mirror"},
        {"mirror @r @new", 1, "--root"},
        {"mirror @r @stranger --root @other/metadata/1.root.json", 1, "signatures"},
        {"mirror @r @r/copy", 2, "into itself"},
        {"mirror @r @new --netrc @none", 2, "can't be read"},
        {"mirror http://localhost/r @new", 2, "https://"},
        {"mirror https://me:pw@localhost/r @new", 2, "netrc"},
    };
    for (const auto& [tCommand, tStatus, tSays] : sCases) {
        const Program::Result tResult = run(tCommand);
        EXPECT_EQ(tResult.mStatus, tStatus) << tCommand;
        EXPECT_TRUE(tResult.mErr.contains(tSays)) << tCommand << ": " << tResult.mErr;
        EXPECT_EQ(tResult.mErr.count('\n'), 1) << tResult.mErr;
    }
    ::close(tFd);
    EXPECT_TRUE(run("mirror @r @m --root @other/metadata/1.root.json").mErr.contains("another root"));
    EXPECT_EQ(files("foreign"), QStringList{q("file")});
    expectWhole({sOne});
}

} // namespace

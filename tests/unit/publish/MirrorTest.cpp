// A copy of a repository, whatever happens to it and to its origin.
#include "mirror/Mirror.h"
#include "FaultyFileSystem.h"
#include "mirror/Origin.h"
#include "network/Receiver.h"
#include "PowerCut.h"
#include "publication/Verification.h"
#include "Publisher.h"
#include "TestRepository.h"
#include "TestServer.h"

#include <QtCore/QElapsedTimer>

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <algorithm>
#include <random>

using namespace tarn;
using namespace tarn::vkpublish;

namespace {

const QString sOne = q("a-1.0.0.0.tar.zst");
const QString sTwo = q("a-2.0.0.0.tar.zst");

// The folder of a repository that breaks every transfer after a block, and is gone after a number of them.
class BreakingOrigin : public Origin
{
public:
    BreakingOrigin(const QString& pFolder, int pTransfers)
        : mFolder(openOrigin(os::realFileSystem(), {false, pFolder}, {})), mLeft(pTransfers)
    {
    }

    tuf::Fetcher& metadata() override { return mFolder->metadata(); }
    Failure get(const QString& pPath, Receiver& pTo) override
    {
        OneBlock tBlock(pTo);
        return --mLeft < 0 ? Failure{Failure::Kind::Unreachable, q("gone")} : mFolder->get(pPath, tBlock);
    }

private:
    struct OneBlock : Receiver
    {
        explicit OneBlock(Receiver& pTo) : mTo(pTo) {}
        qint64 received() const override { return mTo.received(); }
        Failure restart() override { return mTo.restart(); }
        Failure write(QByteArrayView pData) override
        {
            const bool tBreaks = std::exchange(mHasOne, true);
            return tBreaks ? Failure{Failure::Kind::Unreachable, q("broken")} : mTo.write(pData);
        }
        Receiver& mTo;
        bool mHasOne = false;
    };

    std::unique_ptr<Origin> mFolder;
    int mLeft;
};

// A repository "r" with one package, mirrored into "m".
class MirrorTest : public PublisherTest
{
protected:
    MirrorTest()
    {
        write("f/data", readFile(q(VKPUBLISH)).first(50000));
        succeed("init @r --no-passphrase");
        succeed("add @r @f --name a --version 1 --level 1");
        succeed("publish @r");
        succeed("mirror @r @m --root @r/metadata/1.root.json");
        EXPECT_EQ(followAsClient("seen", "m"), sOne);
    }

    // The second version, with a delta, instead of the first.
    void change() const
    {
        write("f/data", readFile(q(VKPUBLISH)).first(50000) + "2"); // so much alike that a delta pays off
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
    Failure mirror(const MirrorJob& pJob = {}, const char* pFrom = "r")
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
        QStringList tProblems = verifyRepository(path("m"), readFile(path("r/metadata/1.root.json")),
                                                 QDateTime::currentDateTimeUtc())
                                    .mProblems;
        // The last new root may lack, and with it the key of a signature that machines do not need yet.
        tProblems.removeIf(
            [](const QString& pLine) { return pLine.contains(q("timestamp.json was changed")); });
        EXPECT_EQ(tProblems, QStringList());
    }

    // A package too large for one block.
    void changeMuch() const
    {
        std::mt19937 tNoise;
        QByteArray tMuch(3'000'000, '\0');
        std::generate(tMuch.begin(), tMuch.end(), [&] { return static_cast<char>(tNoise()); });
        write("f/noise", tMuch);
        change();
    }

    MirrorReport mReport;
};

TEST_F(MirrorTest, AKillOrAFullDiskAtAnyMomentLeavesAWholeState)
{
    change();
    succeed("rotate-key @r timestamp --no-passphrase");
    succeed("rotate-key @r root --no-passphrase");
    copy("m", "m.before");
    FaultyFileSystem tSound;
    QList<int> tMoments; // of other operations nothing can be seen
    tSound.mObserver = [&](int pNumber, const QByteArray& pWhat) {
        if (pWhat.contains(QByteArrayView("rename")) || pWhat.startsWith("unlink") || pWhat == "write" ||
            pWhat == "fsync" || pWhat.startsWith("mkdir")) {
            tMoments.append(pNumber);
        }
    };
    ASSERT_FALSE(mirror(tSound, {.mPruneSeconds = 0}));
    ASSERT_GT(tMoments.size(), 40);
    for (int i = 0; i < tMoments.size() * 2; i += momentStep()) {
        copy("m.before", "m");
        FaultyFileSystem tFileSystem;
        tFileSystem.mForGood = i % 2 == 0;
        tFileSystem.failAt(tMoments[i / 2], ENOSPC);
        const Failure tFailure = mirror(tFileSystem, {.mPruneSeconds = 0});
        SCOPED_TRACE(testing::Message() << tFileSystem.failed() << ", for good: " << tFileSystem.mForGood);
        expectWhole(tFailure ? QStringList{sOne, sTwo} : QStringList{sTwo});
        const Failure tAgain = mirror({.mPruneSeconds = 0});
        EXPECT_FALSE(tAgain) << tAgain.mText;
        EXPECT_FALSE(mirror({.mPruneSeconds = 0})) << "which removes what the first state named";
        expectWhole({sTwo});
        EXPECT_EQ(files("m/targets").size(), 3);
        EXPECT_EQ(mReport.mForeign, QStringList());
        EXPECT_EQ(files("m/.vk-mirror/incoming"), QStringList());
    }
}

TEST_F(MirrorTest, APowerCutAtAnyMomentLeavesAWholeState)
{
    change();
    copy("m", "m.before");
    for (const PowerCut::Loses tLoses : {PowerCut::Loses::BytesAndNames, PowerCut::Loses::Bytes}) {
        bool tCut = true;
        for (int i = 1; tCut; i += momentStep()) {
            SCOPED_TRACE(testing::Message() << "change " << i << ", " << static_cast<int>(tLoses));
            copy("m.before", "m");
            PowerCut tPower(path("m"), tLoses);
            tCut = tPower.during([this](os::FileSystem& pDisk) { (void)mirror(pDisk); }, i);
            expectWhole(tCut ? QStringList{sOne, sTwo} : QStringList{sTwo});
            EXPECT_FALSE(mirror());
            expectWhole({sTwo});
            ASSERT_LT(i, 200);
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
    ASSERT_FALSE(mirror({.mPruneSeconds = 0, .mNow = tNow.addYears(-50)}));
    EXPECT_EQ(tCount(), 1);
    EXPECT_EQ(mReport.mForeign, (QStringList{q("index.html"), q("targets/stranger")}));
    ASSERT_FALSE(mirror({.mPruneSeconds = 3600}));
    EXPECT_EQ(tCount(), 1) << "whatever the clock showed before";
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
    succeed("rotate-key @r snapshot --no-passphrase");
    QFile::remove(path("r/metadata/2.snapshot.json")); // nobody asks for these
    copy("m", "m.before");
    for (const char* tFolder : {"r/metadata/", "r/targets/"}) {
        for (const QString& tName : files(tFolder)) {
            const QString tPath = path(tFolder) + tName;
            const QByteArray tGood = readFile(tPath);
            if (tOld.contains(tName) && tName != q("timestamp.json")) {
                continue; // not asked for
            }
            for (const QByteArray& tBad :
                 {tGood.chopped(1), tGood + 'x', QByteArray(tGood).replace(10, 1, "~"), QByteArray()}) {
                SCOPED_TRACE(testing::Message() << qPrintable(tName) << ", " << tBad.size());
                copy("m.before", "m");
                tBad.isEmpty() ? void(QFile::remove(tPath)) : writeFile(tPath, tBad);
                const Failure tFailure = mirror();
                writeFile(tPath, tGood);
                const bool tMayLack = tBad.isEmpty() && tName == q("2.root.json"); // old keys sign as well
                EXPECT_EQ(bool(tFailure), !tMayLack);
                expectWhole({tMayLack ? sTwo : sOne});
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
    succeed("add @r @f --name b --version 1 --level 1");
    succeed("publish @r --targets-days 1");
    ASSERT_FALSE(mirror());
    EXPECT_LT(mReport.mExpires, QDateTime::currentDateTimeUtc().addDays(2));
    EXPECT_EQ(mirror({.mNow = QDateTime::currentDateTimeUtc().addDays(2)}).mKind, Failure::Kind::Expired);
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
                               tServer.caFile().toUtf8() + " --rate-limit 20";
    EXPECT_TRUE(run(tMirror).mErr.contains("401"));
    tServer.forgetRequests();
    EXPECT_TRUE(run(tMirror + " --netrc @netrc").mOut.startsWith("Nothing new"));
    EXPECT_EQ(tServer.requests(), QStringList{q("GET /private/metadata/timestamp.json 200 site")});

    change();
    const QString tArchive = files("r/targets").filter(sTwo).first();
    write("m/.vk-mirror/incoming/" + tArchive.left(64).toUtf8(),
          readFile(path("r/targets/") + tArchive).first(1000));
    tServer.forgetRequests();
    QElapsedTimer tTimer;
    tTimer.start();
    const Program::Result tResult = run(tMirror + " --netrc @netrc");
    EXPECT_TRUE(tResult.mOut.contains("3 files fetched")) << tResult.mOut << tResult.mErr;
    EXPECT_GE(tTimer.elapsed(), (QFileInfo(path("r/targets/") + tArchive).size() - 1000) * 1000 / 20480);
    const QStringList tTargets = tServer.requests().filter(q("/targets/"));
    EXPECT_EQ(tTargets.size(), 3) << tTargets.join(u'\n');
    EXPECT_TRUE(tTargets.contains(q("GET /private/targets/%1?range 206 site").arg(tArchive)));
    expectWhole({sTwo});
}

TEST_F(MirrorTest, ContinuesWhatBroke)
{
    changeMuch();
    MirrorJob tJob{.mNow = QDateTime::currentDateTimeUtc(), .mWait = [](int) {}};
    BreakingOrigin tGone(path("r"), 2);
    EXPECT_EQ(Mirror(os::realFileSystem(), path("m"), tGone).run(tJob, &mReport).mKind,
              Failure::Kind::Unreachable);
    expectWhole({sOne});
    EXPECT_GT(mReport.mBytes, 2'000'000);
    mReport = {};
    BreakingOrigin tBreaking(path("r"), 100);
    EXPECT_FALSE(Mirror(os::realFileSystem(), path("m"), tBreaking).run(tJob, &mReport));
    expectWhole({sTwo});
    EXPECT_LT(mReport.mBytes, 2'000'000);
}

TEST_F(MirrorTest, RemovesWhatItHasOfAStateThatNobodySaw)
{
    change();
    BreakingOrigin tGone(path("r"), 1);
    MirrorJob tJob{.mNow = QDateTime::currentDateTimeUtc(), .mWait = [](int) {}};
    EXPECT_TRUE(Mirror(os::realFileSystem(), path("m"), tGone).run(tJob, &mReport));
    EXPECT_EQ(files("m/targets").filter(sTwo).size(), 1);
    succeed("add @r @f --name a --version 3 --level 1");
    succeed("remove @r a --version 2");
    succeed("publish @r");
    for (int i = 0; i < 2; ++i) {
        EXPECT_FALSE(mirror({.mPruneSeconds = 0}));
        EXPECT_EQ(mReport.mForeign, QStringList());
    }
    EXPECT_EQ(files("m/targets").filter(sTwo), QStringList());
    expectWhole({q("a-3.0.0.0.tar.zst")});
}

TEST_F(MirrorTest, EndsWithServersThatStartAgainForever)
{
    HostileServer tServer(path("r"));
    changeMuch();
    copy("m", "m.before");
    for (const auto& [tWay, tArrives] : {std::pair("refuse", false), {"redirect", true}}) {
        SCOPED_TRACE(tWay);
        copy("m.before", "m");
        const auto tOrigin =
            openOrigin(os::realFileSystem(), {true, tServer.uri(q(tWay))}, {.mCaFile = tServer.caFile()});
        MirrorJob tJob{.mNow = QDateTime::currentDateTimeUtc(), .mWait = [](int) {}};
        const Failure tFailure = Mirror(os::realFileSystem(), path("m"), *tOrigin).run(tJob, &mReport);
        EXPECT_EQ(!tFailure, tArrives) << tFailure.mText;
        expectWhole({tArrives ? sTwo : sOne});
    }
}

// A repository in memory, with roles and targets that vkpublish does not make.
class MemoryOrigin : public Origin
{
public:
    tuf::Fetcher& metadata() override { return mRepository; }
    Failure get(const QString& pPath, Receiver& pTo) override
    {
        const QString tPath = QUrl::fromPercentEncoding(pPath.toLatin1());
        const QString tName = tPath.section(u'/', -1).section(u'.', 1);
        for (const TestRepository::Role& tRole : mRepository.mRoles) {
            for (auto tIt = tRole.mTargets.begin(); tIt != tRole.mTargets.end(); ++tIt) {
                if (tIt.key().section(u'/', -1) == tName) {
                    return pTo.write(tIt.value());
                }
            }
        }
        return {Failure::Kind::NotFound, pPath};
    }

    void offer(const QStringList& pNames)
    {
        QMap<QString, QByteArray>& tTargets = mRepository.mRoles[sTargetsRole].mTargets;
        tTargets.clear();
        for (const QString& tName : pNames) {
            tTargets.insert(tName, "content");
        }
        mRepository.publishTargets(sTargetsRole);
        mRepository.publish();
    }
    Failure mirror(const QString& pTo, MirrorReport* pReport)
    {
        const MirrorJob tJob{
            .mRoot = mRepository.mFiles[q("1.root.json")], .mPruneSeconds = 0, .mNow = TestRepository::now()};
        return Mirror(os::realFileSystem(), pTo, *this).run(tJob, pReport);
    }

    TestRepository mRepository;
};

TEST_F(MirrorTest, CopiesDelegatedRolesAndNoNameThatLeadsOut)
{
    const std::tuple<const char*, const char*, bool> sCases[] = {
        {"vendor", "vendor/x", true}, {"100%", "a/b/odd ?#%", true}, {"a/b", "x", true},
        {"../../x", "x", false},      {"vendor", "../../x", false},  {"vendor", "a//x", false},
    };
    for (const auto& [tRole, tTarget, tIsGood] : sCases) {
        SCOPED_TRACE(testing::Message() << tRole << ", " << tTarget);
        MemoryOrigin tOrigin;
        TestRepository& tRepository = tOrigin.mRepository;
        tRepository.delegate(sTargetsRole, q(tRole), {q("*"), q("*/*"), q("*/*/*")});
        tRepository.mRoles[q(tRole)].mTargets = {{q(tTarget), "content"}};
        tRepository.publishTargets(q(tRole));
        tRepository.publish();
        QDir(path("n")).removeRecursively();
        QDir(path("machine")).removeRecursively();
        const QByteArray tRoot = tRepository.mFiles[q("1.root.json")];
        const Failure tFailure = Mirror(os::realFileSystem(), path("n/in/side"), tOrigin)
                                     .run({.mRoot = tRoot, .mNow = TestRepository::now()}, &mReport);
        EXPECT_EQ(tFailure.mKind, tIsGood ? Failure::Kind::None : Failure::Kind::Untrusted) << tFailure.mText;
        EXPECT_EQ(QDir(path("n/in")).entryList(QDir::AllEntries | QDir::NoDotAndDotDot),
                  QStringList{q("side")});
        if (tIsGood) {
            FolderFetcher tFrom(os::realFileSystem(), path("n/in/side/metadata"));
            (void)tuf::Updater::initialize(os::realFileSystem(), path("machine"), tRoot);
            tuf::Updater tMachine(os::realFileSystem(), path("machine"), tFrom, TestRepository::now());
            std::optional<tuf::TargetFile> tFound;
            EXPECT_FALSE(tMachine.refresh());
            EXPECT_FALSE(tMachine.findTarget(q(tTarget), &tFound));
            ASSERT_TRUE(tFound);
            EXPECT_EQ(readFile(path("n/in/side/targets/") +
                               QUrl::fromPercentEncoding(tFound->mFetchPath.toLatin1())),
                      "content");
        }
    }
    MemoryOrigin tPlain;
    tPlain.mRepository.mConsistentSnapshot = false;
    tPlain.mRepository.publishRoot();
    tPlain.mRepository.publish();
    QDir(path("n")).removeRecursively();
    EXPECT_TRUE(
        Mirror(os::realFileSystem(), path("n"), tPlain)
            .run({.mRoot = tPlain.mRepository.mFiles[q("1.root.json")], .mNow = TestRepository::now()},
                 &mReport)
            .mText.contains(q("can't be mirrored")));
}

// Two names for the same bytes, of which one looks like a leftover of the other.
TEST_F(MirrorTest, PrunesNoFileThatIsNamed)
{
    MemoryOrigin tOrigin;
    for (const QStringList& tNames : {QStringList{q("x"), q("x.new")}, {q("x.new")}, {q("x.new")}}) {
        tOrigin.offer(tNames);
        EXPECT_FALSE(tOrigin.mirror(path("n"), &mReport));
        EXPECT_EQ(files("n/targets").filter(q(".x.new")).size(), 1);
    }
    EXPECT_EQ(files("n/targets").size(), 1);
}

TEST_F(MirrorTest, FollowsNoLinkOutOfItsFolder)
{
    MemoryOrigin tOrigin;
    tOrigin.offer({q("in/x")});
    EXPECT_FALSE(tOrigin.mirror(path("n"), &mReport));
    for (const auto& [tName, tEnds] :
         {std::pair("n/metadata/timestamp.json", true), {"n/targets/in", false}}) {
        QFile::remove(path("away"));
        QDir().rename(path(tName), path("away"));
        QFile::link(path("away"), path(tName));
        EXPECT_EQ(!tOrigin.mirror(path("n"), &mReport), tEnds) << tName;
        EXPECT_EQ(QFileInfo(path(tName)).isSymLink(), !tEnds) << tName;
    }
    tOrigin.offer({});
    EXPECT_FALSE(tOrigin.mirror(path("n"), &mReport));
    EXPECT_EQ(tOrigin.mirror(path("n"), &mReport).mKind, Failure::Kind::Person);
    EXPECT_EQ(files("away").size(), 1);
}

TEST_F(MirrorTest, RefusesInOneLine)
{
    write("foreign/file", "x");
    succeed("init @other --no-passphrase");
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
        {"mirror @r @new --netrc @foreign", 2, "can't be read"},
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

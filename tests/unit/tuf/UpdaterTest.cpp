#include "ClientTest.h"
#include "FaultyFileSystem.h"

using namespace tarn::tuf;
using tarn::vkservice::os::FileSystem;

namespace {

const char* const sFirst = "root 1, snapshot 1, targets 1, timestamp 1";

using UpdaterTest = ClientTest;

TEST_F(UpdaterTest, StoresEachFileAsItWasServed)
{
    ASSERT_FALSE(refresh());
    EXPECT_EQ(requests(), "2.root.json, timestamp.json, 1.snapshot.json, 1.targets.json");
    EXPECT_EQ(stored(), sFirst);
    EXPECT_FALSE(mUpdater->unchanged());
    EXPECT_EQ(read(q("timestamp.json")), mRepository.mFiles[q("timestamp.json")]);
    EXPECT_EQ(read(q("targets.json")), mRepository.mFiles[q("1.targets.json")]);
}

TEST_F(UpdaterTest, ARunWithoutNewsAsksForRootAndTimestampAlone)
{
    ASSERT_FALSE(refresh());
    ASSERT_FALSE(refresh());
    EXPECT_EQ(requests(), "2.root.json, timestamp.json");
    EXPECT_TRUE(mUpdater->unchanged());
    std::optional<TargetFile> tTarget;
    EXPECT_GOOD(mUpdater->findTarget(q("hello"), &tTarget));
    EXPECT_TRUE(tTarget);

    mRepository.publishTimestamp(); // signed anew, nothing else
    ASSERT_FALSE(refresh());
    EXPECT_EQ(requests(), "2.root.json, timestamp.json");
    EXPECT_FALSE(mUpdater->unchanged());
    EXPECT_EQ(stored(), "root 1, snapshot 1, targets 1, timestamp 2");
}

TEST_F(UpdaterTest, ATimestampOfTheSameVersionIsNotTaken)
{
    ASSERT_FALSE(refresh());
    const QByteArray tTrusted = read(q("timestamp.json"));
    mRepository.publishTargets();
    mRepository.publishSnapshot();
    mRepository.mRoles[sTimestampRole].mVersion = 0;
    mRepository.publishTimestamp();
    EXPECT_GOOD(refresh());
    EXPECT_EQ(read(q("timestamp.json")), tTrusted);
    EXPECT_EQ(stored(), sFirst);
}

TEST_F(UpdaterTest, ExpiredLocalFilesLeadToNewOnes)
{
    ASSERT_FALSE(refresh());
    mNow = mNow.addDays(40);
    for (const QString& tRole : {sTimestampRole, sSnapshotRole, sTargetsRole}) {
        mRepository.mRoles[tRole].mExpires = mNow.addDays(1);
    }
    mRepository.publish();
    EXPECT_GOOD(refresh());
    EXPECT_EQ(stored(), "root 1, snapshot 2, targets 2, timestamp 2");

    // An expired timestamp still says what must not be rolled back.
    mNow = mNow.addDays(40);
    mRepository.mRoles[sTimestampRole] = {
        mRepository.mRoles[sTimestampRole].mKeys, 1, 0, mNow.addDays(1), {}, {}};
    mRepository.publishTimestamp();
    EXPECT_EQ(refresh().mKind, ErrorKind::OutOfDate);
    EXPECT_EQ(stored(), "root 1, snapshot 2, targets 2, timestamp 2");
}

TEST_F(UpdaterTest, DamagedLocalFilesCountAsAbsent)
{
    for (const char* tName : {"timestamp.json", "snapshot.json", "targets.json"}) {
        SCOPED_TRACE(tName);
        ASSERT_FALSE(refresh());
        for (const QByteArray& tContent :
             {QByteArray(), QByteArray("{\"signed\""), QByteArray(20 << 20, 'x'), read(q("root.json"))}) {
            write(q(tName), tContent);
            EXPECT_GOOD(refresh());
            EXPECT_EQ(stored(), sFirst);
        }
    }
    write(sRootRole + q(".json"), "{}");
    EXPECT_EQ(refresh().mKind, ErrorKind::Local);
    EXPECT_EQ(requests(), "");
}

// What a machine has refused as expired stays so when its clock goes back, until there is a newer one.
TEST_F(UpdaterTest, AClockThatIsSetBackBringsNothingBackToLife)
{
    ASSERT_FALSE(refresh());
    const QDateTime tBegin = mNow;
    for (const bool tNewer : {false, true}) { // than the timestamp that is trusted
        if (tNewer) {
            mRepository.mRoles[sTimestampRole].mExpires = tBegin.addDays(60);
            mRepository.publishTimestamp();
        }
        mNow = mRepository.mRoles[sTimestampRole].mExpires.addDays(1);
        mRepository.mRoles[sRootRole].mExpires = mNow.addDays(900);
        mRepository.publishRoot();
        EXPECT_EQ(refresh().mKind, ErrorKind::Expired);
        mNow = tBegin;
        const Error tError = refresh();
        EXPECT_EQ(tError.mKind, ErrorKind::Expired);
        EXPECT_TRUE(tError.mText.contains(q("clock"))) << tError.mText;
        EXPECT_EQ(Updater::provenTime(tarn::vkservice::os::realFileSystem(), mDir),
                  mRepository.mRoles[sTimestampRole].mExpires);
    }
    mRepository.mRoles[sTimestampRole].mKeys = {TestRepository::newKey()};
    mRepository.publishRoot();
    mRepository.publishTimestamp();
    EXPECT_GOOD(refresh()); // the old keys prove nothing any more
}

// The next timestamp puts an end to it, also where the files below it expire earlier than the refused one.
TEST_F(UpdaterTest, AClockThatWasAheadCostsOneTimestamp)
{
    ASSERT_FALSE(refresh());
    const QDateTime tBegin = mNow;
    mNow = tBegin.addYears(80);
    mRepository.mRoles[sRootRole].mExpires = mNow.addDays(900);
    mRepository.mRoles[sTimestampRole].mVersion = 2;
    mRepository.mRoles[sTimestampRole].mExpires = tBegin.addDays(60);
    mRepository.publishRoot();
    mRepository.publishTimestamp();
    const QByteArray tNewer = mRepository.mFiles[q("timestamp.json")];
    EXPECT_EQ(refresh().mKind, ErrorKind::Expired);

    // What is shown later and is older than the refused one takes nothing back.
    mRepository.mRoles[sTimestampRole].mVersion = 1;
    mRepository.mRoles[sTimestampRole].mExpires = tBegin.addDays(59);
    mRepository.publishTimestamp();
    EXPECT_EQ(refresh().mKind, ErrorKind::Expired);
    mNow = tBegin;
    EXPECT_EQ(refresh().mKind, ErrorKind::Expired);
    mRepository.mFiles[q("timestamp.json")] = tNewer;
    EXPECT_EQ(refresh().mKind, ErrorKind::Expired);

    mRepository.mRoles[sTimestampRole].mVersion = 3;
    mRepository.publishTimestamp();
    EXPECT_GOOD(refresh());
}

TEST_F(UpdaterTest, TheTimeOfSigningIsTheLeastThatTheClockCanBe)
{
    const struct
    {
        const char* mName;
        int mSignedAt; // days from now, as are the others
        int mTimestampExpires;
        int mTargetsExpires;
        int mRootExpires;
        ErrorKind mExpected;
    } sCases[] = {
        {"all is younger", 10, 20, 15, 99, ErrorKind::None},
        {"targets had expired when the timestamp was signed", 10, 20, 5, 99, ErrorKind::Expired},
        {"so had the root", 10, 20, 15, 5, ErrorKind::Expired},
        {"signed after its own expiry, which counts for nothing", 30, 20, 5, 99, ErrorKind::None},
    };
    for (const auto& tCase : sCases) {
        SCOPED_TRACE(tCase.mName);
        initialize();
        mRepository = TestRepository();
        initialize();
        mRepository.mSignedAt = mNow.addDays(tCase.mSignedAt);
        mRepository.mRoles[sTimestampRole].mExpires = mNow.addDays(tCase.mTimestampExpires);
        mRepository.mRoles[sTargetsRole].mExpires = mNow.addDays(tCase.mTargetsExpires);
        mRepository.mRoles[sRootRole].mExpires = mNow.addDays(tCase.mRootExpires);
        mRepository.publishRoot();
        mRepository.publish();
        EXPECT_EQ(refresh().mKind, tCase.mExpected);
    }
}

TEST_F(UpdaterTest, AServerWithoutTheNewestRootIsOutOfDate)
{
    const QMap<QString, QByteArray> tOld = mRepository.mFiles;
    mRepository.mRoles[sTimestampRole].mKeys = {TestRepository::newKey()};
    mRepository.publishRoot();
    mRepository.publish();
    ASSERT_FALSE(refresh());
    mRepository.mFiles = tOld;
    EXPECT_EQ(refresh().mKind, ErrorKind::OutOfDate);
    EXPECT_EQ(stored(), "root 2, snapshot 2, targets 2, timestamp 2");
}

TEST_F(UpdaterTest, FollowsRootsOneByOne)
{
    SigningKey tOld = mRepository.mRoles[sRootRole].mKeys.first();
    for (int i = 0; i < 4; ++i) {
        mRepository.mRoles[sRootRole].mKeys = {TestRepository::newKey()};
        // Only the last one has to be young.
        mRepository.mRoles[sRootRole].mExpires = mNow.addDays(i - 3).addSecs(1);
        mRepository.publishRoot({tOld});
        tOld = mRepository.mRoles[sRootRole].mKeys.first();
    }
    EXPECT_GOOD(refresh());
    EXPECT_EQ(requests(), "2.root.json, 3.root.json, 4.root.json, 5.root.json, 6.root.json, timestamp.json, "
                          "1.snapshot.json, 1.targets.json");
    EXPECT_EQ(stored(), "root 5, snapshot 1, targets 1, timestamp 1");
}

TEST_F(UpdaterTest, ABrokenStepKeepsTheRootsBeforeIt)
{
    mRepository.publishRoot();
    mRepository.publishRoot();
    mRepository.mFiles[q("3.root.json")].replace("consistent", "inconsistent");
    EXPECT_EQ(refresh().mKind, ErrorKind::Untrusted);
    EXPECT_EQ(stored(), "root 2");
}

TEST_F(UpdaterTest, BoundsTheNumberOfRoots)
{
    mLimits.mMaxRootRotations = 2;
    for (int i = 0; i < 3; ++i) {
        mRepository.publishRoot();
    }
    EXPECT_GOOD(refresh());
    EXPECT_EQ(stored(), "root 3, snapshot 1, targets 1, timestamp 1");
    EXPECT_GOOD(refresh()); // and goes on the next time
    EXPECT_EQ(stored(), "root 4, snapshot 1, targets 1, timestamp 1");
}

TEST_F(UpdaterTest, RootNeedsThresholdsOfOldAndNew)
{
    const QList<SigningKey> tThree{TestRepository::newKey(), TestRepository::newKey(),
                                   TestRepository::newKey()};
    const SigningKey tFirst = mRepository.mRoles[sRootRole].mKeys.first();
    mRepository.mRoles[sRootRole].mKeys = tThree;
    mRepository.mRoles[sRootRole].mThreshold = 2;
    mRepository.mRoles[sRootRole].mVersion = 2;
    const struct
    {
        QList<SigningKey> mSigners;
        ErrorKind mExpected;
    } sCases[] = {{{tThree[0], tThree[1]}, ErrorKind::Untrusted},
                  {{tFirst, tThree[0]}, ErrorKind::Untrusted},
                  {{tFirst}, ErrorKind::Untrusted},
                  {{tFirst, tThree[0], tThree[2]}, ErrorKind::None}};
    for (const auto& tCase : sCases) {
        mRepository.serve(sRootRole, signMetadata(mRepository.rootJson(), tCase.mSigners));
        EXPECT_EQ(refresh().mKind, tCase.mExpected);
    }
}

TEST_F(UpdaterTest, RecoversFromFastForwardWhenKeysChange)
{
    // Whoever had the keys has used up all numbers.
    for (const QString& tRole : {sTimestampRole, sSnapshotRole}) {
        mRepository.mRoles[tRole].mVersion = 9000000;
    }
    mRepository.publishSnapshot();
    mRepository.publishTimestamp();
    ASSERT_FALSE(refresh());
    EXPECT_EQ(stored(), "root 1, snapshot 9000001, targets 1, timestamp 9000001");
    for (const QString& tRole : {sTimestampRole, sSnapshotRole}) {
        mRepository.mRoles[tRole].mKeys = {TestRepository::newKey()};
        mRepository.mRoles[tRole].mVersion = 1;
    }
    mRepository.publishRoot();
    mRepository.publish();
    EXPECT_GOOD(refresh());
    EXPECT_EQ(stored(), "root 2, snapshot 2, targets 2, timestamp 2");
}

TEST_F(UpdaterTest, RecoversTargetsWhenTheSnapshotKeyChanges)
{
    mRepository.mRoles[sTargetsRole].mVersion = 9000000;
    mRepository.publish();
    ASSERT_FALSE(refresh());
    mRepository.mRoles[sTargetsRole].mVersion = 1;
    mRepository.mRoles[sSnapshotRole].mKeys = {TestRepository::newKey()};
    mRepository.publishRoot();
    mRepository.publish();
    EXPECT_GOOD(refresh());
    EXPECT_EQ(stored(), "root 2, snapshot 3, targets 2, timestamp 3");
}

TEST_F(UpdaterTest, ARemovedKeyIsForgottenAlsoWhenItComesBack)
{
    // The timestamp's key goes and returns within one refresh: what it signed in between times must not bind.
    mRepository.mRoles[sTimestampRole].mVersion = 9000000;
    mRepository.publishTimestamp();
    ASSERT_FALSE(refresh());
    const QList<SigningKey> tKeys = mRepository.mRoles[sTimestampRole].mKeys;
    mRepository.mRoles[sTimestampRole].mKeys = {TestRepository::newKey()};
    mRepository.publishRoot();
    mRepository.mRoles[sTimestampRole].mKeys = tKeys;
    mRepository.publishRoot();
    mRepository.mRoles[sTimestampRole].mVersion = 1;
    mRepository.publishTimestamp();
    EXPECT_GOOD(refresh());
    EXPECT_EQ(stored(), "root 3, snapshot 1, targets 1, timestamp 2");
}

TEST_F(UpdaterTest, RepositoryWithoutConsistentSnapshots)
{
    mRepository.mConsistentSnapshot = false;
    mRepository.publishRoot();
    mRepository.publish();
    EXPECT_GOOD(refresh());
    EXPECT_EQ(requests(), "2.root.json, 3.root.json, timestamp.json, snapshot.json, targets.json");
    std::optional<TargetFile> tTarget;
    EXPECT_GOOD(mUpdater->findTarget(q("hello"), &tTarget));
    EXPECT_EQ(tTarget->mFetchPath, q("hello"));
}

TEST_F(UpdaterTest, TellsTheFetcherHowMuchItTakes)
{
    ASSERT_FALSE(refresh());
    EXPECT_EQ(mRepository.mMaxLengths[q("2.root.json")], mLimits.mRootLength);
    EXPECT_EQ(mRepository.mMaxLengths[q("timestamp.json")], mLimits.mTimestampLength);
    EXPECT_EQ(mRepository.mMaxLengths[q("1.targets.json")], mRepository.mFiles[q("1.targets.json")].size());
}

TEST_F(UpdaterTest, InitializeReplacesWhatWasThereAndRefusesABadRoot)
{
    ASSERT_FALSE(refresh());
    FileSystem& tFileSystem = tarn::vkservice::os::realFileSystem();
    QByteArray tBad = mRepository.mFiles[q("1.root.json")];
    EXPECT_TRUE(Updater::initialize(tFileSystem, mDir, tBad.replace("2027", "2037")));
    EXPECT_EQ(stored(), sFirst);
    EXPECT_FALSE(Updater::initialize(tFileSystem, mDir, mRepository.mFiles[q("1.root.json")]));
    EXPECT_EQ(stored(), "root 1");
    write(q("file"), "");
    EXPECT_EQ(
        Updater::initialize(tFileSystem, mDir + q("/file/below"), mRepository.mFiles[q("1.root.json")]).mKind,
        ErrorKind::Local);
}

// Every file operation of a refresh that follows a key rotation fails in turn.
TEST_F(UpdaterTest, AnyFailureOfTheDiskIsReportedAndMadeGoodByTheNextRun)
{
    mRepository.mRoles[sSnapshotRole].mKeys = {TestRepository::newKey()};
    mRepository.publishRoot();
    mRepository.publish();
    for (const bool tForGood : {true, false}) {
        bool tFailed = true;
        for (int i = 1; tFailed; ++i) {
            initialize();
            write(q("snapshot.json"), mRepository.mFiles[q("1.snapshot.json")]);
            FaultyFileSystem tFileSystem;
            tFileSystem.mForGood = tForGood;
            tFileSystem.failAt(i, ENOSPC);
            Updater tUpdater(tFileSystem, mDir, mRepository, mNow);
            const Error tError = tUpdater.refresh();
            tFailed = tFileSystem.hasFailed();
            SCOPED_TRACE(testing::Message() << i << ": " << tFileSystem.failed());
            // To close a file that was read takes nothing away from what was read.
            const bool tHarmless =
                !tFailed || (tFileSystem.failed() == "close" && (!tForGood || tFileSystem.count() == i));
            EXPECT_EQ(tError.mKind, tHarmless ? ErrorKind::None : ErrorKind::Local) << tError.mText;
            EXPECT_GOOD(refresh());
            EXPECT_EQ(stored(), "root 2, snapshot 2, targets 2, timestamp 2");
            ASSERT_LT(i, 200);
        }
    }
}

} // namespace

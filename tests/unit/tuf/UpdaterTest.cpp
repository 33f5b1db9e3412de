#include "ClientTest.h"
#include "FaultyFileSystem.h"

using namespace tarn::tuf;
using tarn::os::FileSystem;

namespace {

const char* const sFirst = "root 1, snapshot 1, targets 1, timestamp 1";

using UpdaterTest = ClientTest;

TEST_F(UpdaterTest, StoresEachFileAndAsksForRootAndTimestampAloneWithoutNews)
{
    for (const bool tAgain : {false, true}) {
        ASSERT_FALSE(refresh());
        EXPECT_EQ(requests(), q("2.root.json, timestamp.json%1")
                                  .arg(q(tAgain ? "" : ", 1.snapshot.json, 1.targets.json"))
                                  .toStdString());
        EXPECT_EQ(stored(), sFirst);
        EXPECT_EQ(mUpdater->unchanged(), tAgain);
        EXPECT_EQ(read(q("targets.json")), mRepository.mFiles[q("1.targets.json")]);
    }
    std::optional<TargetFile> tTarget;
    EXPECT_GOOD(mUpdater->findTarget(q("hello"), &tTarget));
    EXPECT_TRUE(tTarget);
    mRepository.publishTimestamp(); // signed again, unchanged
    ASSERT_FALSE(refresh());
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
    EXPECT_EQ(refresh().mKind, Failure::Kind::Damaged);
    EXPECT_EQ(requests(), "");
}

// What a machine has refused as expired stays refused when its clock is set back, until there is a newer one.
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
        EXPECT_EQ(refresh().mKind, Failure::Kind::Expired);
        mNow = tBegin;
        const Failure tFailure = refresh();
        EXPECT_EQ(tFailure.mKind, Failure::Kind::Expired);
        EXPECT_TRUE(tFailure.mText.contains(q("clock"))) << tFailure.mText;
        EXPECT_EQ(Updater::provenTime(tarn::os::realFileSystem(), mDir),
                  mRepository.mRoles[sTimestampRole].mExpires);
    }
    mRepository.mRoles[sTimestampRole].mKeys = {TestRepository::newKey()};
    mRepository.publishRoot();
    mRepository.publishTimestamp();
    EXPECT_GOOD(refresh()); // the old keys are no longer accepted
}

// The next timestamp resolves it, even if other files expire before the refused one.
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
    EXPECT_EQ(refresh().mKind, Failure::Kind::Expired);

    // Older metadata than the refused one does not lift the refusal.
    mRepository.mRoles[sTimestampRole].mVersion = 1;
    mRepository.mRoles[sTimestampRole].mExpires = tBegin.addDays(59);
    mRepository.publishTimestamp();
    EXPECT_EQ(refresh().mKind, Failure::Kind::Expired);
    mNow = tBegin;
    EXPECT_EQ(refresh().mKind, Failure::Kind::Expired);
    mRepository.mFiles[q("timestamp.json")] = tNewer;
    EXPECT_EQ(refresh().mKind, Failure::Kind::Expired);

    mRepository.mRoles[sTimestampRole].mVersion = 3;
    mRepository.publishTimestamp();
    EXPECT_GOOD(refresh());
}

TEST_F(UpdaterTest, TheTimeOfSigningIsTheLeastThatTheClockCanBe)
{
    // Days from now: when the timestamp was signed; when the targets and the root expire.
    const int sCases[][4] = {{10, 15, 99, true},
                             {10, 5, 99, false},
                             {10, 15, 5, false},
                             {30, 5, 99, true}}; // signed after its own expiry, which is ignored
    for (const auto& [tSigned, tTargets, tRoot, tGood] : sCases) {
        SCOPED_TRACE(testing::Message() << tSigned << ' ' << tTargets << ' ' << tRoot);
        mRepository = TestRepository();
        initialize();
        mRepository.mSignedAt = mNow.addDays(tSigned);
        mRepository.mRoles[sTimestampRole].mExpires = mNow.addDays(20);
        mRepository.mRoles[sTargetsRole].mExpires = mNow.addDays(tTargets);
        mRepository.mRoles[sRootRole].mExpires = mNow.addDays(tRoot);
        mRepository.publishRoot();
        mRepository.publish();
        EXPECT_EQ(refresh().mKind, tGood != 0 ? Failure::Kind::None : Failure::Kind::Expired);
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
    EXPECT_EQ(refresh().mKind, Failure::Kind::OutOfDate);
    EXPECT_EQ(stored(), "root 2, snapshot 2, targets 2, timestamp 2");
}

TEST_F(UpdaterTest, FollowsRootsOneByOne)
{
    SigningKey tOld = mRepository.mRoles[sRootRole].mKeys.first();
    for (int i = 0; i < 4; ++i) {
        mRepository.mRoles[sRootRole].mKeys = {TestRepository::newKey()};
        // Only the last one must not have expired.
        mRepository.mRoles[sRootRole].mExpires = mNow.addDays(i - 3).addSecs(1);
        mRepository.publishRoot({tOld});
        tOld = mRepository.mRoles[sRootRole].mKeys.first();
    }
    EXPECT_GOOD(refresh());
    EXPECT_EQ(requests(), "2.root.json, 3.root.json, 4.root.json, 5.root.json, 6.root.json, timestamp.json, "
                          "1.snapshot.json, 1.targets.json");
    EXPECT_EQ(stored(), "root 5, snapshot 1, targets 1, timestamp 1");
}

TEST_F(UpdaterTest, BoundsTheNumberOfRoots)
{
    mLimits.mMaxRootRotations = 2;
    for (int i = 0; i < 3; ++i) {
        mRepository.publishRoot();
    }
    EXPECT_GOOD(refresh());
    EXPECT_EQ(stored(), "root 3, snapshot 1, targets 1, timestamp 1");
    EXPECT_GOOD(refresh()); // and continues the next time
    EXPECT_EQ(stored(), "root 4, snapshot 1, targets 1, timestamp 1");
}

TEST_F(UpdaterTest, RootNeedsThresholdsOfOldAndNew)
{
    const SigningKey tOld = mRepository.mRoles[sRootRole].mKeys.first();
    const SigningKey tNew[] = {TestRepository::newKey(), TestRepository::newKey(), TestRepository::newKey()};
    mRepository.mRoles[sRootRole] = {{tNew[0], tNew[1], tNew[2]}, 2, 2, mNow.addDays(1), {}, {}};
    for (const QList<SigningKey>& tSigners :
         {QList{tNew[0], tNew[1]}, {tOld, tNew[0]}, {tOld}, {tOld, tNew[0], tNew[2]}}) {
        mRepository.serve(sRootRole, signMetadata(mRepository.rootJson(), tSigners));
        EXPECT_EQ(refresh().mKind, tSigners.size() == 3 ? Failure::Kind::None : Failure::Kind::Untrusted);
    }
}

TEST_F(UpdaterTest, RecoversFromFastForwardWhenKeysChange)
{
    const std::pair<QStringList, QStringList> sCases[] = {
        {{sTimestampRole, sSnapshotRole}, {sTimestampRole, sSnapshotRole}},
        {{sSnapshotRole}, {sSnapshotRole}},
        {{sTargetsRole}, {sSnapshotRole}}};
    for (const auto& [tForwarded, tChanged] : sCases) {
        mRepository = TestRepository();
        initialize();
        for (const qint64 tVersion : {9000000, 1}) { // an attacker with the keys used up all versions
            for (const QString& tRole : tForwarded) {
                mRepository.mRoles[tRole].mVersion = tVersion;
            }
            mRepository.publish();
            EXPECT_EQ(refresh().mKind, tVersion == 1 ? Failure::Kind::OutOfDate : Failure::Kind::None);
        }
        for (const QString& tRole : tChanged) {
            mRepository.mRoles[tRole].mKeys = {TestRepository::newKey()};
        }
        mRepository.publishRoot();
        mRepository.publish();
        EXPECT_GOOD(refresh());
        EXPECT_EQ(stored().find("9000001"), std::string::npos) << stored();
    }
}

TEST_F(UpdaterTest, ARemovedKeyIsForgottenAlsoWhenItComesBack)
{
    // The timestamp's key is removed and returns within one refresh: what it signed before must not count.
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

TEST_F(UpdaterTest, TellsTheFetcherHowMuchItTakes)
{
    mRepository.mConsistentSnapshot = false;
    mRepository.publishRoot();
    mRepository.publish();
    EXPECT_GOOD(refresh());
    EXPECT_EQ(requests(), "2.root.json, 3.root.json, timestamp.json, snapshot.json, targets.json");
    EXPECT_EQ(mRepository.mMaxLengths[q("2.root.json")], mLimits.mRootLength);
    EXPECT_EQ(mRepository.mMaxLengths[q("timestamp.json")], mLimits.mTimestampLength);
    EXPECT_EQ(mRepository.mMaxLengths[q("targets.json")], mRepository.mFiles[q("targets.json")].size());
    std::optional<TargetFile> tTarget;
    EXPECT_GOOD(mUpdater->findTarget(q("hello"), &tTarget));
    EXPECT_EQ(tTarget->mFetchPath, q("hello"));
}

TEST_F(UpdaterTest, AsksAheadForWhatTheTimestampNames)
{
    mRepository.mStatedTargets = 2;
    mRepository.publish();
    EXPECT_GOOD(refresh());
    EXPECT_EQ(requests(), "2.root.json, timestamp.json, 2.snapshot.json, 2.targets.json");
    EXPECT_EQ(mRepository.mTogether, 1);

    const auto tRefreshKnowing = [this] { // the timestamp
        mRepository.mRequests.clear();
        mRepository.mTogether = 0;
        mUpdater.emplace(tarn::os::realFileSystem(), mDir, mRepository, mNow, mLimits);
        return mUpdater->refresh(mRepository.mFiles[q("timestamp.json")]);
    };
    const QByteArray tOther(mLimits.mTargetsLength + 1, ' ');
    const std::tuple<qint64, QByteArray, const char*> sCases[] = {
        // The version that the timestamp states, what the server first sends as 4.targets.json, and what is
        // asked for behind root and snapshot.
        {0, {}, ", 3.targets.json"},
        {3, {}, ", 3.targets.json"},
        {2, {}, ", 3.targets.json"},
        {4, {}, ", 4.targets.json, 3.targets.json"},
        {4, tOther, ", 4.targets.json, 3.targets.json"}, // too long
    };
    for (const auto& [tStated, tFile, tBehind] : sCases) {
        SCOPED_TRACE(testing::Message() << tStated << ' ' << tFile.size());
        const QTemporaryDir tKeep;
        for (const QString& tName : QDir(mDir).entryList(QDir::Files)) {
            QFile::copy(mDir + u'/' + tName, tKeep.filePath(tName));
        }
        const TestRepository tBefore = mRepository;
        mRepository.mStatedTargets = tStated;
        mRepository.publish();
        if (!tFile.isEmpty()) {
            mRepository.mFiles[q("4.targets.json")] = tFile;
        }
        EXPECT_GOOD(tRefreshKnowing());
        EXPECT_EQ(requests(), "2.root.json, 3.snapshot.json" + std::string(tBehind));
        EXPECT_EQ(mRepository.mTogether, 1);
        EXPECT_EQ(stored(), "root 1, snapshot 3, targets 3, timestamp 3");
        mRepository = tBefore;
        for (const QString& tName : QDir(mDir).entryList(QDir::Files)) {
            QFile::remove(mDir + u'/' + tName);
            QFile::copy(tKeep.filePath(tName), mDir + u'/' + tName);
        }
    }

    // What was damaged when it came too early is asked for again in its turn.
    mRepository.mStatedTargets = 3;
    mRepository.publish();
    mRepository.mSpoilTogether = true;
    EXPECT_GOOD(tRefreshKnowing());
    EXPECT_EQ(requests(), "2.root.json, 3.snapshot.json, 3.targets.json, 3.snapshot.json, 3.targets.json");

    // By the word of the new root alone.
    mRepository.mSpoilTogether = false;
    mRepository.mStatedTargets = 4;
    mRepository.mRoles[sTimestampRole].mKeys = {TestRepository::newKey()};
    const QByteArray tOld = mRepository.mFiles[q("timestamp.json")];
    mRepository.publishRoot();
    mRepository.publish();
    mRepository.mRequests.clear();
    EXPECT_GOOD(mUpdater->refresh(tOld));
    EXPECT_EQ(requests(), "2.root.json, 3.root.json, timestamp.json, 4.snapshot.json, 4.targets.json");
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
            const Failure tFailure = tUpdater.refresh();
            tFailed = tFileSystem.hasFailed();
            SCOPED_TRACE(testing::Message() << i << ": " << tFileSystem.failed());
            // A failure to close does not affect a file that was read.
            const bool tHarmless =
                !tFailed || (tFileSystem.failed() == "close" && (!tForGood || tFileSystem.count() == i));
            EXPECT_EQ(tFailure.mKind, tHarmless ? Failure::Kind::None : Failure::Kind::Damaged)
                << tFailure.mText;
            EXPECT_GOOD(refresh());
            EXPECT_EQ(stored(), "root 2, snapshot 2, targets 2, timestamp 2");
            ASSERT_LT(i, 200);
        }
    }
}

} // namespace

// A publication that is cut off, or a disk that fails, at every moment.
#include "Publication.h"
#include "FaultyFileSystem.h"
#include "Publisher.h"
#include "Verification.h"

using namespace tarn::vkpublish;

namespace {

using PublicationTest = PublisherTest;

TEST_F(PublicationTest, ClientsSeeTheOldStateOrTheNewOne)
{
    succeed("init @r");
    succeed("add @r @f --name a --version 1");
    succeed("publish @r");
    const QDateTime tNow = QDateTime::currentDateTimeUtc();
    const PublicationTimes tTimes{tNow, tNow.addDays(1), tNow.addDays(1)};
    QString tOld = followAsClient();
    ASSERT_EQ(tOld, q("a-1.0.0.0.tar.zst"));
    for (const bool tForGood : {true, false}) {
        bool tFailed = true;
        for (int i = 1; tFailed; ++i) {
            SCOPED_TRACE(testing::Message()
                         << "operation " << i << (tForGood ? " and all behind it" : " alone"));
            succeed(tOld.contains(q("b-")) ? "remove @r b" : "add @r @f --name b --version 1");
            FaultyFileSystem tFileSystem;
            tFileSystem.mForGood = tForGood;
            tFileSystem.failAt(i, ENOSPC);
            QString tError;
            {
                KeyFolder tKeys(tFileSystem, path("r.keys"));
                Publication tPublication(tFileSystem, path("r"), tKeys);
                const bool tDone = tKeys.open(&tError) && tPublication.run(tTimes, &tError);
                tFailed = tFileSystem.hasFailed();
                // A single failure, or one of the very last operation, may be made good at once or do no
                // harm.
                EXPECT_TRUE(tDone ? !tFailed || !tForGood || tFileSystem.count() == i : tFailed) << tError;
                EXPECT_EQ(tError.isEmpty(), tDone);
            }
            const QString tNew =
                tOld.contains(q("b-")) ? q("a-1.0.0.0.tar.zst") : q("a-1.0.0.0.tar.zst b-1.0.0.0.tar.zst");
            const QString tSeen = followAsClient();
            EXPECT_TRUE(tSeen == tNew || (tFailed && tSeen == tOld)) << tSeen;
            succeed("publish @r");
            EXPECT_EQ(followAsClient(), tNew);
            tOld = tNew;
            ASSERT_LT(i, 100);
        }
    }
    const VerificationResult tResult = verifyRepository(path("r"), readFile(path("r/metadata/1.root.json")),
                                                        QDateTime::currentDateTimeUtc());
    EXPECT_EQ(tResult.mProblems, QStringList());
}

// Publishes with a record that can't be brought up to date in the end: clients see more than the record
// knows.
class InterruptedPublicationTest : public PublisherTest
{
protected:
    InterruptedPublicationTest()
    {
        succeed("init @r");
        succeed("add @r @f --name a --version 1");
        succeed("publish @r");
    }

    void publishUntilSeen(int pDays)
    {
        followAsClient();
        const QByteArray tBefore = readFile(path("client/timestamp.json"));
        const QDateTime tNow = QDateTime::currentDateTimeUtc();
        for (int i = 1; readFile(path("client/timestamp.json")) == tBefore; ++i) {
            FaultyFileSystem tFileSystem;
            tFileSystem.mForGood = true;
            tFileSystem.failAt(i, EIO);
            QString tError;
            KeyFolder tKeys(tFileSystem, path("r.keys"));
            Publication tPublication(tFileSystem, path("r"), tKeys);
            if (tKeys.open(&tError)) {
                EXPECT_FALSE(tPublication.run({tNow, tNow.addDays(pDays), tNow.addDays(1)}, &tError));
            }
            followAsClient();
            ASSERT_LT(i, 100);
        }
    }
};

// Going back to what was published before must not go back to its files.
TEST_F(InterruptedPublicationTest, TakingTheChangeBackIsNoRollback)
{
    succeed("add @r @f --name b --version 1");
    publishUntilSeen(1);
    EXPECT_TRUE(followAsClient().contains(q("b-")));
    succeed("remove @r b");
    succeed("publish @r");
    EXPECT_EQ(followAsClient(), q("a-1.0.0.0.tar.zst"));
}

TEST_F(InterruptedPublicationTest, AskingForLessTimeIsNoRollback)
{
    publishUntilSeen(60); // takes a new snapshot, for which the old one's 14 days are too few
    succeed("publish @r");
    EXPECT_EQ(followAsClient(), q("a-1.0.0.0.tar.zst"));
}

} // namespace

// A publication that is cut off, or a disk that fails, at every moment.
#include "Publication.h"
#include "FailingFileSystem.h"
#include "Publisher.h"
#include "Verification.h"

using namespace tarn::vkpublish;

namespace {

QString q(const char* pText)
{
    return QString::fromUtf8(pText);
}

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
        for (int i = 0; tFailed; ++i) {
            SCOPED_TRACE(testing::Message()
                         << "operation " << i << (tForGood ? " and all behind it" : " alone"));
            succeed(tOld.contains(q("b-")) ? "remove @r b" : "add @r @f --name b --version 1");
            FailingFileSystem tFileSystem(i, tForGood);
            QString tError;
            {
                KeyFolder tKeys(tFileSystem, path("r.keys"));
                Publication tPublication(tFileSystem, path("r"), tKeys);
                const bool tDone = tKeys.open(&tError) && tPublication.run(tTimes, &tError);
                tFailed = tFileSystem.mFailed;
                // A single failure may be one that is made good at once.
                EXPECT_TRUE(tDone ? !tFailed || !tForGood : tFailed) << tError.toStdString();
                EXPECT_EQ(tError.isEmpty(), tDone);
            }
            const QString tNew =
                tOld.contains(q("b-")) ? q("a-1.0.0.0.tar.zst") : q("a-1.0.0.0.tar.zst b-1.0.0.0.tar.zst");
            const QString tSeen = followAsClient();
            EXPECT_TRUE(tSeen == tNew || (tFailed && tSeen == tOld)) << tSeen.toStdString();
            succeed("publish @r");
            EXPECT_EQ(followAsClient(), tNew);
            tOld = tNew;
            ASSERT_LT(i, 100);
        }
    }
    const VerificationResult tResult =
        verifyRepository(path("r"), read(path("r/metadata/1.root.json")), QDateTime::currentDateTimeUtc());
    EXPECT_EQ(tResult.mProblems, QStringList());
}

// Going back to what was published before an interrupted run must not go back to its files: clients may have
// seen newer ones.
TEST_F(PublicationTest, TakingBackAnInterruptedChangeIsNoRollback)
{
    succeed("init @r");
    succeed("add @r @f --name a --version 1");
    succeed("publish @r");
    succeed("add @r @f --name b --version 1");
    const QDateTime tNow = QDateTime::currentDateTimeUtc();
    bool tSeenNew = false;
    for (int i = 0; !tSeenNew; ++i) {
        FailingFileSystem tFileSystem(i, true);
        QString tError;
        KeyFolder tKeys(tFileSystem, path("r.keys"));
        Publication tPublication(tFileSystem, path("r"), tKeys);
        if (tKeys.open(&tError)) {
            tPublication.run({tNow, tNow.addDays(1), tNow.addDays(1)}, &tError);
        }
        tSeenNew = followAsClient().contains(q("b-"));
        ASSERT_LT(i, 100);
    }
    succeed("remove @r b");
    succeed("publish @r");
    EXPECT_EQ(followAsClient(), q("a-1.0.0.0.tar.zst"));
}

} // namespace

// An interruption or a disk failure at every moment of a publication.
#include "publication/Publication.h"
#include "FaultyFileSystem.h"
#include "publication/NewDeltas.h"
#include "publication/NewRepository.h"
#include "publication/Rotation.h"
#include "Publisher.h"

using namespace tarn::vkpublish;

namespace {

using PublicationTest = PublisherTest;

// The next run continues, or reverts the change, with a shorter validity: it must never go below a version
// that clients have seen.
TEST_F(PublicationTest, ClientsSeeTheOldStateOrTheNewOne)
{
    const QString tOne = q("a-1.0.0.0.tar.zst");
    const QString tTwo = tOne + q(" b-1.0.0.0.tar.zst");
    succeed("init @r --no-passphrase");
    succeed("add @r @f --name a --version 1");
    succeed("publish @r");
    const QDateTime tNow = QDateTime::currentDateTimeUtc();
    const PublicationTimes tTimes{tNow, tNow.addDays(60), tNow.addDays(60)};
    ASSERT_EQ(followAsClient(), tOne);
    for (const auto& [tForGood, tTakeBack] : {std::pair(true, true), {true, false}, {false, false}}) {
        bool tFailed = true;
        for (int i = 1; tFailed; i += momentStep()) {
            SCOPED_TRACE(testing::Message()
                         << "operation " << i << (tForGood ? " and all behind it" : " alone"));
            succeed("add @r @f --name b --version 1");
            FaultyFileSystem tFileSystem;
            tFileSystem.mForGood = tForGood;
            tFileSystem.failAt(i, ENOSPC);
            {
                KeyFolder tKeys(tFileSystem, path("r.keys"));
                Publication tPublication(tFileSystem, path("r"), tKeys);
                tarn::Failure tFailure = tKeys.open();
                if (!tFailure) {
                    tFailure = tPublication.run(tTimes);
                }
                const bool tDone = !tFailure;
                tFailed = tFileSystem.hasFailed();
                // A single failure, or one of the last operation, may be repaired at once or do no harm.
                EXPECT_TRUE(tDone ? !tFailed || !tForGood || tFileSystem.count() == i : tFailed)
                    << tFailure.mText;
                EXPECT_EQ(tFailure.mText.isEmpty(), tDone);
            }
            const QString tSeen = followAsClient();
            EXPECT_TRUE(tSeen == tTwo || (tFailed && tSeen == tOne)) << tSeen;
            if (!tTakeBack) {
                succeed("publish @r");
                EXPECT_EQ(followAsClient(), tTwo);
            }
            succeed("remove @r b");
            succeed("publish @r");
            EXPECT_EQ(followAsClient(), tOne);
            ASSERT_LT(i, 300);
        }
    }
    EXPECT_EQ(run("verify @r").mErr, "");
}

// What a failure or a kill leaves is gone after the next publication, which makes the missing deltas.
TEST_F(PublicationTest, DeltasComeInSpiteOfWhatStoppedThem)
{
    succeed("init @r --no-passphrase");
    for (const char tVersion : {'1', '2', '3'}) {
        write("f/data", readFile(q(VKPUBLISH)).first(50000) + tVersion);
        succeed((QByteArray("add @r @f --level 1 --name a --version ") + tVersion).constData());
        if (tVersion == '2') {
            succeed("publish @r");
        }
    }
    copy("r", "r.before");
    copy("r.keys", "r.keys.before");
    bool tFailed = true;
    for (int i = 1; tFailed; i += momentStep()) {
        SCOPED_TRACE(testing::Message() << "operation " << i);
        copy("r.before", "r");
        copy("r.keys.before", "r.keys");
        FaultyFileSystem tFileSystem;
        tFileSystem.mForGood = true;
        tFileSystem.failAt(i, ENOSPC);
        {
            KeyFolder tKeys(tFileSystem, path("r.keys"));
            tarn::Failure tFailure = tKeys.open();
            tFailure = tFailure ? tFailure : NewDeltas(tFileSystem, path("r"), tKeys).make(2);
            tFailed = tFileSystem.hasFailed();
        }
        succeed("publish @r --prune --prune-days 0");
        EXPECT_FALSE(QFileInfo::exists(path("r.keys/scratch")));
        EXPECT_EQ(files("r/targets").size(), 3 * 2 + 3) << files("r/targets").join(u' ');
        ASSERT_LT(i, 1000);
    }
    EXPECT_EQ(run("verify @r").mErr, "");
}

TEST_F(PublicationTest, InitGoesOnWhereItWasStoppedAndTakesNothingElse)
{
    bool tFailed = true;
    for (int i = 1; tFailed; i += momentStep()) {
        SCOPED_TRACE(testing::Message() << "operation " << i);
        FaultyFileSystem tFileSystem;
        tFileSystem.mForGood = true;
        tFileSystem.failAt(i, ENOSPC);
        {
            KeyFolder tKeys(tFileSystem, path("r.keys"));
            NewRepository tNew{
                .mPath = path("r"), .mKeys = {}, .mRootExpires = QDateTime(QDate(2090, 1, 1), {})};
            tNew.mKeys.mType = q("ed25519");
            tNew.mKeys.mEncrypt = false;
            const tarn::Failure tFailure = makeRepository(tFileSystem, tNew, &tKeys);
            tFailed = tFileSystem.hasFailed();
            EXPECT_TRUE(!tFailure || tFailed) << tFailure.mText;
        }
        if (tFailed) {
            for (const char* tTheirs :
                 {"r/metadata/1.root.json.old", "r.keys/targets-0123456789abcdef.pem"}) {
                if (QFileInfo::exists(QFileInfo(path(tTheirs)).path())) {
                    write(tTheirs, "precious");
                    EXPECT_EQ(run("init @r --no-passphrase").mStatus, 1) << tTheirs;
                    EXPECT_EQ(readFile(path(tTheirs)), "precious");
                    QFile::remove(path(tTheirs));
                }
            }
            const Program::Result tEarly = run("publish @r");
            if (tEarly.mStatus != 0) { // else only the last word about it was lost
                EXPECT_EQ(tEarly.mErr.count('\n'), 1) << tEarly.mErr;
                succeed("init @r --no-passphrase");
            }
        }
        EXPECT_EQ(files("r.keys").size(), 6) << files("r.keys").join(u' ').toStdString();
        succeed("publish @r");
        EXPECT_EQ(run("verify @r").mErr, "");
        EXPECT_EQ(run("init @r --no-passphrase").mStatus, 1);
        QDir(path("r")).removeRecursively();
        QDir(path("r.keys")).removeRecursively();
        ASSERT_LT(i, 200);
    }
}

// Clients see the same packages at every moment of a key rotation.
class RotationTest : public PublisherTest
{
protected:
    RotationTest()
    {
        succeed("init @r --no-passphrase");
        succeed("add @r @f --name a --version 1");
        succeed("publish @r");
        expectAccepted("r");
    }

    // For machines that have seen it before, and for new ones.
    void expectAccepted(const char* pRepository) const
    {
        const QString tAll = q("a-1.0.0.0.tar.zst");
        QDir(path("fresh")).removeRecursively();
        EXPECT_EQ(followAsClient("fresh", pRepository), tAll);
        if (QFileInfo::exists(path("seen"))) {
            copy("seen", "again");
            EXPECT_EQ(followAsClient("again", pRepository), tAll);
        }
    }

    // The new root is valid for nine days.
    bool rotate(tarn::os::FileSystem& pFileSystem, const QString& pRole, int pDaysLater = 0) const
    {
        const QDateTime tNow = QDateTime::currentDateTimeUtc().addDays(pDaysLater);
        KeyFolder tKeys(pFileSystem, path("r.keys"));
        Publication tPublication(pFileSystem, path("r"), tKeys);
        KeyOrder tOrder;
        tOrder.mType = q("ed25519");
        tOrder.mEncrypt = false;
        const auto tKey = makeKey(tOrder, &tKeys.passphrases());
        QDateTime tUntil;
        return tKey && !tKeys.open() &&
               !rotateKey(&tKeys, &tPublication, pRole, *tKey, {tNow, tNow.addDays(1), tNow.addDays(1)},
                          tNow.addDays(9), &tUntil);
    }
};

TEST_F(RotationTest, AKillAtAnyMomentLeavesWhatClientsAccept)
{
    copy("r", "r0");
    copy("r.keys", "r0.keys");
    const auto tStartAgain = [this] {
        copy("r0", "r");
        copy("r0.keys", "r.keys");
        QDir(path("seen")).removeRecursively();
        followAsClient("seen");
    };
    for (const QString& tRole : {q("root"), q("targets"), q("snapshot"), q("timestamp")}) {
        QList<std::pair<int, QByteArray>> tMoments; // no other operation changes a file that clients see
        FaultyFileSystem tSound;
        tSound.mObserver = [&](int pNumber, const QByteArray& pWhat) {
            if (pWhat.startsWith("rename")) {
                tMoments.append({pNumber, pWhat});
            }
        };
        tStartAgain();
        ASSERT_TRUE(rotate(tSound, tRole));
        expectAccepted("r");
        ASSERT_GT(tMoments.size(), 6);
        for (const auto& [tNumber, tWhat] : tMoments) {
            SCOPED_TRACE(testing::Message() << tRole << ", killed at " << tWhat);
            tStartAgain();
            FaultyFileSystem tFileSystem;
            tFileSystem.mForGood = true;
            tFileSystem.failAt(tNumber, EIO);
            EXPECT_FALSE(rotate(tFileSystem, tRole));
            expectAccepted("r");
            // The new root may have expired before anybody saw it.
            EXPECT_TRUE(rotate(tarn::os::realFileSystem(), tRole, 10));
            expectAccepted("r");
            EXPECT_EQ(files("r/metadata").filter(q(".root.json")).last().section(u'.', 0, 0).toInt(),
                      files("r/metadata").filter(q(".root.json")).size());
        }
    }
}

// Nobody else has the root, and nobody can sign by it any more.
TEST_F(RotationTest, ARootThatWasNotWrittenMayHaveLostItsKey)
{
    copy("r", "r0");
    copy("r.keys", "r0.keys");
    int tMoment = 0;
    FaultyFileSystem tFileSystem;
    tFileSystem.mObserver = [&](int pNumber, const QByteArray& pWhat) {
        tMoment = pWhat.startsWith("rename") && pWhat.endsWith("/2.root.json") ? pNumber : tMoment;
    };
    ASSERT_TRUE(rotate(tFileSystem, q("timestamp")));
    copy("r0", "r");
    copy("r0.keys", "r.keys");
    tFileSystem.mForGood = true;
    tFileSystem.failAt(tMoment, EIO);
    EXPECT_FALSE(rotate(tFileSystem, q("timestamp")));
    EXPECT_FALSE(files("r/metadata").contains(q("2.root.json")));
    const QByteArray tList = run("key list @r").mOut;
    const QByteArray tId = tList.mid(tList.indexOf("\n  ", tList.indexOf("\ntimestamp: ")) + 3, 16);
    ASSERT_TRUE(QFile::remove(path("r.keys/timestamp-") + q(tId) + q(".pem")));
    EXPECT_EQ(run("publish @r").mStatus, 1);
    succeed("key add @r timestamp --no-passphrase");
    succeed("key remove @r timestamp " + tId + " --lost");
    succeed("publish @r");
    EXPECT_TRUE(files("r/metadata").contains(q("3.root.json")));
    expectAccepted("r");
}

// The manual gives the order of copying. Two rotations in a row followed by a publication are the hardest
// case.
TEST_F(RotationTest, EveryPartOfACopyIsAcceptedInTheOrderOfTheManual)
{
    for (const char* tRotation :
         {"rotate-key @r root --key-type ecdsa --no-passphrase",
          "rotate-key @r targets --key-type ecdsa-p384 --no-passphrase",
          "rotate-key @r snapshot --no-passphrase", "rotate-key @r timestamp --key-type rsa --no-passphrase",
          "rotate-key @r root --no-passphrase"}) {
        SCOPED_TRACE(tRotation);
        copy("r", "web");
        QDir(path("seen")).removeRecursively();
        followAsClient("seen", "web");
        succeed(tRotation);
        succeed(tRotation);
        succeed("publish @r");
        const QStringList tMetadata = files("r/metadata");
        const QStringList tRoots = tMetadata.filter(q(".root.json"));
        QStringList tOrder;
        for (const QString& tName : tMetadata) {
            if (!tRoots.contains(tName) && tName != q("timestamp.json")) {
                tOrder.append(tName);
            }
        }
        for (const QString& tName : tOrder + QStringList{q("timestamp.json")} + tRoots) {
            QFile::remove(path("web/metadata/") + tName);
            QFile::copy(path("r/metadata/") + tName, path("web/metadata/") + tName);
            SCOPED_TRACE(tName);
            expectAccepted("web");
        }
    }
    EXPECT_EQ(run("verify @web --root @r/metadata/1.root.json").mStatus, 0);
}

TEST_F(RotationTest, AnOldKeySignsUntilNoCopyCanNeedIt)
{
    ASSERT_TRUE(rotate(tarn::os::realFileSystem(), q("timestamp")));
    const auto tSignatures = [this] { return readFile(path("r/metadata/timestamp.json")).count("\"sig\""); };
    EXPECT_EQ(tSignatures(), 2);
    QByteArray tRecord = readFile(path("r.keys/record.json"));
    EXPECT_EQ(tRecord.count("\"until\""), 1);
    tRecord.replace("\"until\": \"2", "\"until\": \"1");
    write("r.keys/record.json", tRecord);
    succeed("publish @r");
    EXPECT_EQ(tSignatures(), 1);
    EXPECT_FALSE(readFile(path("r.keys/record.json")).contains("until"));
    expectAccepted("r");
}

} // namespace

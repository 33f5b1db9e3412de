// The nightly job with the keys of timestamp and snapshot alone, and the record that it begins with.
#include "publication/Refresh.h"
#include "FaultyFileSystem.h"
#include "Publisher.h"

using namespace tarn::vkpublish;

namespace {

const QString sOne = q("a-1.0.0.0.tar.zst");

// A repository "r" with one package, and the folder "night" with two of its keys.
class RefreshTest : public PublisherTest
{
protected:
    RefreshTest()
    {
        succeed("init @r --no-passphrase");
        succeed("add @r @f --name a --version 1 --level 1");
        succeed("publish @r");
        takeKeys("night", "timestamp-* snapshot-*");
        succeed(sRecoverNight);
        EXPECT_EQ(followAsClient(), sOne);
    }

    static constexpr const char* sRecoverNight =
        "recover @r --keys @night --root @r/metadata/1.root.json --refresh-only";

    void takeKeys(const char* pTo, const char* pNames) const
    {
        QDir(path(pTo)).removeRecursively();
        QDir().mkpath(path(pTo));
        QFile::setPermissions(path(pTo), QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
        for (const QString& tName : QDir(path("r.keys")).entryList(q(pNames).split(u' '), QDir::Files)) {
            QFile::copy(path("r.keys/") + tName, path(pTo) + u'/' + tName);
        }
    }

    void expectRefusal(const QByteArray& pCommand, const char* pSays) const
    {
        const QByteArray tBefore = readFile(path("r/metadata/timestamp.json"));
        const Program::Result tResult = run(pCommand);
        EXPECT_EQ(tResult.mStatus, 1) << pCommand;
        EXPECT_TRUE(tResult.mErr.contains(pSays)) << tResult.mErr;
        EXPECT_EQ(tResult.mErr.count('\n'), 1) << tResult.mErr;
        EXPECT_EQ(readFile(path("r/metadata/timestamp.json")), tBefore);
    }

    QJsonObject json(const QByteArray& pCommand) const
    {
        return QJsonDocument::fromJson(run(pCommand).mOut).object();
    }

    qint64 version(const char* pRole) const
    {
        return json("verify @r --keys @r.keys --json")[q("roles")][q(pRole)][q("version")].toInteger();
    }
};

TEST_F(RefreshTest, NeedsTwoKeysAndNoPackages)
{
    EXPECT_EQ(files("night").size(), 4) << files("night").join(u' ');
    QDir(path("r")).rename(q("targets"), q("elsewhere"));
    const QByteArray tList = readFile(path("r/metadata/1.targets.json"));
    const struct
    {
        const char* mCommand;
        bool mNewSnapshot;
        int mTimestamp;
        int mSnapshot;
    } sCases[] = {
        {"refresh @r --keys @night", false, 2, 1},
        {"refresh @r --keys @night --expires-days 27", false, 3, 1},
        {"refresh @r --keys @night --expires-days 60", true, 4, 2},
        {"refresh @r --keys @night --expires-days 60", false, 5, 2},
        {"refresh @r", false, 6, 2}, // the publisher's own folder knows less
    };
    for (const auto& tCase : sCases) {
        SCOPED_TRACE(tCase.mCommand);
        const QJsonObject tDone = json(QByteArray(tCase.mCommand) + " --json");
        EXPECT_EQ(tDone[q("newSnapshot")].toBool(), tCase.mNewSnapshot);
        EXPECT_EQ(tDone[q("roles")][q("timestamp")][q("version")].toInt(), tCase.mTimestamp);
        EXPECT_EQ(tDone[q("roles")][q("snapshot")][q("version")].toInt(), tCase.mSnapshot);
        EXPECT_EQ(followAsClient(), sOne);
    }
    EXPECT_EQ(files("r/metadata").filter(q("targets")).size(), 1);
    EXPECT_EQ(readFile(path("r/metadata/1.targets.json")), tList);

    // The publisher goes on above it without a word, and keeps the list.
    QDir(path("r")).rename(q("elsewhere"), q("targets"));
    EXPECT_EQ(run("refresh @r --keys @night").mErr, "");
    EXPECT_EQ(run("publish @r").mErr, "");
    EXPECT_EQ(version("targets"), 1);
    succeed("add @r @f --name b --version 1 --level 1");
    succeed("publish @r");
    EXPECT_EQ(run("refresh @r --keys @night").mErr, "");
    EXPECT_EQ(followAsClient(), sOne + q(" b-1.0.0.0.tar.zst"));
    EXPECT_EQ(run("verify @r").mErr, "");
}

// With two key folders: each goes on above what the other has signed.
TEST_F(RefreshTest, TheJobAndThePublisherTakeTurns)
{
    for (int i = 0; i < 6; ++i) {
        Program tJob(q(VKPUBLISH), {"refresh", path("r").toUtf8(), "--keys", path("night").toUtf8()},
                     mEnvironment);
        Program tPublisher(q(VKPUBLISH), {"publish", path("r").toUtf8()}, mEnvironment);
        EXPECT_EQ(tJob.wait().mStatus, 0);
        EXPECT_EQ(tPublisher.wait().mStatus, 0);
        EXPECT_EQ(followAsClient(), sOne);
    }
    EXPECT_EQ(version("timestamp"), 1 + 2 * 6);
}

// Write access to the repository is not enough to make the job sign something older.
TEST_F(RefreshTest, SignsNothingOlderAndNothingUnsigned)
{
    copy("r", "old");
    succeed("add @r @f --name b --version 1 --level 1");
    succeed("publish @r");
    succeed("refresh @r --keys @night");
    copy("r", "new");
    copy("old/metadata", "r/metadata");
    expectRefusal("refresh @r --keys @night", "has gone back: its list of packages has version 1");
    expectRefusal("refresh @r", "has gone back");
    copy("new", "r");
    write("r/metadata/2.targets.json", readFile(path("r/metadata/2.targets.json")).replace("b-1", "c-1"));
    expectRefusal("refresh @r --keys @night", "hash");
    QFile::remove(path("r/metadata/2.targets.json"));
    expectRefusal("refresh @r --keys @night", "2.targets.json");

    copy("new", "r");
    succeed("rotate-key @r timestamp --no-passphrase");
    expectRefusal("refresh @r --keys @night", "key for the role timestamp is not in");
}

TEST_F(RefreshTest, WarnsOfWhatItCannotRenew)
{
    succeed("publish @r --targets-days 1");
    succeed("add @r @f --name b --version 1 --level 1");
    succeed("publish @r --targets-days 12");
    const Program::Result tResult = run("refresh @r --keys @night");
    EXPECT_EQ(tResult.mStatus, 0);
    EXPECT_TRUE(tResult.mErr.contains("The list of packages expires in 11 days")) << tResult.mErr;
    EXPECT_TRUE(tResult.mErr.contains("vkpublish publish"));
    succeed("add @r @f --name c --version 1 --level 1");
    mEnvironment.insert("SOURCE_DATE_EPOCH", QByteArray::number(QDateTime::currentSecsSinceEpoch() - 90000));
    succeed("publish @r --targets-days 1");
    expectRefusal("refresh @r --keys @night --expires-days 1", "expired on");
    mEnvironment.remove("SOURCE_DATE_EPOCH");
    expectRefusal("refresh @r --keys @night", "The targets metadata, version 3, expired on");
}

TEST_F(RefreshTest, AKillOrAFullDiskAtAnyMomentIsMadeGoodByTheNextRun)
{
    const QDateTime tNow = QDateTime::currentDateTimeUtc();
    bool tFailed = true;
    for (int i = 1; tFailed; i += momentStep()) {
        SCOPED_TRACE(testing::Message() << "operation " << i);
        FaultyFileSystem tFileSystem;
        tFileSystem.mForGood = true;
        tFileSystem.failAt(i, ENOSPC);
        {
            KeyFolder tKeys(tFileSystem, path("night"));
            Refresh tRefresh(tFileSystem, path("r"), tKeys);
            tarn::Failure tFailure = tKeys.open();
            tFailure = tFailure ? tFailure : tRefresh.run({tNow, tNow.addDays(60), {}});
            tFailed = tFileSystem.hasFailed();
            EXPECT_TRUE(tFailed || !tFailure) << tFailure.mText;
        }
        EXPECT_EQ(followAsClient(), sOne) << tFileSystem.failed();
        succeed("refresh @r --keys @night"); // shorter, so the next one needs a new snapshot
        EXPECT_EQ(followAsClient(), sOne) << tFileSystem.failed();
        ASSERT_LT(i, 200);
    }
    EXPECT_EQ(run("verify @r").mErr, "");
}

TEST_F(RefreshTest, ALostRecordIsMadeAgainFromWhatIsSigned)
{
    succeed("add @r @f --name b --version 1 --level 1");
    succeed("publish @r --expires-days 20");
    succeed("rotate-key @r timestamp --no-passphrase");
    write("f/data", "never published");
    succeed("add @r @f --name c --version 1 --level 1");
    const QByteArray tBefore = readFile(path("r.keys/record.json"));
    const auto tPublished = [this] {
        const QStringList tLists = files("r.keys/packages").filter(q("published-"));
        return readFile(path("r.keys/packages/") + tLists.value(tLists.size() - 1));
    };
    const QByteArray tPackages = tPublished();
    const char* tRecover = "recover @r --keys @r.keys --root @r/metadata/1.root.json";
    expectRefusal(tRecover, "has a record");
    QFile::remove(path("r.keys/record.json"));
    const Program::Result tResult = run(tRecover);
    EXPECT_EQ(tResult.mStatus, 0) << tResult.mErr;
    EXPECT_TRUE(tResult.mOut.contains("Recovered the record")) << tResult.mOut;
    EXPECT_EQ(tResult.mOut.count("Not in the record: targets/"), 2) << "c and its index: " << tResult.mOut;
    const QJsonObject tOld = QJsonDocument::fromJson(tBefore).object();
    const QJsonObject tNew = QJsonDocument::fromJson(readFile(path("r.keys/record.json"))).object();
    for (const QString& tMember :
         {q("keys"), q("versions"), q("root"), q("targetsFile"), q("snapshotFile"), q("timestampExpires")}) {
        EXPECT_EQ(tNew[tMember], tOld[tMember]) << tMember.toStdString();
    }
    EXPECT_EQ(tPublished(), tPackages);
    EXPECT_EQ(tNew[q("retiringRoots")].toArray().size(), 1) << "both keys have signed the timestamp";
    EXPECT_EQ(run("publish @r").mErr, "");
    EXPECT_EQ(followAsClient(), sOne + q(" b-1.0.0.0.tar.zst"));

    // What is not as it was signed makes no record.
    QFile::remove(path("r.keys/record.json"));
    const QString tArchive = path("r/targets/") + files("r/targets").filter(q("a-1")).first();
    writeFile(tArchive, QByteArray(readFile(tArchive)).replace(20, 1, "x"));
    expectRefusal(tRecover, "hash");
    succeed("init @stranger --no-passphrase");
    expectRefusal("recover @r --keys @r.keys --root @stranger/metadata/1.root.json", "signatures");
    expectRefusal("recover @r --keys @none --root @r/metadata/1.root.json", "none");
    takeKeys("night", "timestamp-* snapshot-* targets-*");
    expectRefusal(sRecoverNight, "has a key of the role targets");
    takeKeys("night", "timestamp-*");
    expectRefusal(sRecoverNight, "does not have the key of the role snapshot");
    EXPECT_FALSE(QFileInfo::exists(path("night/record.json")));
}

// For monitoring.
TEST_F(RefreshTest, TellsWhatExpiresSoonHereAndOnline)
{
    copy("r", "online");
    succeed("publish @r --expires-days 5");
    const struct
    {
        const char* mCommand;
        int mStatus;
        int mWarnings;
        const char* mSays;
    } sCases[] = {
        {"verify @r", 0, 0, ""},
        {"verify @r --warn-days 4", 0, 0, ""},
        {"verify @r --warn-days 5", 4, 1, "The timestamp expires in 4 days"},
        {"verify @r --warn-days 15", 4, 2, "The snapshot expires in 13 days"},
        {"verify @r --against @online", 0, 1, "online has version 1 of the timestamp, and here is 2"},
        {"verify @r --against @online --warn-days 14", 4, 5, "online: the timestamp expires in 13 days"},
        {"verify @online --against @r --root @r/metadata/1.root.json", 1, 0, "is behind"},
    };
    for (const auto& [tCommand, tStatus, tWarnings, tSays] : sCases) {
        SCOPED_TRACE(tCommand);
        const Program::Result tResult = run(tCommand);
        EXPECT_EQ(tResult.mStatus, tStatus) << tResult.mErr;
        EXPECT_TRUE(tResult.mErr.contains(tSays)) << tResult.mErr;
        const Program::Result tJson = run(QByteArray(tCommand) + " --json");
        EXPECT_EQ(tJson.mErr, "");
        EXPECT_EQ(tJson.mOut.count('\n'), 1);
        const QJsonObject tObject = QJsonDocument::fromJson(tJson.mOut).object();
        EXPECT_EQ(tObject[q("status")].toInt(), tJson.mStatus);
        EXPECT_EQ(tObject[q("warnings")].toArray().size(), tWarnings) << tJson.mOut;
    }
    const QJsonObject tOk = json("verify @r --json");
    EXPECT_EQ(tOk[q("daysLeft")].toInt(), 4);
    EXPECT_EQ(tOk[q("packages")].toInt(), 1);
    const QJsonObject tListed = json("list @r --json")[q("packages")].toArray().first().toObject();
    EXPECT_EQ(tListed[q("archive")].toString(), sOne);
    EXPECT_EQ(tListed[q("state")].toString(), q("published"));
    EXPECT_EQ(json("publish @r --json")[q("roles")][q("timestamp")][q("version")].toInt(), 3);
}

TEST_F(RefreshTest, TheSameInputMakesTheSameRepository)
{
    mEnvironment.insert("SOURCE_DATE_EPOCH", QByteArray::number(QDateTime::currentSecsSinceEpoch() - 1000));
    copy("r", "twin");
    copy("r.keys", "twin.keys");
    for (const char* tName : {"r", "twin"}) {
        for (const char* tVersion : {"2", "3"}) {
            write("f/data", readFile(q(VKPUBLISH)).first(300000) + tVersion);
            succeed(QByteArray("add @NAME @f --level 1 --name a --version ").replace("NAME", tName) +
                    tVersion);
            succeed(QByteArray("publish @NAME --phase-days 3").replace("NAME", tName));
        }
        succeed(QByteArray("refresh @NAME --expires-days 90").replace("NAME", tName));
    }
    for (const char* tFolder : {"metadata", "targets"}) {
        const QStringList tFiles = files((QByteArray("r/") + tFolder).constData());
        EXPECT_EQ(tFiles, files((QByteArray("twin/") + tFolder).constData()));
        for (const QString& tName : tFiles) {
            const QString tBelow = u'/' + q(tFolder) + u'/' + tName;
            EXPECT_EQ(readFile(path("r") + tBelow), readFile(path("twin") + tBelow)) << tName.toStdString();
        }
    }
    EXPECT_FALSE(files("r/targets").filter(q(".delta")).isEmpty());
    EXPECT_EQ(run("verify @r").mStatus, 0);
}

} // namespace

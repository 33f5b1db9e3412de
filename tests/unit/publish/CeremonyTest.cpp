// Keys of several people, on machines of their own: what is signed by parts, and what machines accept
// meanwhile.
#include "FaultyFileSystem.h"
#include "publication/Publication.h"
#include "Publisher.h"

#include "tuf/Metadata.h"

#include <QtCore/QJsonArray>

#include <sys/stat.h>

using namespace tarn::vkpublish;

namespace {

class CeremonyTest : public PublisherTest
{
protected:
    CeremonyTest()
    {
        succeed("init @r --no-passphrase");
        succeed("add @r @f --name a --version 1");
        succeed("publish @r");
        EXPECT_EQ(followAsClient(), sOne);
    }

    const QString sOne = q("a-1.0.0.0.tar.zst");
    const QString sTwo = q("a-1.0.0.0.tar.zst b-1.0.0.0.tar.zst");

    QString idOf(const QByteArray& pRole, int pIndex) const
    {
        tarn::tuf::Root tRoot;
        KeyFolder tKeys(tarn::os::realFileSystem(), path("r.keys"));
        EXPECT_FALSE(tKeys.openForReading());
        EXPECT_FALSE(parseRoot(tKeys.mRecord.mRoot, &tRoot));
        return tRoot.mRoles[QString::fromLatin1(pRole)].mKeyIds.value(pIndex);
    }

    // Gives the role keys of these people, of whom two must sign, and takes its old key away.
    void handOver(const QByteArray& pRole, const QByteArrayList& pPeople) const
    {
        const QByteArray tOld = idOf(pRole, 0).toLatin1();
        for (const QByteArray& tPerson : pPeople) {
            QDir().mkpath(path(tPerson.constData()));
            const QByteArray tKey = '@' + tPerson + '/' + pRole + "-key.pem";
            succeed(("key make --no-passphrase " + tKey).constData());
            succeed(("key add @r " + pRole + " --public " + tKey + ".pub").constData());
        }
        succeed(("key threshold @r " + pRole + " 2").constData());
        succeed(("key remove @r " + pRole + ' ' + tOld).constData());
    }

    // What a person does, and the answer of the publisher's machine.
    Program::Result sign(const QByteArray& pRole, const QByteArray& pPerson) const
    {
        succeed(("payload @r " + pRole + " --output @payload").constData());
        succeed(("sign @payload --yes --output @signature --keys @" + pPerson).constData());
        return run("add-signature @r " + pRole + " @signature");
    }

    QByteArray refusal(const QByteArray& pWords) const
    {
        const Program::Result tResult = run(pWords);
        EXPECT_EQ(tResult.mStatus, 1) << pWords;
        EXPECT_EQ(tResult.mErr.count('\n'), 1) << tResult.mErr;
        return tResult.mErr;
    }
};

TEST_F(CeremonyTest, TwoOfThreePeopleSignTheRootAndThePackages)
{
    handOver("root", {"alice", "bob", "carol"});
    handOver("targets", {"alice", "bob"});
    EXPECT_TRUE(sign("root", "alice").mOut.contains("1 signature is missing"));
    // The draft waits, and everything else goes on.
    EXPECT_TRUE(run("publish @r").mErr.contains("draft of the root waits, 1 signature is missing"));
    EXPECT_FALSE(files("r/metadata").contains(q("2.root.json")));
    EXPECT_TRUE(sign("root", "carol").mOut.contains("no signature is missing"));
    // The list of packages needs the old key, which is here, and both of the new ones.
    EXPECT_TRUE(run("publish @r").mErr.contains("2 signatures are missing"));
    EXPECT_EQ(followAsClient(), sOne);
    EXPECT_TRUE(sign("targets", "alice").mOut.contains("1 signature is missing"));
    EXPECT_TRUE(sign("targets", "bob").mOut.contains("no signature is missing"));
    EXPECT_EQ(run("publish @r").mErr, "");
    EXPECT_TRUE(files("r/metadata").contains(q("2.root.json")));
    EXPECT_EQ(followAsClient(), sOne);
    EXPECT_EQ(followAsClient("fresh"), sOne);
    EXPECT_EQ(run("verify @r").mErr, "");
    EXPECT_TRUE(run("key list @r").mOut.contains("root: 2 of 3 keys must sign"));

    succeed("add @r @f --name b --version 1");
    const auto tBefore = state();
    EXPECT_TRUE(refusal("publish @r --deltas 0").contains("2 signatures are missing"));
    EXPECT_EQ(state(), tBefore);
    sign("targets", "alice");
    EXPECT_TRUE(refusal("publish @r").contains("1 signature is missing"));
    const Program::Result tShown = run("show @r targets");
    EXPECT_TRUE(tShown.mOut.contains("\nNEW: b 1.0.0, ") && tShown.mOut.contains("1 package stays as it is"))
        << tShown.mOut;
    sign("targets", "bob");
    succeed("publish @r");
    EXPECT_EQ(followAsClient(), sTwo);
    EXPECT_EQ(followAsClient("fresh"), sTwo);
    // The nightly job has only these.
    for (const QString& tName : files("r.keys").filter(q(".pem"))) {
        if (!tName.startsWith(q("timestamp")) && !tName.startsWith(q("snapshot"))) {
            QFile::remove(path("r.keys/") + tName);
        }
    }
    EXPECT_EQ(run("publish @r --expires-days 60").mErr, "");
    EXPECT_EQ(followAsClient(), sTwo);
}

TEST_F(CeremonyTest, ADraftThatNoLongerFitsIsRefused)
{
    handOver("targets", {"alice", "bob"});
    sign("targets", "alice");
    sign("targets", "bob");
    EXPECT_EQ(run("publish @r").mErr, "");
    succeed("add @r @f --name b --version 1");
    sign("targets", "alice");
    sign("targets", "bob");
    succeed("remove @r b");
    EXPECT_TRUE(run("publish @r").mErr.contains("no longer fits"));
    EXPECT_EQ(followAsClient(), sOne);
    succeed("add @r @f --name c --version 1");
    EXPECT_TRUE(refusal("publish @r").contains("no longer fits"));
    EXPECT_TRUE(refusal("payload @r targets").contains("no longer fits"));
    succeed("payload @r targets --renew --output @payload");
    EXPECT_TRUE(run("show @r targets").mOut.contains("2 signatures are missing"));
    succeed("payload @r targets --discard");
    EXPECT_TRUE(refusal("show @r targets").contains("There is no draft"));
}

TEST_F(CeremonyTest, ASignerSeesWhatComesAndGoesSinceHisLastSignature)
{
    succeed("payload @r targets --output @payload");
    succeed("key make --no-passphrase @alice.pem");
    const QByteArray tSign = "sign @payload --key @alice.pem --output @signature";
    const Program::Result tAsked = run(tSign);
    EXPECT_EQ(tAsked.mStatus, 1) << "nobody has answered";
    EXPECT_TRUE(tAsked.mOut.contains("everything is new") && tAsked.mOut.contains("NEW: a 1.0.0"))
        << tAsked.mOut;
    EXPECT_FALSE(QFile::exists(path("signature")));
    succeed((tSign + " --yes --key @alice.pem").constData());
    EXPECT_EQ(readFile(path("signature")).count("keyid"), 1) << "a key signs once";
    succeed("remove @r a");
    write("f/data", "other\n");
    succeed("add @r @f --name b --version 2");
    succeed("payload @r targets --renew --output @payload");
    const QByteArray tShown = run("show @payload --key @alice.pem").mOut;
    EXPECT_TRUE(tShown.contains("\nNEW: b 2.0.0") && tShown.contains("\nREMOVED: a 1.0.0")) << tShown;
    QByteArray tPayload = readFile(path("payload"));
    write("payload", tPayload.replace("\"b-2", "\"b\x1b[2J\n-2"));
    const QByteArray tForged = run("show @payload").mOut;
    EXPECT_TRUE(tForged.contains("[2J -2") && !tForged.contains('\x1b')) << tForged;
    write("payload",
          tPayload.replace("\"version\":", "\"delegations\":{\"keys\":{},\"roles\":[]},\"version\":"));
    EXPECT_NE(run(tSign).mStatus, 0) << "not canonical";
    write("payload", "{\"signed\":" + tPayload + "}");
    EXPECT_TRUE(run("show @payload").mOut.contains("WARNING: unknown part \"delegations\""));
}

// The machine that has written the payload may be in an attacker's hands.
TEST_F(CeremonyTest, ASignerSeesWhatAPayloadWouldHide)
{
    succeed("payload @r root --output @root");
    succeed("payload @r targets --output @targets");
    const QByteArray tId = idOf("timestamp", 0).toLatin1();
    const QByteArray tOther = tId.startsWith('0') ? "1" : "0";
    const struct
    {
        const char* mFile;
        QByteArray mFrom;
        QByteArray mTo;
        QByteArray mShown;
    } sCases[] = {
        {"root", tId, tOther + tId.mid(1),
         "WARNING: what is called key " + tOther + tId.mid(1) + " is another key"},
        {"root", "\"expires\":\"20", "\"expires\":\"99", "WARNING: it is valid for more than 4000 days"},
        {"root", "\"version\":2}", "\"version\":2000000}", "WARNING: the version is far higher"},
        {"root", "\"roles\":{", "\"roles\":{\"targets: ok\":{\"keyids\":[],\"threshold\":1},",
         "unknown role \"targets: ok\""},
        {"root", "\"version\":2}", "\"targets\":{},\"version\":2}", "WARNING: unknown part \"targets\""},
        {"targets", "\"custom\":{", "\"custom\":{\"a\":1,",
         "WARNING: the description of a-1.0.0.0.tar.zst has parts"},
        {"targets", "\"sha256\":\"", "\"md9\":\"00\",\"sha256\":\"",
         "WARNING: a-1.0.0.0.tar.zst has a hash of an unknown kind"},
        {"targets", "\"custom\":{", "\"custom\":{\"check\":\"bin/evil\",", "\n  machines run bin/evil\n"},
        {"targets", "", "", ".index.zst\n1 new, 0 changed, 0 removed\n"},
    };
    for (const auto& tCase : sCases) {
        QByteArray tPayload = readFile(path(tCase.mFile));
        EXPECT_TRUE(tPayload.contains(tCase.mFrom)) << tPayload;
        write("payload", tCase.mFrom.isEmpty() ? tPayload : tPayload.replace(tCase.mFrom, tCase.mTo));
        const Program::Result tShown = run("show @payload");
        EXPECT_TRUE(tShown.mOut.contains(tCase.mShown)) << tCase.mTo << ": " << tShown.mOut << tShown.mErr;
    }
}

TEST_F(CeremonyTest, EachMistakeIsOneLineAndChangesNothing)
{
    succeed("key make --no-passphrase @alice.pem");
    succeed("key make --no-passphrase @stranger.pem --key-type ecdsa");
    succeed("key add @r root --public @alice.pem.pub");
    succeed("key threshold @r root 2");
    succeed("payload @r root --output @other");
    succeed("sign @other --key @alice.pem --output @other.sig --yes");
    succeed("payload @r root --renew --root-days 9 --output @payload");
    for (const char* tPerson : {"alice", "stranger"}) {
        succeed(QByteArray("sign @payload --output @NAME.sig --yes --key @NAME.pem")
                    .replace("NAME", tPerson)
                    .constData());
    }
    const QByteArray tSignature = readFile(path("alice.sig"));
    QJsonObject tParts = QJsonDocument::fromJson(tSignature).object();
    QJsonObject tForged = tParts[q("signatures")][0].toObject();
    tForged[q("sig")] = q("00") + tForged[q("sig")].toString().mid(2);
    tParts[q("signatures")] = QJsonArray{tForged};
    write("forged.sig", QJsonDocument(tParts).toJson());
    write("damaged.sig", tSignature.chopped(9));
    write("raw.sig", QByteArray(64, 'x'));
    const QByteArray tId = tForged[q("keyid")].toString().toLatin1();
    const QByteArray tOld = idOf("root", 0).toLatin1();
    ASSERT_EQ(::mkfifo(path("pipe").toUtf8().constData(), 0600), 0);
    const auto tBefore = state();
    const struct
    {
        QByteArray mWords;
        const char* mRefusal;
    } sCases[] = {
        {"add-signature @r root @other.sig", "of another payload"},
        {"add-signature @r root @stranger.sig", "does not belong to the role root"},
        {"add-signature @r root @forged.sig", "no signature of the key"},
        {"add-signature @r root @damaged.sig", "no signature file"},
        {"add-signature @r root @raw.sig --key-id " + tId, "no signature of the key"},
        {"add-signature @r targets @alice.sig", "no draft of the targets"},
        {"key remove @r root " + tOld, "needs 2 signatures, and would have 1 keys"},
        {"key remove @r root " + tOld.first(7), "has no key"},
        {"key threshold @r root 3", "would have 2 keys and need 3"},
        {"key threshold @r timestamp 2", "would have 1 keys and need 2"},
        {"key add @r root --public @alice.pem.pub", "already"},
        {"key add @r targets --public @alice.pem", "usable public key"},
        {"key make --no-passphrase @alice.pem", "there already"},
        {"sign @alice.sig --key @alice.pem --output @x --yes", "no root and no list"},
        {"sign @payload --key @alice.pem --output @alice.pem --yes", "has a private key"},
        {"sign @payload --key @alice.pem --output @pipe --yes", "is no file"},
        {"payload @r root --output @pipe", "is no file"},
        {"show @pipe", "no root and no list"},
        {"add-signature @r root @pipe", "no signature file"},
    };
    for (const auto& tCase : sCases) {
        const QByteArray tText = refusal(tCase.mWords);
        EXPECT_TRUE(tText.contains(tCase.mRefusal)) << tCase.mWords << ": " << tText;
    }
    EXPECT_EQ(state(), tBefore);
    EXPECT_EQ(run("init @n --threshold 3 --key-count 2").mStatus, 2);
    succeed("add-signature @r root @alice.sig");
    EXPECT_TRUE(refusal("add-signature @r root @alice.sig").contains("has signed already"));
    succeed("publish @r");
    EXPECT_TRUE(files("r/metadata").contains(q("2.root.json")));
    EXPECT_EQ(followAsClient(), sOne);
    write("r.keys/root.draft", "{");
    EXPECT_TRUE(refusal("publish @r").contains("damaged"));
}

// By the record, which has the time of the last publication, and by the root.
TEST_F(CeremonyTest, AWrongClockAndAnExpiredRootSignNothing)
{
    const QDateTime tNow = QDateTime::currentDateTimeUtc();
    const struct
    {
        qint64 mDays; // from the clock to the last publication
        bool mIsRefused;
    } sClocks[] = {{-179, false}, {-181, true}, {400, true}, {2, true}};
    for (const auto& [tDays, tIsRefused] : sClocks) {
        SCOPED_TRACE(tDays);
        QJsonObject tRecord = QJsonDocument::fromJson(readFile(path("r.keys/record.json"))).object();
        ASSERT_TRUE(tRecord.contains(q("signedAt")));
        tRecord[q("signedAt")] = tNow.addDays(tDays).toString(Qt::ISODate);
        write("r.keys/record.json", QJsonDocument(tRecord).toJson());
        for (const char* tWords : {"halt @r a", "key add @r root --no-passphrase", "payload @r targets",
                                   "rotate-key @r root --no-passphrase", "refresh @r", "publish @r"}) {
            const auto tBefore = state();
            if (tIsRefused) {
                EXPECT_TRUE(refusal(tWords).contains("By this machine's clock it is")) << tWords;
                EXPECT_EQ(state(), tBefore) << tWords;
            }
        }
        succeed(tIsRefused ? "publish @r --trust-clock" : "publish @r");
        EXPECT_EQ(run("refresh @r").mErr, "");
    }
    mEnvironment["SOURCE_DATE_EPOCH"] = QByteArray::number(tNow.addDays(-9).toSecsSinceEpoch());
    succeed("init @n --no-passphrase --root-days 5");
    succeed("publish @n --expires-days 90");
    mEnvironment.remove("SOURCE_DATE_EPOCH");
    const QByteArray tTimestamp = readFile(path("n/metadata/timestamp.json"));
    EXPECT_TRUE(refusal("publish @n").contains("The root has expired on"));
    EXPECT_TRUE(refusal("refresh @n").contains("expired on"));
    EXPECT_EQ(readFile(path("n/metadata/timestamp.json")), tTimestamp);
    succeed("rotate-key @n root --no-passphrase");
    EXPECT_EQ(run("publish @n").mErr, "");
}

TEST_F(CeremonyTest, AKillAtAnyMomentLeavesWhatMachinesAccept)
{
    handOver("root", {"alice", "bob"});
    handOver("targets", {"alice", "bob"});
    succeed("add @r @f --name b --version 1");
    for (const char* tRole : {"root", "targets"}) {
        sign(tRole, "alice");
        sign(tRole, "bob");
    }
    copy("r", "r0");
    copy("r.keys", "r0.keys");
    const auto tPublish = [this](tarn::os::FileSystem& pFileSystem) {
        const QDateTime tNow = QDateTime::currentDateTimeUtc();
        KeyFolder tKeys(pFileSystem, path("r.keys"));
        return !tKeys.open() &&
               !Publication(pFileSystem, path("r"), tKeys).run({tNow, tNow.addDays(9), tNow.addDays(9)});
    };
    bool tFailed = true;
    for (int i = 1; tFailed; i += momentStep()) {
        SCOPED_TRACE(testing::Message() << "operation " << i);
        copy("r0", "r");
        copy("r0.keys", "r.keys");
        copy("client", "seen");
        FaultyFileSystem tFileSystem;
        tFileSystem.mForGood = true;
        tFileSystem.failAt(i, EIO);
        tPublish(tFileSystem);
        tFailed = tFileSystem.hasFailed();
        const QString tSeen = followAsClient("seen");
        EXPECT_TRUE(tSeen == sTwo || (tFailed && tSeen == sOne)) << tSeen;
        EXPECT_TRUE(tPublish(tarn::os::realFileSystem()));
        QDir(path("fresh")).removeRecursively();
        EXPECT_EQ(followAsClient("seen"), sTwo);
        EXPECT_EQ(followAsClient("fresh"), sTwo);
        EXPECT_TRUE(files("r/metadata").contains(q("2.root.json")));
        EXPECT_EQ(files("r.keys").filter(q(".draft")), QStringList());
        ASSERT_LT(i, 200);
    }
    EXPECT_EQ(run("verify @r").mErr, "");
}

// A machine that has only the old root, and a copy of the new state without the new root.
TEST_F(CeremonyTest, OldKeysSignDuringAChangeUnlessTheyAreLost)
{
    for (const bool tLost : {false, true}) {
        SCOPED_TRACE(tLost);
        const QByteArray tOld = idOf("targets", 0).toLatin1();
        succeed("key add @r targets --no-passphrase");
        succeed(("key remove @r targets " + tOld + (tLost ? " --lost" : "")).constData());
        if (tLost) {
            QFile::remove(path("r.keys/targets-") + QString::fromLatin1(tOld.left(16)) + q(".pem"));
        }
        copy("client", "seen");
        succeed("publish @r");
        copy("r", "web");
        for (const QString& tRoot : files("web/metadata").filter(q(".root.json"))) {
            if (tRoot.section(u'.', 0, 0).toInt() > (tLost ? 2 : 1)) {
                QFile::remove(path("web/metadata/") + tRoot);
            }
        }
        EXPECT_EQ(followAsClient("seen", "web") == sOne, !tLost);
        EXPECT_EQ(followAsClient(), sOne);
    }
}

TEST_F(CeremonyTest, WhoeverIsInTheRootIsNotLost)
{
    const QByteArray tOld = idOf("targets", 0).toLatin1();
    succeed("key add @r targets --no-passphrase");
    succeed(("key remove @r targets " + tOld + " --lost").constData());
    succeed("payload @r root --discard");
    {
        KeyFolder tKeys(tarn::os::realFileSystem(), path("r.keys"));
        EXPECT_FALSE(tKeys.openForReading() || tKeys.isGone(QString::fromLatin1(tOld)));
    }
    succeed("key add @r targets --no-passphrase");
    // To its owner, before it is in a published root.
    for (const QString& tName : files("r.keys").filter(q("targets-"))) {
        if (!tName.contains(QString::fromLatin1(tOld.left(16)))) {
            QFile::rename(path("r.keys/") + tName, path("moved-") + tName);
        }
    }
    succeed("publish @r");
    EXPECT_TRUE(files("r/metadata").contains(q("2.root.json")));
    KeyFolder tKeys(tarn::os::realFileSystem(), path("r.keys"));
    ASSERT_FALSE(tKeys.openForReading());
    for (int i = 0; i < 2; ++i) {
        EXPECT_FALSE(tKeys.isGone(idOf("targets", i))) << i;
    }
}

TEST_F(CeremonyTest, InitMakesKeysForSeveralPeople)
{
    succeed("init @n --no-passphrase --threshold 2 --key-count 3");
    EXPECT_EQ(files("n.keys").filter(q(".pem")).size(), 8);
    for (const QString& tName : files("n.keys").filter(q("targets-"))) {
        QDir().mkpath(path("moved"));
        QFile::rename(path("n.keys/") + tName, path("moved/") + tName);
    }
    EXPECT_TRUE(refusal("publish @n").contains("2 signatures are missing"));
    succeed("payload @n targets --output @payload");
    succeed("sign @payload --yes --keys @moved --output @signature");
    EXPECT_TRUE(run("add-signature @n targets @signature").mOut.contains("no signature is missing"));
    succeed("publish @n");
    EXPECT_EQ(run("verify @n").mErr, "");
}

} // namespace

// A publisher whose disk was restored from a backup, and machines that have seen later states.
#include "Publisher.h"
#include "TestServer.h"

namespace {

class RecoveryTest : public PublisherTest
{
protected:
    // A backup, followed by three states of the repository that are online and that a machine has seen.
    void prepare(const char* pRotation)
    {
        succeed("init @r --no-passphrase");
        succeed("add @r @f --name a --version 1");
        succeed("publish @r");
        copy("r", "backup");
        copy("r.keys", "backup.keys");
        succeed("add @r @f --name b --version 1");
        succeed("publish @r --targets-days 300");
        if (*pRotation != '\0') {
            succeed(pRotation);
        }
        succeed("publish @r --expires-days 60");
        copy("r", "online");
        EXPECT_EQ(followAsClient(), q("a-1.0.0.0.tar.zst b-1.0.0.0.tar.zst"));
    }

    void restore(const char* pWhat) const
    {
        const QByteArray tWhat(pWhat);
        if (tWhat.contains("record")) {
            write("r.keys/record.json", readFile(path("backup.keys/record.json")));
            copy("backup.keys/packages", "r.keys/packages");
        }
        if (tWhat.contains("keys")) {
            copy("backup.keys", "r.keys");
        }
        if (tWhat.contains("repository")) {
            copy("backup", "r");
        }
    }

    void expectBehind(const char* pAgainst, bool pBehind) const
    {
        const Program::Result tResult = run("verify @r --against " + QByteArray(pAgainst));
        EXPECT_EQ(tResult.mStatus, pBehind ? 1 : 0) << tResult.mErr;
        EXPECT_EQ(tResult.mErr.contains("is behind"), pBehind) << tResult.mErr;
        EXPECT_EQ(tResult.mOut.contains(": behind\n"), pBehind) << tResult.mOut;
        EXPECT_TRUE(pBehind || tResult.mOut.contains(": ahead\n")) << tResult.mOut;
    }
};

TEST_F(RecoveryTest, ARestoredPublisherGoesOnAboveWhatMachinesHaveSeen)
{
    const struct
    {
        const char* mRestored;
        const char* mRotation;
        bool mAbove;
        const char* mRefusal = nullptr;
    } sCases[] = {
        {"record", "", false},
        {"record", "rotate-key @r timestamp --no-passphrase", false},
        {"keys repository", "", true},
        {"record repository", "rotate-key @r snapshot --no-passphrase", true},
        {"keys", "rotate-key @r targets --no-passphrase", false, "role targets is not in"},
    };
    for (const auto& tCase : sCases) {
        SCOPED_TRACE(QByteArray(tCase.mRestored) + tCase.mRotation);
        for (const char* tOld : {"r", "r.keys", "client"}) {
            QDir(path(tOld)).removeRecursively();
        }
        prepare(tCase.mRotation);
        restore(tCase.mRestored);
        if (tCase.mAbove) {
            expectBehind("@online", true);
        }
        const Program::Result tResult = run(tCase.mAbove ? "publish @r --above @online" : "publish @r");
        EXPECT_EQ(tResult.mStatus, tCase.mRefusal ? 1 : 0) << tResult.mErr;
        if (tCase.mRefusal) {
            EXPECT_TRUE(tResult.mErr.contains(tCase.mRefusal)) << tResult.mErr;
            continue;
        }
        EXPECT_TRUE(tResult.mErr.contains("older than the published repository")) << tResult.mErr;
        EXPECT_EQ(followAsClient(), q("a-1.0.0.0.tar.zst"));
        expectBehind("@online", false);
        EXPECT_EQ(run("publish @r").mErr, "") << "said once";
        const QByteArray tRotation(tCase.mRotation);
        EXPECT_EQ(readFile(path("r.keys/record.json")).contains("until"),
                  tRotation.contains("timestamp") || tRotation.contains("snapshot"));
    }
}

// The people of the targets have signed all that is needed.
TEST_F(RecoveryTest, AListThatIsSignedStays)
{
    for (const char* tSince : {"rotate-key @r timestamp --no-passphrase", "publish @r --targets-days 3000"}) {
        SCOPED_TRACE(tSince);
        for (const char* tOld : {"r", "r.keys", "client"}) {
            QDir(path(tOld)).removeRecursively();
        }
        succeed("init @r --no-passphrase");
        succeed("add @r @f --name a --version 1");
        succeed("publish @r");
        copy("r.keys", "backup.keys");
        succeed(tSince);
        EXPECT_EQ(followAsClient(), q("a-1.0.0.0.tar.zst"));
        const QString tTargets = q("r.keys/") + files("r.keys").filter(q("targets-")).first();
        restore("record");
        QFile::rename(mDir.filePath(tTargets), path("elsewhere"));
        const QStringList tLists = files("r/metadata").filter(q("targets"));
        const Program::Result tResult = run("publish @r");
        EXPECT_EQ(tResult.mStatus, 0) << tResult.mErr;
        EXPECT_TRUE(tResult.mErr.contains("older than the published repository")) << tResult.mErr;
        EXPECT_EQ(followAsClient(), q("a-1.0.0.0.tar.zst"));
        EXPECT_EQ(files("r/metadata").filter(q("targets")), tLists);
        QFile::remove(path("elsewhere"));
    }
}

// Write access to the repository without its keys can't use up the versions.
TEST_F(RecoveryTest, WhatTheKeysHaveNotSignedRaisesNothing)
{
    prepare("");
    succeed("init @stranger --no-passphrase");
    for (int i = 0; i < 9; ++i) {
        succeed("publish @stranger");
    }
    succeed("rotate-key @stranger timestamp --no-passphrase");
    copy("stranger/metadata", "r/metadata");
    EXPECT_EQ(run("publish @r").mErr, "");
    EXPECT_TRUE(readFile(path("r/metadata/timestamp.json")).contains("\"version\":4}"));
    EXPECT_EQ(run("publish @r --above @stranger").mStatus, 1);
    write("stranger/metadata/2.root.json", R"({"signatures": [], "signed": {"_type": "root",
        "spec_version": "\u001b]0;x\u0007\n"}})");
    const QByteArray tQuoted = run("publish @r --above @stranger").mErr;
    EXPECT_TRUE(tQuoted.contains("version \" ]0;x \"")) << "it goes to a terminal: " << tQuoted;
}

TEST_F(RecoveryTest, AVersionThatOnlyAThiefCanHaveSignedIsTold)
{
    prepare("");
    const QByteArray tRecord = readFile(path("r.keys/record.json"));
    write("r.keys/record.json", QByteArray(tRecord).replace("\"timestamp\": 3", "\"timestamp\": 2000000"));
    succeed("publish @r");
    write("r.keys/record.json", tRecord);
    EXPECT_EQ(followAsClient(), q("a-1.0.0.0.tar.zst b-1.0.0.0.tar.zst")) << "it has seen that version";
    EXPECT_TRUE(run("refresh @r").mErr.contains("vkpublish rotate-key DIR timestamp"));
    EXPECT_TRUE(run("publish @r").mErr.contains("vkpublish rotate-key DIR timestamp"));
    EXPECT_EQ(run("rotate-key @r timestamp --no-passphrase").mErr, "");
    EXPECT_EQ(followAsClient(), q("a-1.0.0.0.tar.zst b-1.0.0.0.tar.zst"));
}

TEST_F(RecoveryTest, ReadsWhatIsOnlineOverHttps)
{
    prepare("");
    restore("keys repository");
    TestServer tServer(path("online"));
    ASSERT_TRUE(tServer.start());
    const QByteArray tPlace = tServer.uri().toUtf8() + " --ca-file " + tServer.caFile().toUtf8();
    const TestServer tOther(path("online"));
    EXPECT_TRUE(
        run("verify @r --against " + tServer.uri().toUtf8() + " --ca-file " + tOther.caFile().toUtf8())
            .mErr.contains("certificate"));
    expectBehind(tPlace.constData(), true);
    EXPECT_EQ(run("publish @r --above " + tPlace).mStatus, 0);
    expectBehind(tPlace.constData(), false);
    expectBehind(("file://" + path("online").toUtf8()).constData(), false);
    EXPECT_EQ(followAsClient(), q("a-1.0.0.0.tar.zst"));
    copy("r", "online");
    write("online/metadata/timestamp.json", QByteArray(20000, 'x'));
    EXPECT_TRUE(run("verify @r --against " + tPlace).mErr.contains("more than 16384 bytes"));
}

TEST_F(RecoveryTest, KnowsOlderRootsAndOthersOnline)
{
    prepare("");
    succeed("rotate-key @r timestamp --no-passphrase");
    copy("r", "first");
    copy("r.keys", "first.keys");
    succeed("rotate-key @r timestamp --no-passphrase");
    QFile::remove(path("r/metadata/3.root.json")); // as if it had been interrupted
    succeed("publish @r --above @online");
    succeed("publish @r --above @first");
    EXPECT_TRUE(QFile::exists(path("r/metadata/3.root.json")));
    copy("first.keys", "r.keys");
    copy("r", "online");
    copy("first", "r");
    succeed("rotate-key @r root --no-passphrase");
    EXPECT_TRUE(run("publish @r --above @online").mErr.contains("replaced twice"));
    EXPECT_TRUE(run("verify @r --against @online").mErr.contains("replaced twice"));
}

// Two publishers with the same keys: a restored one continued without comparing with what is online.
TEST_F(RecoveryTest, TheSameVersionWithAnotherContentIsTold)
{
    prepare("");
    restore("keys repository");
    succeed("add @r @f --name c --version 1");
    succeed("publish @r");
    succeed("publish @r --expires-days 60");
    const Program::Result tResult = run("verify @r --against @online");
    EXPECT_EQ(tResult.mStatus, 1);
    EXPECT_EQ(tResult.mOut.count(": the same\n"), 4) << tResult.mOut;
    EXPECT_TRUE(tResult.mErr.contains("other content")) << tResult.mErr;
}

TEST_F(RecoveryTest, ReadsTheRecordOfEarlierVersions)
{
    prepare("");
    makeOldRecord();
    QJsonObject tRecord = QJsonDocument::fromJson(readFile(path("r.keys/record.json"))).object();
    for (const char* tNew : {"retiringKeys", "unreferenced", "withdrawnTargets"}) {
        ASSERT_TRUE(tRecord.contains(q(tNew)));
        tRecord.remove(q(tNew));
    }
    write("r.keys/record.json", QJsonDocument(tRecord).toJson());
    succeed("rotate-key @r targets --no-passphrase");
    succeed("publish @r --prune");
    EXPECT_EQ(followAsClient(), q("a-1.0.0.0.tar.zst b-1.0.0.0.tar.zst"));
    EXPECT_TRUE(readFile(path("r.keys/record.json")).contains("\"format\": 2"));
}

} // namespace

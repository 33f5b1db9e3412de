// The pages of docs/keys.md about lost and stolen keys, walked as they are written, with a machine that has
// seen what a thief offers.
#include "keys/Signer.h"
#include "Publisher.h"
#include "record/Draft.h"

#include <QtCore/QRegularExpression>

#include <sys/stat.h>

using namespace tarn::vkpublish;

namespace {

const QString sFirst = q("viewer-1.0.0.0.tar.zst");

class KeysPageTest : public PublisherTest
{
protected:
    KeysPageTest()
    {
        write("pass", "correct horse\n");
        ::chmod(path("pass").toUtf8().constData(), 0600);
        mEnvironment["VKPUBLISH_PASSPHRASE_FILE"] = path("pass").toUtf8();
        mEnvironment["PATH"] = QFileInfo(q(VKPUBLISH)).path().toUtf8() + ":/usr/bin:/bin";
        write("publisher/build/viewer/run", "1");
        write("publisher/build/planner/run", "2");
        succeed("init @r");
        succeed("add @r @publisher/build/viewer --name viewer --version 1.0.0");
        succeed("publish @r");
        write("publisher/1.root.json", readFile(path("r/metadata/1.root.json")));
    }

    // The thief has the private folder, with these keys.
    void steal(const char* pKeys) const
    {
        copy("r", "thief");
        copy("r.keys", "thief.keys");
        dropKeys("thief.keys", [&](const QString& pRole) { return !q(pKeys).contains(pRole); });
    }

    void dropKeys(const char* pFolder, const std::function<bool(const QString& pRole)>& pIsDropped) const
    {
        for (const QString& tName : files(pFolder).filter(q(".pem"))) {
            if (pIsDropped(tName.section(u'-', 0, 0))) {
                QFile::remove(path(pFolder) + u'/' + tName);
            }
        }
    }

    // The thief publishes, and gets it to where machines look. pVersion: of a package.
    void attack(const QByteArray& pVersion = {}) const
    {
        if (!pVersion.isEmpty()) {
            succeed("add @thief @f --name viewer --version " + pVersion);
        }
        for (int i = 0; i < 3; ++i) {
            succeed("publish @thief");
        }
        call("publisher", "cp -a /srv/thief/targets /srv/thief/metadata ../web/");
    }

    QByteArray idOf(const QByteArray& pRole) const
    {
        const QByteArray tList = run("key list @r").mOut;
        return tList.mid(tList.indexOf("\n  ", tList.indexOf(pRole + ": ")) + 3, 64);
    }

    // In the folder of a person, with the answer y.
    Program::Result call(const QByteArray& pWho, QByteArray pCommand) const
    {
        const QByteArray tHere = mDir.path().toUtf8();
        QDir().mkpath(path(pWho.constData()));
        pCommand.replace(sPlace, "file://" + tHere + "/web");
        pCommand.replace("/srv/updates", tHere + "/r").replace("/srv/thief", tHere + "/thief");
        Program tShell(q("/bin/bash"),
                       {"-c", "systemctl() { cp -a " + tHere + "/r/. " + tHere + "/web; }; cd " + tHere +
                                  '/' + pWho + " && " + pCommand + " 2>&1"},
                       mEnvironment);
        tShell.write("y\n");
        Program::Result tResult = tShell.wait();
        tResult.mOut.replace("file://" + tHere + "/web", sPlace).replace(tHere + "/r", "/srv/updates");
        return tResult;
    }

    // A stick carries what a command names, but no private key.
    void carry(const QByteArray& pWho, const QByteArray& pCommand) const
    {
        for (const QByteArray& tWord : pCommand.split(' ')) {
            for (const char* tOther : {"publisher", "alice", "bob", "carol", "dave"}) {
                const QByteArray tFile = readFile(path(tOther) + u'/' + QString::fromUtf8(tWord));
                if (!tFile.isEmpty() && pWho != tOther && !tFile.contains("PRIVATE KEY")) {
                    write((pWho + '/' + tWord).constData(), tFile);
                }
            }
        }
    }

    // What an output has to be. The page has ids and dates of its own: mIds knows which are meant, by their
    // first eight digits.
    QString pattern(const QString& pWritten, QStringList* pNew) const
    {
        static const QRegularExpression sVaries(q(
            "([0-9a-f]{8})([0-9a-f]{8}(?=\\.pem)|\\.\\.\\.)|\\d{4}-[\\dT:-]+Z|(?<=\n)\\.\\.\\.\n|\\.\\.\\."));
        QString tPattern;
        qsizetype tAt = 0;
        for (auto tAll = sVaries.globalMatch(pWritten); tAll.hasNext();) {
            const QRegularExpressionMatch tOne = tAll.next();
            tPattern += QRegularExpression::escape(pWritten.mid(tAt, tOne.capturedStart() - tAt));
            tAt = tOne.capturedEnd();
            const QString tId = tOne.captured(1);
            if (tId.isEmpty()) {
                tPattern += tOne.captured().endsWith(u'Z')    ? q("\\S+Z")
                            : tOne.captured().endsWith(u'\n') ? q("(?s:.*)")
                                                              : q(".*");
            } else if (mIds.contains(tId)) {
                tPattern += mIds[tId].left(16) + q("[0-9a-f]*");
            } else {
                tPattern += q("([0-9a-f]+)");
                pNew->append(tId);
            }
        }
        return q("\\A") + tPattern + QRegularExpression::escape(pWritten.mid(tAt)) + q("\\z");
    }

    QString withIds(QString pCommand) const
    {
        static const QRegularExpression sId(q("\\b([0-9a-f]{8})([0-9a-f]{8})?\\b"));
        for (auto tAll = sId.globalMatch(pCommand); tAll.hasNext();) {
            const QRegularExpressionMatch tOne = tAll.next();
            pCommand.replace(tOne.captured(), mIds[tOne.captured(1)].left(tOne.capturedLength()));
        }
        return pCommand;
    }

    // Gives the roles to three people, of whom two must sign. Alice and Carol do.
    void handOver(const QByteArrayList& pRoles)
    {
        const QMap<QByteArray, QString> tNamed{{"root-alice", q("5d0b6c1e")},
                                               {"root-bob", q("77a0e3c4")},
                                               {"root-carol", q("c01f99d2")},
                                               {"targets-carol", q("1f0a93cd")}};
        const QString tRoot = path("r.keys/root-") + QString::fromUtf8(idOf("root").first(16)) + q(".pem");
        for (const QByteArray& tRole : pRoles) {
            const QByteArray tOld = idOf(tRole);
            for (const QByteArray tWho : {"alice", "bob", "carol"}) {
                const QByteArray tKey = '@' + tWho + '/' + tRole + '-' + tWho + ".pem";
                QDir().mkpath(path(tWho.constData()));
                const QByteArray tMade = run("key make --no-passphrase " + tKey).mOut;
                mIds[tNamed[tRole + '-' + tWho]] =
                    QString::fromUtf8(tMade.mid(tMade.indexOf("Id:          ") + 13, 64));
                succeed("key add @r " + tRole + " --public " + tKey + ".pub");
            }
            succeed("key threshold @r " + tRole + " 2");
            succeed("key remove @r " + tRole + ' ' + tOld);
        }
        for (const QByteArray& tRole : pRoles) {
            succeed("payload @r " + tRole + " --output @payload");
            for (const QByteArray tWho : {"alice", "carol"}) {
                succeed("sign @payload --yes --keys @" + tWho + " --output @signature");
                succeed("add-signature @r " + tRole + " @signature");
            }
        }
        succeed("publish @r");
        QFile::remove(tRoot);
    }

    void walk(const QByteArray& pTitle)
    {
        QByteArray tPage = readFile(q(KEYS_PAGE));
        tPage = tPage.mid(tPage.indexOf("\n### " + pTitle + '\n') + 1);
        tPage.truncate((tPage + "\n##").indexOf("\n##"));
        static const QRegularExpression sCommand(q("    (\\w+)\\$ (.*)\n((?:(?!    \\w+\\$ )    .*\n)*)"));
        int tCommands = 0;
        for (auto tAll = sCommand.globalMatch(QString::fromUtf8(tPage)); tAll.hasNext(); ++tCommands) {
            const QRegularExpressionMatch tOne = tAll.next();
            const QByteArray tCommand = withIds(tOne.captured(2)).toUtf8();
            const QString tWritten = q("\n") + QString(tOne.captured(3)).replace(q("\n    "), q("\n")).mid(4);
            carry(tOne.captured(1).toUtf8(), tCommand);
            const Program::Result tResult = call(tOne.captured(1).toUtf8(), tCommand);
            QStringList tNew;
            const QRegularExpression tPattern(pattern(tWritten, &tNew));
            const auto tMatch = tPattern.match(u'\n' + QString::fromUtf8(tResult.mOut));
            ASSERT_TRUE(tMatch.hasMatch()) << tCommand << '\n' << tResult.mOut << tPattern.pattern();
            EXPECT_EQ(tResult.mStatus, tWritten.contains(q("\nvkpublish: The ")) ? 1 : 0) << tCommand;
            for (qsizetype i = 0; i < tNew.size(); ++i) {
                mIds[tNew[i]] = tMatch.captured(static_cast<int>(i) + 1);
            }
        }
        EXPECT_GE(tCommands, 4);
    }

    const QByteArray sPlace = "https://updates.example.com/stable";
    QMap<QString, QString> mIds;
};

TEST_F(KeysPageTest, ATimestampKeyWasStolen)
{
    steal("timestamp");
    copy("r", "web");
    attack();
    EXPECT_EQ(followAsClient("victim", "web"), sFirst);
    walk("A timestamp key was stolen");
    EXPECT_EQ(followAsClient("victim", "web"), sFirst);
    attack();
    EXPECT_TRUE(followAsClient("victim", "web").contains(q("signature")));
    EXPECT_TRUE(followAsClient("fresh", "web").contains(q("signature")));
}

TEST_F(KeysPageTest, ATargetsKeyWasStolen)
{
    steal("targets snapshot timestamp");
    copy("r", "web");
    attack("9.0.0");
    EXPECT_EQ(followAsClient("victim", "web"), sFirst + q(" viewer-9.0.0.0.tar.zst"));
    walk("A targets key was stolen");
    for (const char* tClient : {"victim", "fresh"}) {
        EXPECT_EQ(followAsClient(tClient, "web"), sFirst + q(" viewer-9.0.1.0.tar.zst"));
    }
    attack("9.0.2");
    EXPECT_TRUE(followAsClient("victim", "web").contains(q("signature")));
}

// Together with all that the nightly job has.
TEST_F(KeysPageTest, ATargetsKeyOfThreeWasStolen)
{
    handOver({"root", "targets"});
    const QString tId = mIds[q("1f0a93cd")];
    steal("snapshot timestamp");
    writeFile(path("thief.keys/targets-") + tId.left(16) + q(".pem"),
              readFile(path("carol/targets-carol.pem")));
    succeed("add @thief @f --name viewer --version 9.0.0");
    EXPECT_TRUE(run("publish @thief").mErr.contains("missing"));
    copy("r", "web");
    EXPECT_EQ(followAsClient("victim", "web"), sFirst);
    walk("A targets key of three was stolen");
    EXPECT_EQ(followAsClient("victim", "web"), sFirst);
    EXPECT_EQ(followAsClient("fresh", "web"), sFirst);
    EXPECT_FALSE(readFile(path("web/metadata/3.targets.json")).contains(tId.toUtf8()));
}

// Who finds the lost key signs a root of his own with it.
TEST_F(KeysPageTest, OneRootKeyOfThreeWasLost)
{
    handOver({"root"});
    const auto tForge = [this](const char* pFile) {
        succeed("payload @r root --renew --output @payload");
        KeyFolder tCarol(tarn::os::realFileSystem(), path("carol"));
        const auto tSigner = tCarol.openKeyFiles({q("root-carol.pem")});
        Draft tRoot{.mRole = q("root"), .mPayload = readFile(path("payload")), .mSignatures = {}};
        tRoot.mSignatures = *signBytes(tRoot.mPayload, *tSigner);
        copy("r", "forged");
        write(pFile, tRoot.file());
        succeed("payload @r root --discard");
        EXPECT_TRUE(followAsClient("victim", "forged").contains(q("signatures")));
    };
    tForge("forged/metadata/3.root.json");
    walk("One root key of three was lost");
    EXPECT_TRUE(QFile::exists(path("web/metadata/3.root.json")));
    EXPECT_EQ(followAsClient("victim", "web"), sFirst);
    tForge("forged/metadata/4.root.json");
}

// Who repairs the broken disk has the keys.
TEST_F(KeysPageTest, AllOnlineKeysWereLost)
{
    steal("snapshot timestamp");
    dropKeys("r.keys",
             [](const QString& pRole) { return pRole == q("snapshot") || pRole == q("timestamp"); });
    EXPECT_EQ(followAsClient("victim"), sFirst);
    walk("All online keys were lost");
    EXPECT_EQ(followAsClient("victim", "web"), sFirst);
    attack();
    EXPECT_TRUE(followAsClient("victim", "web").contains(q("signature")));
}

TEST_F(KeysPageTest, TheRecordWasLost)
{
    copy("r", "web");
    QFile::remove(path("r.keys/record.json"));
    QDir(path("r.keys/packages")).removeRecursively();
    EXPECT_EQ(followAsClient("victim"), sFirst);
    walk("The record was lost");
    EXPECT_EQ(followAsClient("victim", "web"), sFirst);
}

TEST_F(KeysPageTest, ABackupWasRestored)
{
    copy("r", "backup");
    copy("r.keys", "backup.keys");
    succeed("add @r @publisher/build/planner --name planner --version 1.0.0");
    succeed("publish @r");
    copy("r", "web");
    copy("backup", "r");
    copy("backup.keys", "r.keys");
    const QString tBoth = q("planner-1.0.0.0.tar.zst ") + sFirst;
    EXPECT_EQ(followAsClient("victim", "web"), tBoth);
    walk("A backup was restored");
    EXPECT_EQ(followAsClient("victim", "web"), tBoth);
}

TEST_F(KeysPageTest, APassphraseWasForgotten)
{
    EXPECT_EQ(followAsClient("victim"), sFirst);
    const QByteArray tId = idOf("targets");
    mIds[q("58d1f6b3")] = QString::fromUtf8(tId);
    const QByteArray tKey = "../r.keys/targets-" + tId.first(16) + ".pem";
    call("publisher", "openssl pkcs8 -topk8 -scrypt -in " + tKey +
                          " -passin file:../pass -passout pass:who-knows " + "-out new && mv new " + tKey);
    EXPECT_TRUE(run("rotate-key @r targets").mErr.contains("does not open"));
    walk("A passphrase was forgotten");
    EXPECT_EQ(followAsClient("victim", "web"), sFirst);
}

} // namespace

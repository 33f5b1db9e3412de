// The built vkpublish.
#include "publication/Verification.h"
#include "Publisher.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

using namespace tarn::vkpublish;

namespace {

class ProgramTest : public PublisherTest
{
protected:
    // The output when its program was added.
    Program::Result makeRepository() const
    {
        succeed("init @r --no-passphrase");
        const Program::Result tAdded = run(
            "add @r @f --name viewer --version 1.2 --title en=Viewer --title de=Betrachter --requires charts "
            "--executable bin/run --date 2026-03-01");
        EXPECT_EQ(tAdded.mStatus, 0);
        succeed("add @r @f --name charts --version 7 --kind data --language de");
        succeed("publish @r");
        return tAdded;
    }

    mode_t mode(const QString& pPath) const
    {
        struct stat tStat
        {
        };
        ::stat(QFile::encodeName(pPath).constData(), &tStat);
        return tStat.st_mode & 07777;
    }

    // What the newest list of packages says about an archive.
    QJsonObject custom(const char* pArchive) const
    {
        int tNewest = 0;
        for (const QString& tFile : files("r/metadata").filter(q(".targets.json"))) {
            tNewest = std::max(tNewest, tFile.section(u'.', 0, 0).toInt());
        }
        const QByteArray tList = readFile(path("r/metadata/") + q("%1.targets.json").arg(tNewest));
        return QJsonDocument::fromJson(tList)[q("signed")][q("targets")][q(pArchive)][q("custom")].toObject();
    }

    QStringList problems() const
    {
        return verifyRepository(path("r"), readFile(path("r/metadata/1.root.json")),
                                QDateTime::currentDateTimeUtc())
            .mProblems;
    }
};

TEST_F(ProgramTest, PublishesWhatClientsCanFollow)
{
    EXPECT_EQ(run("--version").mOut, "vkpublish " VKPUBLISH_VERSION "\n");
    EXPECT_TRUE(makeRepository().mErr.startsWith("vkpublish: bin/run is a script"));
    EXPECT_EQ(followAsClient(), q("charts-7.0.0.0-de.tar.zst viewer-1.2.0.0.tar.zst"));
    const Program::Result tVerified = run("verify @r");
    EXPECT_EQ(tVerified.mStatus, 0);
    EXPECT_EQ(tVerified.mOut, "The repository is valid: 2 packages\n");
    EXPECT_EQ(tVerified.mErr, QByteArray());
    const QByteArray tList = run("list @r").mOut;
    EXPECT_TRUE(tList.contains("\nviewer  1.2.0    2026-03-01  application  -         ")) << tList;
    EXPECT_EQ(tList.count("  published\n"), 2) << tList;
}

TEST_F(ProgramTest, KeepsKeysPrivateAndTheRestPublic)
{
    const mode_t tOld = ::umask(077);
    makeRepository();
    ::umask(tOld);
    for (const char* tFolder : {"r/metadata/", "r/targets/"}) {
        EXPECT_EQ(mode(path(tFolder)), 0755u);
        for (const QString& tFile : files(tFolder)) {
            EXPECT_EQ(mode(path(tFolder) + tFile), 0644u) << tFile;
        }
    }
    EXPECT_EQ(mode(path("r.keys")), 0700u);
    EXPECT_EQ(files("r.keys").size(), 6); // four keys, record and lock
    for (const QString& tFile : files("r.keys")) {
        EXPECT_EQ(mode(path("r.keys/") + tFile), 0600u) << tFile;
        const QByteArray tContent = readFile(path("r.keys/") + tFile);
        EXPECT_EQ(tContent.contains("PRIVATE KEY"), tFile.endsWith(q(".pem")));
    }
    for (const QString& tFile : files("r.keys/packages")) {
        EXPECT_EQ(mode(path("r.keys/packages/") + tFile), 0600u) << tFile;
    }
    EXPECT_EQ(mode(path("r.keys/packages")), 0700u);
    for (const char* tPath : {"r.keys", "r.keys/record.json"}) {
        const mode_t tMode = mode(path(tPath));
        ::chmod(path(tPath).toUtf8().constData(), tMode | 044);
        EXPECT_EQ(run("publish @r").mStatus, q(tPath) == q("r.keys") ? 1 : 0);
        ::chmod(path(tPath).toUtf8().constData(), tMode);
    }
    const QString tKey = path("r.keys/") + files("r.keys").filter(q("timestamp")).first();
    ::chmod(tKey.toUtf8().constData(), 0640);
    const Program::Result tResult = run("publish @r");
    EXPECT_EQ(tResult.mStatus, 1);
    EXPECT_TRUE(tResult.mErr.contains("accessible to other users")) << tResult.mErr;
}

TEST_F(ProgramTest, AnyChangedFileIsFound)
{
    makeRepository();
    succeed("rotate-key @r timestamp --no-passphrase"); // the old key signs, too
    succeed("publish @r --prune --prune-days 0");
    for (const char* tFolder : {"r/metadata/", "r/targets/"}) {
        for (const QString& tName : files(tFolder)) {
            spoil(path(tFolder) + tName);
            EXPECT_NE(problems(), QStringList()) << tName;
            spoil(path(tFolder) + tName);
        }
    }
    EXPECT_EQ(problems(), QStringList());
    QFile::remove(path("r/targets/") + files("r/targets").first());
    EXPECT_EQ(run("verify @r").mStatus, 1);
}

TEST_F(ProgramTest, RefreshesWithoutNews)
{
    makeRepository();
    const QStringList tBefore = files("r/metadata");
    const QByteArray tTimestamp = readFile(path("r/metadata/timestamp.json"));
    succeed("publish @r");
    EXPECT_EQ(files("r/metadata"), tBefore);
    EXPECT_NE(readFile(path("r/metadata/timestamp.json")), tTimestamp);
    succeed("publish @r --expires-days 60"); // the snapshot has less than half of that left
    EXPECT_TRUE(files("r/metadata").contains(q("2.snapshot.json")));
    EXPECT_FALSE(files("r/metadata").contains(q("2.targets.json")));

    const Program::Result tExpired = run("publish @r --expires 2020-01-01");
    EXPECT_EQ(tExpired.mStatus, 0);
    EXPECT_TRUE(tExpired.mErr.contains("Warning"));
    EXPECT_EQ(run("verify @r").mStatus, 1);
}

TEST_F(ProgramTest, HaltsAtOnceAndPublishesNothingElse)
{
    makeRepository();
    const QJsonObject tBefore = custom("viewer-1.2.0.0.tar.zst");
    succeed("add @r @f --name new --version 1");
    EXPECT_EQ(run("halt @r viewer 1.3").mErr, "vkpublish: Unknown package: viewer\n");
    EXPECT_EQ(run("halt @r viewer x").mStatus, 2);
    EXPECT_TRUE(run("halt @r viewer 1.2").mOut.startsWith("Halted viewer-1.2.0.0.tar.zst\nPublished, "));
    EXPECT_EQ(followAsClient(), q("charts-7.0.0.0-de.tar.zst viewer-1.2.0.0.tar.zst"));
    EXPECT_EQ(custom("viewer-1.2.0.0.tar.zst").keys(), QStringList({q("name"), q("package")}));
    const Program::Result tVerified = run("verify @r");
    EXPECT_TRUE(tVerified.mOut.contains("viewer-1.2.0.0.tar.zst: halted since 2")) << tVerified.mOut;
    const QByteArray tList = run("list @r").mOut;
    EXPECT_TRUE(tList.contains("halted since 2")) << tList;
    EXPECT_EQ(tList.count("  new\n"), 1) << tList;
    EXPECT_TRUE(run("halt @r new").mOut.contains("not published yet"));
    succeed("halt @r new --lift");
    // Added again, the same bytes stay halted, and others are not.
    succeed("add @r @f --replace --name viewer --version 1.2 --title en=Viewer --title de=Betrachter "
            "--requires charts --executable bin/run --date 2026-03-01");
    succeed("publish @r");
    EXPECT_TRUE(followAsClient().contains(q("new-1")));
    EXPECT_TRUE(custom("viewer-1.2.0.0.tar.zst").contains(q("package")));
    EXPECT_TRUE(run("halt @r viewer --lift").mOut.startsWith("Lifted the halt of viewer-1.2.0.0.tar.zst\n"));
    EXPECT_EQ(custom("viewer-1.2.0.0.tar.zst"), tBefore);
    succeed("halt @r viewer");
    write("f/data", "mended\n");
    succeed("add @r @f --replace --name viewer --version 1.2");
    succeed("publish @r");
    EXPECT_FALSE(custom("viewer-1.2.0.0.tar.zst").contains(q("package")));
}

TEST_F(ProgramTest, SpreadsWhatIsNewOverDaysAndToChannels)
{
    makeRepository();
    const char* tArchive = "a-1.0.0.0.tar.zst";
    const auto tPhase = [&](const char* pName) { return custom(pName).value(q("phase")).toObject(); };
    succeed("add @r @f --name a --version 1");
    succeed("add @r @f --name urgent --version 1 --critical");
    succeed("publish @r --phase-days 5");
    const QJsonObject tFirst = tPhase(tArchive);
    EXPECT_EQ(tFirst.value(q("seconds")).toInt(), 5 * 24 * 60 * 60);
    EXPECT_TRUE(tPhase("viewer-1.2.0.0.tar.zst").isEmpty()) << "it was published before";
    EXPECT_TRUE(tPhase("urgent-1.0.0.0.tar.zst").isEmpty());
    EXPECT_TRUE(run("list @r").mOut.contains("  phase until 2"));
    succeed("publish @r");
    succeed("publish @r --phase-days 9");
    EXPECT_EQ(tPhase(tArchive), tFirst) << "what was published keeps its phase";

    // Halted a thousand seconds ago, it goes on where it was stopped.
    succeed("halt @r a");
    const QDateTime tThen = QDateTime::currentDateTimeUtc().addSecs(-1000);
    changePackages([&](QByteArray pText) {
        for (const QByteArray& tKey : {QByteArray("\"halted\":\""), QByteArray("\"begins\":\"")}) {
            const qsizetype tAt = pText.indexOf(tKey);
            if (tAt >= 0) {
                pText.replace(tAt + tKey.size(), 20, tThen.toString(Qt::ISODate).toUtf8());
            }
        }
        return pText;
    });
    succeed("halt @r a --lift");
    const QJsonObject tLater = tPhase(tArchive);
    EXPECT_EQ(tLater.value(q("publication")), tFirst.value(q("publication")));
    const QDateTime tBegins = QDateTime::fromString(tLater.value(q("begins")).toString(), Qt::ISODate);
    EXPECT_LT(std::abs(tThen.addSecs(1000).secsTo(tBegins)), 100);
    succeed("publish @r --phase-days 0");
    EXPECT_TRUE(tPhase(tArchive).isEmpty());

    succeed("add @r @f --name b --version 1 --channel beta --date 2026-03-01");
    succeed("publish @r");
    const QJsonObject tBeta = custom("b-1.0.0.0.tar.zst").value(q("package")).toObject();
    EXPECT_EQ(tBeta.value(q("channel")).toString(), q("beta"));
    succeed("add @r @f --replace --name b --version 1 --date 2026-03-01");
    succeed("publish @r");
    EXPECT_EQ(custom("b-1.0.0.0.tar.zst").value(q("date")), tBeta.value(q("date")))
        << "machines of the channel have it already";
    EXPECT_EQ(run("add @r @f --name c --version 1 --channel A/b").mStatus, 2);
    EXPECT_EQ(run("verify @r").mErr, "");
}

TEST_F(ProgramTest, TheRepositoryFolderIsNeverBelieved)
{
    makeRepository();
    // An attacker with write access to the web server replaces the list and restores an old timestamp.
    write("r/metadata/1.targets.json", "{}");
    write("r/metadata/timestamp.json", "{}");
    succeed("publish @r");
    EXPECT_EQ(followAsClient(), q("charts-7.0.0.0-de.tar.zst viewer-1.2.0.0.tar.zst"));

    succeed("add @r @f --name other --version 1");
    const QString tArchive = path("r/targets/") + files("r/targets").filter(q("other")).first();
    spoil(tArchive);
    const Program::Result tResult = run("publish @r");
    EXPECT_EQ(tResult.mStatus, 1);
    EXPECT_TRUE(tResult.mErr.contains("was changed")) << tResult.mErr;
    EXPECT_EQ(followAsClient(), q("charts-7.0.0.0-de.tar.zst viewer-1.2.0.0.tar.zst"));
    succeed("add @r @f --name other --version 1 --replace");
    succeed("publish @r");
}

TEST_F(ProgramTest, WhatReplacesAVersionIsNewerForMachines)
{
    makeRepository();
    const char* tAdd = "add @r @f --name viewer --version 1.2 --replace --date ";
    const struct
    {
        const char* mDate;
        const char* mContent; // of a file in the package
        const char* mPublished;
        bool mMoved;
        bool mWithdrawn = false; // before
    } sCases[] = {
        {"2026-03-01", "new", "2026-03-01T00:00:01Z", true},
        {"2025-01-01", "older", "2026-03-01T00:00:02Z", true},
        {"2026-03-05", "newer", "2026-03-05T00:00:00Z", false},
        {"2026-03-05", "newer", "2026-03-05T00:00:00Z", false}, // the same again
        {"2026-03-05", "newest", "2026-03-05T00:00:01Z", true, true},
    };
    for (const auto& tCase : sCases) {
        if (tCase.mWithdrawn) {
            succeed("remove @r viewer");
            succeed("publish @r");
        }
        write("f/data", tCase.mContent);
        const Program::Result tAdded = run(QByteArray(tAdd) + tCase.mDate);
        EXPECT_EQ(tAdded.mOut.contains("dated"), tCase.mMoved) << tAdded.mOut << tAdded.mErr;
        succeed("publish @r");
        EXPECT_TRUE(followAsClient().contains(q("viewer")));
        EXPECT_TRUE(readFile(path("client/targets.json")).contains(tCase.mPublished)) << tCase.mDate;
    }
}

TEST_F(ProgramTest, VerifiesWhatSomebodyVouchesFor)
{
    makeRepository();
    succeed("rotate-key @r root --no-passphrase");
    succeed("init @stranger --no-passphrase");
    succeed("publish @stranger");
    copy("r", "mirror");
    copy("stranger", "other");
    copy("stranger", "mix"); // a stranger's repository with the right root
    QFile::copy(path("r/metadata/2.root.json"), path("mix/metadata/3.root.json"));
    const std::tuple<const char*, int, const char*> sCases[] = {
        {"verify @r", 0, ""},
        {"verify @mirror", 3, "root is not trusted"},
        {"verify @mirror --root @r/metadata/1.root.json", 0, ""},
        {"verify @mirror --keys @r.keys", 0, ""},
        {"verify @other", 3, "root is not trusted"},
        {"verify @other --root @r/metadata/1.root.json", 1, "signatures"},
        {"verify @other --keys @r.keys", 1, "another repository"},
        {"verify @mix --keys @r.keys", 1, "another repository"},
        {"verify @mirror --keys @none", 1, "record.json"},
    };
    for (const auto& [tCommand, tStatus, tSays] : sCases) {
        const Program::Result tResult = run(tCommand);
        EXPECT_EQ(tResult.mStatus, tStatus) << tCommand << tResult.mErr;
        EXPECT_TRUE(tResult.mErr.contains(tSays)) << tResult.mErr;
        EXPECT_EQ(tResult.mOut.contains("is valid"), tStatus == 0);
    }
}

TEST_F(ProgramTest, RemovesAndPrunes)
{
    makeRepository();
    succeed("add @r @f --name viewer --version 1.3");
    succeed("remove @r viewer --version 1.2");
    EXPECT_TRUE(run("list @r").mOut.contains("removed"));
    succeed("publish @r --prune");
    EXPECT_EQ(files("r/targets").size(), 5) << "machines may be in the middle of it";
    QByteArray tRecord = readFile(path("r.keys/record.json"));
    EXPECT_EQ(tRecord.count("targets/"), 2) << "archive and index";
    // As if published two days ago.
    const QDate tToday = QDateTime::currentDateTimeUtc().date();
    tRecord.replace(tToday.toString(Qt::ISODate).toUtf8(), tToday.addDays(-2).toString(Qt::ISODate).toUtf8());
    write("r.keys/record.json", tRecord);
    write("r/targets/stray", "x");
    succeed("publish @r --prune");
    EXPECT_TRUE(QFile::remove(path("r/targets/stray"))) << "found just now";
    EXPECT_EQ(followAsClient(), q("charts-7.0.0.0-de.tar.zst viewer-1.3.0.0.tar.zst"));
    EXPECT_EQ(files("r/metadata"), (QStringList{q("1.root.json"), q("2.snapshot.json"), q("2.targets.json"),
                                                q("timestamp.json")}));
    EXPECT_EQ(files("r/targets").size(), 3) << "two archives with the same content, one index";
    succeed("remove @r viewer");
    succeed("publish @r --prune --prune-days 0");
    EXPECT_EQ(files("r/targets").size(), 2);
    EXPECT_EQ(followAsClient(), q("charts-7.0.0.0-de.tar.zst"));
}

TEST_F(ProgramTest, MakesDeltasFromTheVersionsBefore)
{
    succeed("init @r --no-passphrase");
    const auto tAdd = [this](int pVersion) {
        write("f/data", QByteArray(20000, 'x') + char('0' + pVersion));
        write("f/noise", readFile(q(VKPUBLISH)).mid(pVersion, 100000));
        succeed(qPrintable(q("add @r @f --level 1 --name charts --version %1").arg(pVersion)));
    };
    const auto tDeltas = [this] { return files("r/targets").filter(q(".delta")).size(); };
    for (const int tVersion : {1, 2, 3}) {
        tAdd(tVersion);
        succeed(tVersion == 2 ? "publish @r --deltas 0" : "publish @r");
    }
    EXPECT_EQ(tDeltas(), 2) << "to the third";
    EXPECT_TRUE(run("list @r").mOut.contains("  2, ")) << run("list @r").mOut;
    EXPECT_EQ(run("verify @r").mStatus, 0);

    // What a version of before 1.1 has added has no index; what is new gets a delta from the others alone.
    changePackages([](const QByteArray& pText) {
        QJsonObject tTarget = QJsonDocument::fromJson(pText).object();
        QJsonObject tCustom = tTarget[q("custom")].toObject();
        if (tCustom[q("version")] == q("2.0.0.0")) {
            tCustom.remove(q("index"));
            tTarget.insert(q("custom"), tCustom);
        }
        return TargetList({{q("x"), tTarget}}).text(q("x"));
    });
    write("r.keys/scratch/old/package/left", "by a killed publish");
    write("r/targets/.delta.new.segments", "likewise");
    succeed("remove @r charts --version 1");
    succeed("publish @r");
    tAdd(4);
    succeed("publish @r --deltas 3");
    EXPECT_EQ(tDeltas(), 4) << "from 3, and from 1, which is withdrawn but still there";
    succeed("remove @r charts --version 3");
    QFile::remove(path("r/targets/") + files("r/targets").filter(q("-1.0.0.0.tar.zst")).first());
    tAdd(5);
    succeed("publish @r --deltas 3 --prune --prune-days 0");
    EXPECT_EQ(run("verify @r").mErr, "");
    EXPECT_FALSE(run("verify @r").mOut.contains("Unreferenced"));
    EXPECT_FALSE(QFileInfo::exists(path("r.keys/scratch")));
    EXPECT_EQ(files("r.keys").size(), 6);
    EXPECT_EQ(files("r/targets").size(), 1 + 4 + 4) << files("r/targets").join(u'\n');
}

TEST_F(ProgramTest, TwoPublishersDoNotMix)
{
    makeRepository();
    succeed("mirror @r @m --root @r/metadata/1.root.json");
    const auto tLock = [this](const char* pPath) {
        const int tFd = ::open(path(pPath).toUtf8().constData(), O_RDONLY | O_CLOEXEC);
        EXPECT_EQ(::flock(tFd, LOCK_EX), 0);
        return tFd;
    };
    const auto tBefore = state();
    int tFd = -1;
    for (const auto& [tPath, tUse] :
         {std::pair("r/metadata", "writing to"), {"r.keys/lock", "using the keys in"}}) {
        ::close(tFd);
        tFd = tLock(tPath);
        for (const QByteArray tCommand :
             {"publish @r", "rotate-key @r root --no-passphrase", "refresh @r", "halt @r viewer",
              "add @r @f --name x --version 1", "key add @r root --no-passphrase", "remove @r none"}) {
            const QByteArray tErr = run(tCommand + " --no-wait").mErr;
            // To remove writes to the record alone.
            EXPECT_TRUE(tErr.contains(QByteArray("Another vkpublish is ") + tUse) ||
                        tErr.contains("Unknown package: none"))
                << tCommand << tErr;
            EXPECT_EQ(state(), tBefore) << tCommand;
        }
        EXPECT_EQ(run("list @r").mStatus, 0);
        EXPECT_EQ(run("verify @r").mStatus, 0);
    }
    succeed("mirror @r @m --root @r/metadata/1.root.json");
    const int tCopy = tLock("m/metadata");
    Program tMirror(q(VKPUBLISH), {"mirror", path("r").toUtf8(), path("m").toUtf8()}, {},
                    Program::Console::Terminal);
    EXPECT_TRUE(tMirror.waitForOutput("Waiting for another vkpublish, which is writing to"));
    ::close(tCopy);
    EXPECT_EQ(tMirror.wait().mStatus, 0);

    // Each waits, says so, and works with what the one before it has left.
    const QByteArray tRepository = path("r").toUtf8();
    Program tFirst(q(VKPUBLISH), {"remove", tRepository, "viewer"}, {}, Program::Console::Terminal);
    Program tSecond(q(VKPUBLISH), {"remove", tRepository, "charts"}, {}, Program::Console::Terminal);
    ASSERT_TRUE(tFirst.waitForOutput("Waiting for another vkpublish"));
    ASSERT_TRUE(tSecond.waitForOutput("Waiting for another vkpublish"));
    EXPECT_EQ(run("list @r").mOut.count("removed"), 0);
    ::close(tFd);
    EXPECT_EQ(tFirst.wait().mStatus, 0);
    EXPECT_EQ(tSecond.wait().mStatus, 0);
    EXPECT_EQ(run("list @r").mOut.count("removed"), 2);
}

TEST_F(ProgramTest, RefusesInOneLine)
{
    makeRepository();
    const std::tuple<const char*, int, const char*> sCases[] = {
        {"", 2, "A command is missing"},
        {"init @r", 1, "already contains a repository"},
        {"init @new --keys @r.keys", 1, "already contains the keys of a repository"},
        {"init @new --keys @new/keys", 1, "is in the repository"},
        {"init @keys/repository --keys @keys", 1, "is in the key folder"},
        {"init @new --key-type dsa", 2, "Unknown key type \"dsa\""},
        {"add @r @f --name x", 2, "--version takes"},
        {"add @r @f --name x --version 1 --title Viewer", 2, "--title takes LANG=TEXT"},
        {"add @r @f --name x --version 1 --date soon", 2, "--date takes"},
        {"add @r @f --name x --version 1 --executable bin/none", 1, "bin/none, which --executable names"},
        {"add @r @f --name x --version 1 --check bin/none", 1,
         "no executable file bin/none, which --check names"},
        {"add @r @f --name x --version 1 --check ../run", 2, "check is not valid"},
        {"add @r @f --name x --version 1 --check=", 2, "--check takes"},
        {"add @r @f --name viewer --version 1.2", 1, "already exists"},
        {"add @r @f --name x --version 1 --unknown", 2, "nknown option"},
        {"remove @r none", 1, "Unknown package"},
        {"publish @none", 1, "does not exist"},
        {"publish @r --expires-days 0", 2, "--expires-days takes"},
        {"publish @r --above http://localhost/r", 2, "https://"},
        {"publish @r --above https://me:pw@localhost/r", 2, "netrc"},
        {"verify @none", 1, "1.root.json"},
        {"rotate-key @r mirrors", 2, "Unknown role \"mirrors\""},
    };
    for (const auto& [tCommand, tStatus, tSays] : sCases) {
        const Program::Result tResult = run(tCommand);
        EXPECT_EQ(tResult.mStatus, tStatus) << tCommand;
        EXPECT_TRUE(tResult.mErr.contains(tSays)) << tCommand << ": " << tResult.mErr;
        EXPECT_EQ(tResult.mErr.count('\n'), tStatus == 0 ? 0 : 1) << tResult.mErr;
    }
    EXPECT_FALSE(QFileInfo::exists(path("new")));
    EXPECT_EQ(problems(), QStringList());
}

TEST_F(ProgramTest, ReportsWhatItCouldNotSay)
{
    makeRepository();
    succeed("key make --no-passphrase @key.pem");
    succeed("payload @r targets --output @payload");
    const QByteArray tLost = "vkpublish: Can't write to standard output: ";
    const QByteArray tFull = tLost + "No space left on device\n";
    const struct
    {
        const char* mCommand;
        int mStatus;
        QByteArray mErr;
    } sCases[] = {
        {"$v --help >/dev/full", 1, tFull},
        {"$v key --help >/dev/full", 1, tFull},
        {"$v publish r --json >/dev/full", 1, tFull},
        {"$v list r >/dev/full", 1, tFull},
        {"$v payload r targets >/dev/full", 1, tFull},
        {"$v init n --no-passphrase >/dev/full", 1, tFull},
        {"$v list r >&-", 1, tLost + "Bad file descriptor\n"},
        {"$v list r 2>&- >&-", 1, ""},
        {"trap '' PIPE; mkfifo p; exec 3<>p; exec 4>p; exec 3<&-; $v list r >&4", 0, ""},
        {"echo y | $v sign payload --key key.pem --output signature >/dev/full", 1,
         "vkpublish: Can't show what is to be signed, so nothing was: No space left on device\n"},
    };
    for (const auto& [tCommand, tStatus, tErr] : sCases) {
        Program tShell(q("/bin/sh"),
                       {"-c", "cd " + mDir.path().toUtf8() + "; v=" VKPUBLISH "; " + QByteArray(tCommand)},
                       mEnvironment);
        const Program::Result tResult = tShell.wait();
        EXPECT_EQ(tResult.mStatus, tStatus) << tCommand;
        EXPECT_EQ(tResult.mErr, tErr) << tCommand;
    }
    EXPECT_FALSE(QFileInfo::exists(path("signature")));
}

TEST_F(ProgramTest, TellsOfADamagedRecordAndLeavesItAlone)
{
    makeRepository();
    succeed("remove @r charts");
    succeed("publish @r");
    succeed("add @r @f --name new --version 1");
    copy("r.keys", "good.keys");
    const auto tList = [this](const char* pName) {
        return "r.keys/packages/" + files("r.keys/packages").filter(q(pName)).last().toUtf8();
    };
    const std::tuple<QByteArray, QByteArray, const char*> sCases[] = {
        {"r.keys/record.json", "{\"format\": 2", "is damaged"},
        {"r.keys/record.json", "{\"format\": 2}", "is damaged"},
        {"r.keys/record.json", "{\"format\": 3}", "a newer vkpublish"},
        {tList("published"), "", "damaged in line 1"},
        {tList("published"), readFile(path(tList("published").constData())).replace("viewer", "viewed"),
         "in line 1"},
        {tList("withdrawn"), readFile(path(tList("withdrawn").constData())) + "x\n", "damaged in line 2"},
        {tList("changes"), readFile(path(tList("changes").constData())).prepend("x\n"), "damaged in line 1"},
        {tList("withdrawn"), QByteArray(), "belong together"},
    };
    for (const auto& [tFile, tContent, tSays] : sCases) {
        copy("good.keys", "r.keys");
        if (tContent.isNull()) {
            QFile::remove(path(tFile.constData()));
        } else {
            write(tFile.constData(), tContent);
        }
        for (const char* tCommand : {"publish @r", "verify @r", "list @r"}) {
            const Program::Result tResult = run(tCommand);
            EXPECT_EQ(tResult.mStatus, 1) << tFile << tCommand;
            EXPECT_TRUE(tResult.mErr.contains(tSays)) << tCommand << tResult.mErr;
            EXPECT_EQ(tResult.mErr.count('\n'), 1) << tResult.mErr;
        }
        EXPECT_TRUE(tContent.isNull() || readFile(path(tFile.constData())) == tContent) << tFile;
    }
}

} // namespace

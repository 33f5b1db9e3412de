#include "Machine.h"
#include "Test.h"

#include <QtCore/QDirIterator>
#include <QtCore/QProcess>

#include <unistd.h>

namespace {

constexpr int sVerificationFailed = 103;
constexpr int sNoSpace = 106;

QStringList filesBelow(const QString& pFolder)
{
    QStringList tFiles;
    QDirIterator tIterator(pFolder, QDir::Files, QDirIterator::Subdirectories);
    while (tIterator.hasNext()) {
        tFiles.append(tIterator.next());
    }
    tFiles.sort();
    return tFiles;
}

} // namespace

// Whichever file of the repository is changed: the update fails with its reason, installed packages stay, and
// the original repository is accepted afterwards.
TEST(Faults, AChangedByteInAnyFileOfTheRepository)
{
    Machine tMachine;
    tMachine.add("viewer", "1.0");
    tMachine.publish();
    ASSERT_EQ(tMachine.rkm({"update"}).mStatus, 0);
    const QStringList tBefore = filesBelow(tMachine.path("repository"));
    const QByteArray tOldTimestamp = tMachine.installation().readFile("repository/metadata/timestamp.json");
    tMachine.add("viewer", "2.0");
    tMachine.publish();

    int tTried = 0;
    for (const QString& tFile : filesBelow(tMachine.path("repository"))) {
        // Only files that the update has to read, not those of the previous state.
        const bool tIsRead = tFile.endsWith(q("/timestamp.json")) || !tBefore.contains(tFile);
        if (!tIsRead || tFile.contains(q("/."))) {
            continue;
        }
        SCOPED_TRACE(tFile);
        spoil(tFile);
        if (tFile.endsWith(q(".index.zst")) || tFile.endsWith(q(".delta"))) {
            continue; // the archive is enough
        }
        const Program::Result tResult = tMachine.rkm({"update"});
        EXPECT_EQ(tResult.mStatus, sVerificationFailed) << tResult.mOut;
        EXPECT_EQ(tMachine.installedVersion("viewer"), q("1.0"));
        spoil(tFile);
        ++tTried;
    }
    EXPECT_GE(tTried, 4); // timestamp, snapshot, targets and the package
    EXPECT_EQ(tMachine.rkm({"update"}).mStatus, 0);
    EXPECT_EQ(tMachine.installedVersion("viewer"), q("2.0"));
    tMachine.installation().writeFile("repository/metadata/timestamp.json", tOldTimestamp);
    EXPECT_EQ(tMachine.rkm({"update"}).mStatus, sVerificationFailed) << "an older state";
    EXPECT_EQ(tMachine.installedVersion("viewer"), q("2.0"));
}

// A full file system for the downloads, then for the packages.
TEST(Faults, AFullDisk)
{
    if (::geteuid() != 0) {
        GTEST_SKIP() << "only root can mount a small file system";
    }
    for (const char* tFolder : {"state", "installed"}) {
        SCOPED_TRACE(tFolder);
        Machine tMachine;
        const QString tMount = tMachine.path(tFolder);
        QDir().mkpath(tMount);
        if (QProcess::execute(q("mount"), {q("-t"), q("tmpfs"), q("-o"), q("size=8m,mode=755"), q("rkm-test"),
                                           tMount}) != 0) {
            GTEST_SKIP() << "no file system can be mounted here";
        }
        tMachine.add("small", "1.0");
        tMachine.publish();
        EXPECT_EQ(tMachine.rkm({"update"}).mStatus, 0);

        // Random bytes, so that compression does not shrink the package.
        QFile tRandom(q("/dev/urandom"));
        ASSERT_TRUE(tRandom.open(QIODevice::ReadOnly));
        Machine::Files tFiles = Machine::files("large", "1.0");
        tFiles.insert(q("bytes"), tRandom.read(12 * 1024 * 1024));
        tMachine.add("large", "1.0", {}, tFiles);
        tMachine.publish();
        const Program::Result tResult = tMachine.rkm({"update"});
        EXPECT_EQ(tResult.mStatus, sNoSpace) << tResult.mOut;
        EXPECT_EQ(tMachine.installedVersion("small"), q("1.0"));
        EXPECT_EQ(tMachine.installedVersion("large"), QString());

        EXPECT_EQ(QProcess::execute(q("mount"), {q("-o"), q("remount,size=64m"), tMount}), 0);
        EXPECT_EQ(tMachine.rkm({"update"}).mStatus, 0);
        EXPECT_EQ(tMachine.installedVersion("large"), q("1.0"));
        EXPECT_EQ(QProcess::execute(q("umount"), {tMount}), 0);
    }
}

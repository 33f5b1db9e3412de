#include "Machine.h"

#include <gtest/gtest.h>

#include <QtCore/QDir>
#include <QtCore/QDirIterator>
#include <QtCore/QFile>
#include <QtCore/QProcess>

#include <unistd.h>

namespace {

constexpr int sVerificationFailed = 103;
constexpr int sNoSpace = 106;

void changeByte(const QString& pPath)
{
    QFile tFile(pPath);
    ASSERT_TRUE(tFile.open(QIODevice::ReadWrite));
    tFile.seek(tFile.size() / 2);
    char tByte = 0;
    tFile.getChar(&tByte);
    tFile.seek(tFile.size() / 2);
    tFile.putChar(static_cast<char>(tByte ^ 0x01));
}

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

// Whatever file of the repository somebody changes: the update fails with its reason, what is installed
// stays, and the honest repository is taken again afterwards.
TEST(Faults, AChangedByteInAnyFileOfTheRepository)
{
    Machine tMachine;
    tMachine.add(QStringLiteral("viewer"), QStringLiteral("1.0"));
    tMachine.publish();
    ASSERT_EQ(tMachine.rkm({"update"}).mStatus, 0);
    const QStringList tBefore = filesBelow(tMachine.path(QStringLiteral("repository")));
    tMachine.add(QStringLiteral("viewer"), QStringLiteral("2.0"));
    tMachine.publish();

    int tTried = 0;
    for (const QString& tFile : filesBelow(tMachine.path(QStringLiteral("repository")))) {
        // Only what the update has to read: files of the state before are not.
        const bool tIsRead = tFile.endsWith(QLatin1String("/timestamp.json")) || !tBefore.contains(tFile);
        if (!tIsRead || tFile.contains(QLatin1String("/."))) {
            continue;
        }
        SCOPED_TRACE(tFile.toStdString());
        changeByte(tFile);
        const Program::Result tResult = tMachine.rkm({"update"});
        EXPECT_EQ(tResult.mStatus, sVerificationFailed) << tResult.mOut.toStdString();
        EXPECT_EQ(tMachine.installedVersion(QStringLiteral("viewer")), QStringLiteral("1.0"));
        changeByte(tFile);
        ++tTried;
    }
    EXPECT_GE(tTried, 4); // timestamp, snapshot, targets and the package
    EXPECT_EQ(tMachine.rkm({"update"}).mStatus, 0);
    EXPECT_EQ(tMachine.installedVersion(QStringLiteral("viewer")), QStringLiteral("2.0"));
}

TEST(Faults, AnOlderRepositoryIsRefused)
{
    Machine tMachine;
    tMachine.add(QStringLiteral("viewer"), QStringLiteral("1.0"));
    tMachine.publish();
    const QByteArray tOldTimestamp =
        tMachine.installation().readFile(QStringLiteral("repository/metadata/timestamp.json"));
    tMachine.add(QStringLiteral("viewer"), QStringLiteral("2.0"));
    tMachine.publish();
    ASSERT_EQ(tMachine.rkm({"update"}).mStatus, 0);

    tMachine.installation().writeFile(QStringLiteral("repository/metadata/timestamp.json"), tOldTimestamp);
    const Program::Result tResult = tMachine.rkm({"update"});
    EXPECT_EQ(tResult.mStatus, sVerificationFailed);
    EXPECT_TRUE(tResult.mOut.contains("timestamp")) << tResult.mOut.toStdString();
    EXPECT_EQ(tMachine.installedVersion(QStringLiteral("viewer")), QStringLiteral("2.0"));
}

TEST(Faults, AMissingRepositoryPackageOrRootIsNamed)
{
    const struct
    {
        const char* mGone;
        int mStatus;
    } tCases[] = {
        {"repository", 102},
        {"repository/targets", 107},
        {"etc/vk/root.json", 103},
    };
    for (const auto& tCase : tCases) {
        SCOPED_TRACE(tCase.mGone);
        Machine tMachine;
        tMachine.add(QStringLiteral("viewer"), QStringLiteral("1.0"));
        tMachine.publish();
        const QString tPath = tMachine.path(QString::fromLatin1(tCase.mGone));
        ASSERT_TRUE(QFile::rename(tPath, tPath + QStringLiteral(".gone")));
        const Program::Result tResult = tMachine.rkm({"update"});
        EXPECT_EQ(tResult.mStatus, tCase.mStatus) << tResult.mOut.toStdString();
        EXPECT_EQ(tMachine.installedVersion(QStringLiteral("viewer")), QString());
        ASSERT_TRUE(QFile::rename(tPath + QStringLiteral(".gone"), tPath));
        EXPECT_EQ(tMachine.rkm({"update"}).mStatus, 0);
    }
}

// A real file system without room, for the downloads and for the packages.
TEST(Faults, AFullDisk)
{
    if (::geteuid() != 0) {
        GTEST_SKIP() << "only root can mount a small file system";
    }
    for (const char* tFolder : {"state", "installed"}) {
        SCOPED_TRACE(tFolder);
        Machine tMachine;
        const QString tMount = tMachine.path(QString::fromLatin1(tFolder));
        QDir().mkpath(tMount);
        if (QProcess::execute(QStringLiteral("mount"),
                              {QStringLiteral("-t"), QStringLiteral("tmpfs"), QStringLiteral("-o"),
                               QStringLiteral("size=8m"), QStringLiteral("rkm-test"), tMount}) != 0) {
            GTEST_SKIP() << "no file system can be mounted here";
        }
        tMachine.add(QStringLiteral("small"), QStringLiteral("1.0"));
        tMachine.publish();
        EXPECT_EQ(tMachine.rkm({"update"}).mStatus, 0);

        // Random bytes, so that the package is as large in the repository.
        QFile tRandom(QStringLiteral("/dev/urandom"));
        ASSERT_TRUE(tRandom.open(QIODevice::ReadOnly));
        Machine::Files tFiles = Machine::files(QStringLiteral("large"), QStringLiteral("1.0"));
        tFiles.insert(QStringLiteral("bytes"), tRandom.read(12 * 1024 * 1024));
        tMachine.add(QStringLiteral("large"), QStringLiteral("1.0"), {}, tFiles);
        tMachine.publish();
        const Program::Result tResult = tMachine.rkm({"update"});
        EXPECT_EQ(tResult.mStatus, sNoSpace) << tResult.mOut.toStdString();
        EXPECT_EQ(tMachine.installedVersion(QStringLiteral("small")), QStringLiteral("1.0"));
        EXPECT_EQ(tMachine.installedVersion(QStringLiteral("large")), QString());

        EXPECT_EQ(QProcess::execute(QStringLiteral("mount"),
                                    {QStringLiteral("-o"), QStringLiteral("remount,size=64m"), tMount}),
                  0);
        EXPECT_EQ(tMachine.rkm({"update"}).mStatus, 0);
        EXPECT_EQ(tMachine.installedVersion(QStringLiteral("large")), QStringLiteral("1.0"));
        EXPECT_EQ(QProcess::execute(QStringLiteral("umount"), {tMount}), 0);
    }
}

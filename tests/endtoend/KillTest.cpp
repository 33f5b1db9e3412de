#include "Machine.h"
#include "Test.h"

#include <QtCore/QThread>

#include <random>

#include <fcntl.h>

namespace {

// A reader's lock on a whole SQLite database for the lifetime of the object.
class ReadLock
{
public:
    explicit ReadLock(const QString& pPath) : mFile(pPath)
    {
        struct flock tLock = {F_RDLCK, SEEK_SET, 0x40000002, 510, 0};
        EXPECT_TRUE(mFile.open(QIODevice::ReadOnly) && ::fcntl(mFile.handle(), F_SETLK, &tLock) == 0);
    }

private:
    QFile mFile;
};

} // namespace

// The service is killed at a random moment of an update. All packages are old or all are new, each file is
// complete, and the next run installs the new ones. Nothing else is left behind, and no run is missing in the
// install log, although that can't be written in each tenth round.
TEST(Kill, AtAnyMomentLeavesTheOldOrTheNewPackagesWhole)
{
    const int tWanted = qEnvironmentVariableIntValue("RKM_KILL_ROUNDS");
    const int tRounds = tWanted > 0 ? tWanted : 50;
    const unsigned tSeed = std::random_device()();
    SCOPED_TRACE(::testing::Message() << "seed " << tSeed);
    std::mt19937 tRandom(tSeed);
    const QList<QString> tPackages{q("viewer"), q("planner"), q("charts")};

    Machine tMachine;
    const auto tPublish = [&](const QString& pVersion) {
        for (const QString& tPackage : tPackages) {
            const bool tData = tPackage == q("charts");
            tMachine.add(tPackage, pVersion, {"--kind", tData ? "data" : "application"},
                         Machine::files(tPackage, pVersion, 40));
        }
        tMachine.publish();
    };
    tPublish(q("1"));
    ASSERT_EQ(tMachine.rkm({"update-settings", "--data-dir=" + tMachine.path(q("data")).toUtf8()}).mStatus,
              0);
    QElapsedTimer tTimer;
    tTimer.start();
    ASSERT_EQ(tMachine.rkm({"update"}).mStatus, 0);
    // In microseconds. Adapts to the duration of a run on this machine: half of the kills should come before
    // the switch, and half after it.
    qint64 tLatest = tTimer.nsecsElapsed() / 1000 / 3;

    int tOld = 0;
    int tNew = 0;
    for (int tRound = 2; tRound < tRounds + 2; ++tRound) {
        const QString tVersion = QString::number(tRound);
        const QString tLast = QString::number(tRound - 1);
        tPublish(tVersion);
        const auto tLocked =
            tRound % 10 == 0 ? std::make_unique<ReadLock>(tMachine.path(q("state/install-log.db"))) : nullptr;
        const auto tService = tMachine.startService();
        ASSERT_EQ(tMachine.rkm({"update", "--no-wait"}).mStatus, 0);
        QThread::usleep(std::uniform_int_distribution<unsigned long>(0, tLatest)(tRandom));
        tService->signal(SIGKILL);
        tService->wait();

        const QString tFound = tMachine.installedVersion(tPackages.first());
        ASSERT_TRUE(tFound == tVersion || tFound == tLast) << "round " << tRound << ": " << tFound;
        (tFound == tVersion ? tNew : tOld) += 1;
        tLatest = tFound == tVersion ? tLatest * 4 / 5 : tLatest * 5 / 4;
        for (const QString& tPackage : tPackages) {
            ASSERT_EQ(tMachine.installedVersion(tPackage), tFound) << "round " << tRound;
        }
        const Program::Result tResult = tMachine.rkm({"update"});
        ASSERT_EQ(tResult.mStatus, 0) << "round " << tRound << ": " << tResult.mOut;
        for (const QString& tPackage : tPackages) {
            ASSERT_EQ(tMachine.installedVersion(tPackage), tVersion) << "round " << tRound;
        }
    }
    std::printf("%d rounds: %d times the old packages, %d times the new ones\n", tRounds, tOld, tNew);
    EXPECT_GT(std::min(tOld, tNew), tRounds / 8) << "too many kills came on one side of the switch";
    const QByteArray tLog = tMachine.rkm({"install-log", "--all"}).mOut;
    EXPECT_EQ(tLog.count("Status: OK\n"), (tRounds + 1) * tPackages.size())
        << "an installation is missing in the log";
    for (const char* tRoot : {"installed", "data"}) {
        EXPECT_TRUE(QDir(tMachine.path(q(tRoot) + q("/.staging"))).isEmpty()) << tRoot;
        for (const QString& tPackage : tPackages) {
            const QDir tVersions(tMachine.path(q(tRoot) + q("/packages/") + tPackage));
            EXPECT_LE(tVersions.entryList(QDir::AllEntries | QDir::NoDotAndDotDot).size(), 2) << tRoot;
        }
    }
    EXPECT_TRUE(QDir(tMachine.path(q("state/install-log.waiting"))).isEmpty());
}

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
// complete, and the next run installs the new ones. Each third release fails its check: then the next run
// ends with the packages from before, and never again with those that were refused. Nothing else is left
// behind, and no run is missing in the install log, although that can't be written in each tenth round.
TEST(Kill, AtAnyMomentLeavesTheOldOrTheNewPackagesWhole)
{
    const int tWanted = qEnvironmentVariableIntValue("RKM_KILL_ROUNDS");
#ifdef __SANITIZE_ADDRESS__
    constexpr int sUsualRounds = 8; // the publisher takes ten seconds for each
#else
    constexpr int sUsualRounds = 20;
#endif
    const int tRounds = tWanted > 0 ? tWanted : sUsualRounds;
    const unsigned tSeed = std::random_device()();
    SCOPED_TRACE(::testing::Message() << "seed " << tSeed);
    std::mt19937 tRandom(tSeed);
    const QList<QString> tPackages{q("viewer"), q("planner"), q("charts")};

    Machine tMachine;
    const auto tPublish = [&](const QString& pVersion, bool pIsGood = true) {
        for (const QString& tPackage : tPackages) {
            const bool tData = tPackage == q("charts");
            QList<QByteArray> tOptions{"--kind", tData ? "data" : "application"};
            if (tPackage == q("viewer")) {
                tOptions += {"--check", "check", "--requires", "planner", "--requires", "charts"};
                const QString tCheck = q("sources/viewer-%1/check").arg(pVersion);
                tMachine.installation().writeFile(tCheck, "#!/bin/sh\nsleep 0.02\nexit " +
                                                              QByteArray(pIsGood ? "0\n" : "1\n"));
                QFile::setPermissions(tMachine.path(tCheck),
                                      QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
            }
            tMachine.add(tPackage, pVersion, tOptions, Machine::files(tPackage, pVersion, 40));
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
    int tBad = 0;
    int tOnTrial = 0;
    QString tLast = q("1");
    for (int tRound = 2; tRound < tRounds + 2; ++tRound) {
        const QString tVersion = QString::number(tRound);
        const bool tIsGood = tRound % 3 != 0;
        tPublish(tVersion, tIsGood);
        const auto tLocked =
            tRound % 10 == 0 ? std::make_unique<ReadLock>(tMachine.path(q("state/install-log.db"))) : nullptr;
        const auto tService = tMachine.startService();
        ASSERT_EQ(tMachine.rkm({"update", "--no-wait"}).mStatus, 0);
        QThread::usleep(std::uniform_int_distribution<unsigned long>(0, tLatest)(tRandom));
        tService->signal(SIGKILL);
        tService->wait();

        const QString tFound = tMachine.installedVersion(tPackages.first());
        ASSERT_TRUE(tFound == tVersion || tFound == tLast) << "round " << tRound << ": " << tFound;
        if (tIsGood) {
            (tFound == tVersion ? tNew : tOld) += 1;
            tLatest = tFound == tVersion ? tLatest * 4 / 5 : tLatest * 5 / 4;
        } else {
            ++tBad;
            tOnTrial += tFound == tVersion;
        }
        for (const QString& tPackage : tPackages) {
            ASSERT_EQ(tMachine.installedVersion(tPackage), tFound) << "round " << tRound;
        }
        const Program::Result tResult = tMachine.rkm({"update"});
        // The run that was killed may have gone back already.
        ASSERT_TRUE(tResult.mStatus == 0 || (!tIsGood && tResult.mStatus == 111))
            << "round " << tRound << ": " << tResult.mOut;
        tLast = tIsGood ? tVersion : tLast;
        const QByteArray tRefused = tMachine.installation().readFile("state/refused.json");
        EXPECT_EQ(tRefused.contains('"' + tVersion.toUtf8() + ".0.0.0\""), !tIsGood) << "round " << tRound;
        for (const QString& tPackage : tPackages) {
            ASSERT_EQ(tMachine.installedVersion(tPackage), tLast) << "round " << tRound;
        }
        EXPECT_FALSE(QFile::exists(tMachine.path(q("state/trial.json")))) << "round " << tRound;
    }
    std::printf("%d good releases: %d times the old packages, %d times the new ones; "
                "%d bad ones, %d of them on trial\n",
                tOld + tNew, tOld, tNew, tBad, tOnTrial);
    EXPECT_GT(std::min(tOld, tNew), tRounds / 12) << "too many kills came on one side of the switch";
    const QByteArray tLog = tMachine.rkm({"install-log", "--all"}).mOut;
    EXPECT_EQ(tLog.count("Status: OK\n"), (tOld + tNew + 1) * tPackages.size())
        << "an installation is missing in the log";
    for (const char* tRoot : {"installed", "data"}) {
        EXPECT_TRUE(QDir(tMachine.path(q(tRoot) + q("/.staging"))).isEmpty()) << tRoot;
        for (const QString& tPackage : tPackages) {
            const QDir tVersions(tMachine.path(q(tRoot) + q("/packages/") + tPackage));
            EXPECT_LE(tVersions.entryList(QDir::AllEntries | QDir::NoDotAndDotDot).size(), 3) << tRoot;
        }
    }
    EXPECT_TRUE(QDir(tMachine.path(q("state/install-log.waiting"))).isEmpty());
}

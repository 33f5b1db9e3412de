// The built vkpublish, killed at random moments.
#include "publication/Verification.h"
#include "Publisher.h"

#include <QtCore/QElapsedTimer>
#include <QtCore/QThread>

#include <csignal>
#include <random>

using namespace tarn::vkpublish;

namespace {

class KillTest : public PublisherTest
{
protected:
    // Every file that machines may ask for is there, and as it was signed.
    void expectAccepted()
    {
        const VerificationResult tResult =
            verifyRepository(path("r"), readFile(path("r/metadata/1.root.json")), QDateTime::currentDateTimeUtc());
        EXPECT_EQ(tResult.mProblems, QStringList());
        // One that has seen every state before, and refuses a step back.
        EXPECT_TRUE(followAsClient().endsWith(q(".tar.zst"))) << followAsClient();
    }

    // At a moment within the time that a publication takes.
    void killDuring(const QByteArray& pWords, std::mt19937* pRandom)
    {
        QList<QByteArray> tArguments;
        for (const QByteArray& tWord : pWords.split(' ')) {
            tArguments.append(tWord.startsWith('@') ? path(tWord.mid(1).constData()).toUtf8() : tWord);
        }
        Program tProgram(q(VKPUBLISH), tArguments, mEnvironment);
        QThread::usleep(std::uniform_int_distribution<unsigned long>(0, mPublication)(*pRandom));
        tProgram.signal(SIGKILL);
        const Program::Result tResult = tProgram.wait();
        mKilled += tResult.mSignal == SIGKILL ? 1 : 0;
        EXPECT_TRUE(tResult.mSignal == SIGKILL || tResult.mStatus == 0) << pWords << ": " << tResult.mErr;
    }

    unsigned long mPublication = 0; // microseconds
    int mKilled = 0;
};

TEST_F(KillTest, AnyCommandAtAnyMomentLeavesARepositoryThatMachinesAccept)
{
    const int tWanted = qEnvironmentVariableIntValue("RKM_KILL_ROUNDS");
#ifdef __SANITIZE_ADDRESS__
    constexpr int sUsualRounds = 2; // each program takes a third of a second
#else
    constexpr int sUsualRounds = 6;
#endif
    const int tRounds = tWanted > 0 ? tWanted : sUsualRounds;
    const unsigned tSeed = std::random_device()();
    SCOPED_TRACE(testing::Message() << "seed " << tSeed);
    std::mt19937 tRandom(tSeed);
    succeed("init @r --no-passphrase");
    succeed("add @r @f --name stays --version 1");
    succeed("add @r @f --name a --version 1");
    QElapsedTimer tTimer;
    tTimer.start();
    succeed("publish @r");
    mPublication = static_cast<unsigned long>(tTimer.nsecsElapsed() / 1000);
    expectAccepted();
    for (int i = 0; i < tRounds && !HasFailure(); ++i) {
        const QByteArray tVersion = QByteArray::number(i + 2);
        write("f/data", readFile(q(VKPUBLISH)).mid(i, 50000));
        (void)run("remove @r a"); // that of the round before, if it is still there
        succeed(("add @r @f --level 1 --name a --version " + tVersion).constData());
        const QByteArray tCommands[] = {
            "rotate-key @r timestamp --no-passphrase",
            "add @r @f --level 1 --name b --version " + tVersion,
            "publish @r --phase-days 2 --targets-days " + tVersion,
            "rotate-key @r snapshot --no-passphrase",
            "add @r @f --level 1 --name a --replace --report en=x --version " + tVersion,
            "halt @r stays",
            "rotate-key @r targets --no-passphrase",
            "remove @r a",
            "halt @r stays --lift",
            "rotate-key @r root --no-passphrase",
            "publish @r --prune --prune-days 0",
        };
        const QByteArray& tCommand = tCommands[(static_cast<size_t>(i) + tSeed) % std::size(tCommands)];
        SCOPED_TRACE(testing::Message() << "round " << i << ": " << tCommand);
        killDuring(tCommand, &tRandom);
        expectAccepted();
        succeed("publish @r --prune --prune-days 0");
        expectAccepted();
        const QByteArray tList = run("list @r").mOut;
        EXPECT_EQ(tList.count("  published\n"), followAsClient().count(q(".tar.zst"))) << tList;
    }
    EXPECT_TRUE(mKilled > 0 || tRounds < sUsualRounds) << "the moments are all too late";
}

} // namespace

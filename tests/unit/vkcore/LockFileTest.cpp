#include "TestApplication.h"

#include <vkcore/LockFile.h>

#include <gtest/gtest.h>

#include <QtCore/QElapsedTimer>

#include <csignal>

#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

using namespace tarn::vkcore;

namespace {

// Another process that holds the lock until it is killed.
class Holder
{
public:
    Holder(const QString& pPath, LockFile::LockMode pMode)
    {
        int tReady[2];
        EXPECT_EQ(::pipe(tReady), 0);
        mChild = ::fork();
        if (mChild == 0) {
            LockFile tLock(nullptr, pPath, pMode);
            const char tOk = tLock.lock(0, 1, false) ? 'y' : 'n';
            (void)!::write(tReady[1], &tOk, 1);
            while (true) {
                ::pause();
            }
        }
        char tOk = 0;
        EXPECT_EQ(::read(tReady[0], &tOk, 1), 1);
        EXPECT_EQ(tOk, 'y');
        ::close(tReady[0]);
        ::close(tReady[1]);
    }
    ~Holder() { kill(); }

    void kill()
    {
        if (mChild > 0) {
            ::kill(mChild, SIGKILL);
            ::waitpid(mChild, nullptr, 0);
            mChild = 0;
        }
    }

private:
    pid_t mChild = 0;
};

} // namespace

TEST(LockFileTest, BetweenProcesses)
{
    const struct
    {
        LockFile::LockMode mHeld;
        LockFile::LockMode mWanted;
        bool mGranted;
    } tCases[] = {
        {LockFile::Shared, LockFile::Shared, true},
        {LockFile::Shared, LockFile::Exclusive, false},
        {LockFile::Exclusive, LockFile::Shared, false},
        {LockFile::Exclusive, LockFile::Exclusive, false},
    };
    for (const auto& tCase : tCases) {
        SCOPED_TRACE(::testing::Message() << "held " << tCase.mHeld << " wanted " << tCase.mWanted);
        const QTemporaryDir tDir;
        const QString tPath = tDir.filePath(QStringLiteral("a.lock"));
        Holder tHolder(tPath, tCase.mHeld);
        EXPECT_EQ(LockFile(nullptr, tPath, tCase.mWanted).lock(0, 1, false), tCase.mGranted);
        tHolder.kill();
        EXPECT_TRUE(LockFile(nullptr, tPath, LockFile::Exclusive).lock(0, 1, false));
    }
}

TEST(LockFileTest, WaitsNoLongerThanToldAndLogsIfWanted)
{
    const GRef<TestApplication> tApp(new TestApplication);
    const QString tPath = tApp->path(QStringLiteral("a.lock"));
    LockFile tFirst(tApp.get(), tPath, LockFile::Exclusive);
    ASSERT_TRUE(tFirst.lock(0, 1, true));
    EXPECT_TRUE(tFirst.lock(0, 1, true));

    QElapsedTimer tTimer;
    tTimer.start();
    LockFile tSecond(tApp.get(), tPath, LockFile::Exclusive);
    EXPECT_FALSE(tSecond.lock(120, 50, false));
    EXPECT_GE(tTimer.elapsed(), 119);
    EXPECT_LT(tTimer.elapsed(), 5000);
    EXPECT_EQ(tApp->logText(), "");
    EXPECT_FALSE(tSecond.lock(0, 50, true));
    EXPECT_TRUE(tApp->logText().contains("Failed to lock file"));
}

TEST(LockFileTest, PlacesThatCanNotBeLocked)
{
    const QTemporaryDir tDir;
    EXPECT_FALSE(
        LockFile(nullptr, tDir.filePath(QStringLiteral("no/such.lock")), LockFile::Shared).lock(50, 1, true));
    EXPECT_FALSE(LockFile(nullptr, tDir.path(), LockFile::Exclusive).lock(50, 1, true));
    const QString tPipe = tDir.filePath(QStringLiteral("pipe"));
    ASSERT_EQ(::mkfifo(QFile::encodeName(tPipe).constData(), 0600), 0);
    LockFile(nullptr, tPipe, LockFile::Shared).lock(0, 1, true); // only must not hang
}

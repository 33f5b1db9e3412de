#include "Child.h"
#include "Test.h"
#include "TestApplication.h"

#include <vkcore/LockFile.h>

#include <sys/stat.h>

using namespace tarn::vkcore;

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
        const QString tPath = tDir.filePath(q("a.lock"));
        Child tHolder([&] { return (new LockFile(nullptr, tPath, tCase.mHeld))->lock(0, 1, false); });
        ASSERT_TRUE(tHolder.isReady());
        EXPECT_EQ(LockFile(nullptr, tPath, tCase.mWanted).lock(0, 1, false), tCase.mGranted);
        tHolder.kill();
        EXPECT_TRUE(LockFile(nullptr, tPath, LockFile::Exclusive).lock(0, 1, false));
    }
}

TEST(LockFileTest, WaitsNoLongerThanToldAndLogsIfWanted)
{
    const GRef<TestApplication> tApp(new TestApplication);
    const QString tPath = tApp->path(q("a.lock"));
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
    EXPECT_FALSE(LockFile(nullptr, tDir.filePath(q("no/such.lock")), LockFile::Shared).lock(50, 1, true));
    EXPECT_FALSE(LockFile(nullptr, tDir.path(), LockFile::Exclusive).lock(50, 1, true));
    const QString tPipe = tDir.filePath(q("pipe"));
    ASSERT_EQ(::mkfifo(QFile::encodeName(tPipe).constData(), 0600), 0);
    LockFile(nullptr, tPipe, LockFile::Shared).lock(0, 1, true); // must not hang
}

#include "Child.h"
#include "UpdateFixture.h"

#include <fcntl.h>

using namespace tarn::vkservice;
using namespace tarn::vkservice::update;

using RunLogTest = UpdateFixture;

// Any user who may read the log can lock it.
TEST_F(RunLogTest, RunsThatTheInstallLogCantTakeWaitForIt)
{
    run(ResultSuccess);
    const QString tLog = mMachine.path(q("state/install-log.db"));
    Child tReader([&] {
        struct flock tLock = {};
        tLock.l_type = F_RDLCK;
        return ::fcntl(::open(QFile::encodeName(tLog).constData(), O_RDONLY), F_SETLK, &tLock) == 0;
    });
    ASSERT_TRUE(tReader.isReady());
    for (const char* tVersion : {"2.0", "3.0", "4.0"}) {
        package("lib").mVersion = q(tVersion);
        publish();
        run(ResultSuccess);
        EXPECT_TRUE(
            text(mMachine.mMessages).find("locked by the process " + std::to_string(tReader.pid()) + " (") !=
            std::string::npos)
            << text(mMachine.mMessages);
    }
    EXPECT_EQ(text(mMachine.log().filter(q("lib"))), "lib 1.0.0 ok");

    // A run that can be neither entered nor kept blocks the next one, which would replace the manifest with
    // its records.
    const QString tFolder = mMachine.path(q("state/install-log.waiting"));
    ASSERT_TRUE(QFile::rename(tFolder, tFolder + q("-away")));
    writeFile(tFolder, "in the way");
    run(ResultInstallFailed);
    ASSERT_TRUE(QFile::remove(tFolder) && QFile::rename(tFolder + q("-away"), tFolder));
    tReader.kill();
    run(ResultSuccess);
    EXPECT_EQ(text(mMachine.log().filter(q("lib"))),
              "lib 1.0.0 ok\nlib 2.0.0 ok\nlib 3.0.0 ok\nlib 4.0.0 ok");
    EXPECT_TRUE(QDir(tFolder).isEmpty());
    run(ResultSuccess);
    EXPECT_EQ(mMachine.log().size(), 3 + 3 * 2) << "each once";
}

TEST_F(RunLogTest, SetsADamagedInstallLogAside)
{
    const QDir tState(mMachine.path(q("state")));
    writeFile(tState.filePath(q("install-log.db")), QByteArray(8192, 'x'));
    run(ResultSuccess);
    EXPECT_EQ(mMachine.log().size(), 3);
    EXPECT_EQ(readFile(tState.filePath(tState.entryList({q("install-log.db.damaged-*")}).value(0))),
              QByteArray(8192, 'x'));
}

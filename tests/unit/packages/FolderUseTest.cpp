#include "Files.h"
#include "Test.h"

#include "internal/Machine.h"
#include "os/ProcessList.h"
#include "process/UserChange.h"

#include <QtCore/QTemporaryDir>

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

using namespace tarn;

// The service's user may not list the open files of other users, but read what they are.
TEST(FolderUseTest, SeesWhatOtherUsersHaveOpen)
{
    if (::geteuid() != 0) {
        GTEST_SKIP() << "only root can take on other users";
    }
    const QTemporaryDir tDir;
    ::chmod(QFile::encodeName(tDir.path()).constData(), 0755);
    writeFile(tDir.filePath(q("used/file")), "x");
    writeFile(tDir.filePath(q("unused/file")), "x");
    const QByteArray tPath = QFile::encodeName(tDir.filePath(q("used/file")));
    const int tFd = ::open(tPath.constData(), O_RDONLY | O_CLOEXEC);
    const pid_t tPid = ::fork();
    if (tPid == 0) {
        ::close(tFd);
        const bool tChanged = !vkservice::process::becomeUser({q("nobody"), 65534, 65534}, std::nullopt) &&
                              ::setuid(0) != 0 && ::access("/proc/1/fd", R_OK) != 0;
        const QStringList tUsed =
            os::realProcessList().inUse({tDir.filePath(q("unused")), tDir.filePath(q("used"))});
        ::_exit(!tChanged ? 2 : tUsed == QStringList{tDir.filePath(q("used"))} ? 0 : 1);
    }
    int tStatus = 0;
    ::waitpid(tPid, &tStatus, 0);
    EXPECT_EQ(WEXITSTATUS(tStatus), 0);
    ::close(tFd);
}

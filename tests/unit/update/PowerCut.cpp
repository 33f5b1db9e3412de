#include "PowerCut.h"

#include "Test.h"

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

using namespace tarn;
namespace fs = std::filesystem;

namespace {

constexpr int sCut = 9; // exit status

// What the child has done to the disk. It waits until this is noted.
struct Event
{
    int mSynced = -1;  // descriptor of a file or folder
    bool mAll = false; // the whole disk was synced
    ino_t mMade = 0;   // inode that is not what had its number before
};

bool isDatabase(const fs::path& pPath)
{
    return pPath.filename().native().find(".db") != std::string::npos;
}

} // namespace

class PowerCut::Reporting : public FaultyFileSystem
{
public:
    Reporting(int pSocket, int pCount) : mSocket(pSocket)
    {
        mObserver = [this, pCount](int, const QByteArray& pOperation) {
            if (pOperation != "read" && pOperation != "close" && !pOperation.startsWith("statvfs") &&
                ++mChanges == pCount) {
                ::_exit(sCut);
            }
        };
    }

    int open(const QByteArray& pPath, int pFlags, mode_t pMode) override
    {
        return openAt(AT_FDCWD, pPath, pFlags, pMode);
    }
    int openAt(int pDirFd, const QByteArray& pPath, int pFlags, mode_t pMode) override
    {
        struct stat tStat;
        const bool tMakes = (pFlags & O_CREAT) != 0 && ::fstatat(pDirFd, pPath.constData(), &tStat, 0) != 0;
        const int tFd = FaultyFileSystem::openAt(pDirFd, pPath, pFlags, pMode);
        return tMakes ? made(tFd, pDirFd, pPath) : tFd;
    }
    int makeDir(const QByteArray& pPath, mode_t pMode) override
    {
        return made(FaultyFileSystem::makeDir(pPath, pMode), AT_FDCWD, pPath);
    }
    int makeDirAt(int pDirFd, const QByteArray& pPath, mode_t pMode) override
    {
        return made(FaultyFileSystem::makeDirAt(pDirFd, pPath, pMode), pDirFd, pPath);
    }
    int symlink(const QByteArray& pTarget, const QByteArray& pPath) override
    {
        return made(FaultyFileSystem::symlink(pTarget, pPath), AT_FDCWD, pPath);
    }
    int symlinkAt(const QByteArray& pTarget, int pDirFd, const QByteArray& pPath) override
    {
        return made(FaultyFileSystem::symlinkAt(pTarget, pDirFd, pPath), pDirFd, pPath);
    }
    int fsync(int pFd) override { return tell(FaultyFileSystem::fsync(pFd), {.mSynced = pFd}); }
    int syncFs(int pFd) override { return tell(FaultyFileSystem::syncFs(pFd), {.mAll = true}); }

private:
    int made(int pResult, int pDirFd, const QByteArray& pPath)
    {
        struct stat tStat;
        return pResult >= 0 && ::fstatat(pDirFd, pPath.constData(), &tStat, AT_SYMLINK_NOFOLLOW) == 0
                   ? tell(pResult, {.mMade = tStat.st_ino})
                   : pResult;
    }
    int tell(int pResult, const Event& pEvent)
    {
        char tNoted = 0;
        if (pResult >= 0 && ::write(mSocket, &pEvent, sizeof pEvent) == sizeof pEvent) {
            (void)!::read(mSocket, &tNoted, 1); // nobody there: the test has failed already
        }
        return pResult;
    }

    int mSocket;
    int mChanges = 0;
};

PowerCut::PowerCut(const QString& pRoot, Loses pLoses) : mRoot(pRoot.toStdString()), mLoses(pLoses)
{
    keep(mRoot, true, true);
}

bool PowerCut::during(const std::function<void(os::FileSystem&)>& pBody, int pCount)
{
    int tSockets[2];
    EXPECT_EQ(::socketpair(AF_UNIX, SOCK_STREAM, 0, tSockets), 0);
    const pid_t tChild = ::fork();
    if (tChild == 0) {
        ::close(tSockets[0]);
        Reporting tFileSystem(tSockets[1], pCount);
        pBody(tFileSystem);
        ::_exit(0);
    }
    ::close(tSockets[1]);
    Event tEvent;
    while (::read(tSockets[0], &tEvent, sizeof tEvent) == sizeof tEvent) {
        mNodes.erase(tEvent.mMade);
        if (tEvent.mAll) {
            keep(mRoot, true, true);
        } else if (tEvent.mSynced >= 0) {
            keep(q("/proc/%1/fd/%2").arg(tChild).arg(tEvent.mSynced).toStdString(), false, true);
        }
        // Another thread may have reached the cut meanwhile: then nobody reads this.
        (void)!::send(tSockets[0], "", 1, MSG_NOSIGNAL);
    }
    ::close(tSockets[0]);
    int tStatus = 0;
    ::waitpid(tChild, &tStatus, 0);
    EXPECT_TRUE(WIFEXITED(tStatus) && (WEXITSTATUS(tStatus) == 0 || WEXITSTATUS(tStatus) == sCut)) << tStatus;
    cut();
    return WEXITSTATUS(tStatus) == sCut;
}

std::shared_ptr<PowerCut::Node> PowerCut::nodeOf(const Path& pPath, const struct stat& pStat)
{
    std::shared_ptr<Node>& tNode = mNodes[pStat.st_ino];
    if (!tNode) {
        tNode = std::make_shared<Node>();
    }
    tNode->mMode = pStat.st_mode;
    if (S_ISLNK(pStat.st_mode)) {
        tNode->mBytes = QByteArray::fromStdString(fs::read_symlink(pPath).native());
    }
    return tNode;
}

void PowerCut::keep(const Path& pPath, bool pDeep, bool pBytes)
{
    struct stat tStat;
    if (::stat(pPath.c_str(), &tStat) != 0) {
        return;
    }
    const std::shared_ptr<Node> tNode = nodeOf(pPath, tStat);
    if (!S_ISDIR(tStat.st_mode)) {
        tNode->mBytes = pBytes ? readFile(QString::fromStdString(pPath.native())) : tNode->mBytes;
        return;
    }
    tNode->mNames.clear();
    for (const fs::directory_entry& tEntry : fs::directory_iterator(pPath)) {
        struct stat tOf;
        if (isDatabase(tEntry) || ::lstat(tEntry.path().c_str(), &tOf) != 0) {
            continue;
        }
        tNode->mNames[tEntry.path().filename()] = nodeOf(tEntry, tOf);
        if (pDeep && !S_ISLNK(tOf.st_mode)) {
            keep(tEntry, true, pBytes);
        }
    }
}

void PowerCut::cut()
{
    if (mLoses == Loses::Bytes) {
        keep(mRoot, true, false);
    }
    struct stat tStat;
    ASSERT_EQ(::stat(mRoot.c_str(), &tStat), 0);
    erase(mRoot);
    restore(*nodeOf(mRoot, tStat), mRoot);
}

void PowerCut::erase(const Path& pDir)
{
    for (const fs::directory_entry& tEntry : fs::directory_iterator(pDir)) {
        std::error_code tNotEmpty; // a folder with a database
        if (tEntry.is_directory() && !tEntry.is_symlink()) {
            erase(tEntry);
        }
        if (!isDatabase(tEntry)) {
            fs::remove(tEntry, tNotEmpty);
        }
    }
}

void PowerCut::restore(const Node& pNode, const Path& pPath)
{
    if (S_ISLNK(pNode.mMode)) {
        fs::create_symlink(pNode.mBytes.toStdString(), pPath);
        return;
    }
    if (S_ISDIR(pNode.mMode)) {
        fs::create_directory(pPath);
        for (const auto& [tName, tBelow] : pNode.mNames) {
            restore(*tBelow, pPath / tName);
        }
    } else {
        writeFile(QString::fromStdString(pPath.native()), pNode.mBytes);
    }
    ::chmod(pPath.c_str(), pNode.mMode & 07777);
}

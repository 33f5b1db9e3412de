#include "os/FileSystem.h"

#include <fcntl.h>
#include <linux/fs.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>

namespace tarn::os {

namespace {

class RealFileSystem : public FileSystem
{
public:
    int open(const QByteArray& pPath, int pFlags, mode_t pMode) override
    {
        return ::open(pPath.constData(), pFlags | O_CLOEXEC, pMode);
    }
    int openAt(int pDirFd, const QByteArray& pPath, int pFlags, mode_t pMode) override
    {
        return ::openat(pDirFd, pPath.constData(), pFlags | O_CLOEXEC, pMode);
    }
    int close(int pFd) override { return ::close(pFd); }
    ssize_t read(int pFd, void* pBuffer, size_t pSize) override { return ::read(pFd, pBuffer, pSize); }
    ssize_t write(int pFd, const void* pBuffer, size_t pSize) override
    {
        return ::write(pFd, pBuffer, pSize);
    }
    int changeMode(int pFd, mode_t pMode) override { return ::fchmod(pFd, pMode); }
    int changeTime(int pFd, time_t pModified) override
    {
        const timespec tTimes[] = {{0, UTIME_OMIT}, {pModified, 0}};
        return ::futimens(pFd, tTimes);
    }
    int fsync(int pFd) override { return ::fsync(pFd); }
    int syncFs(int pFd) override { return ::syncfs(pFd); }
    int makeDir(const QByteArray& pPath, mode_t pMode) override { return ::mkdir(pPath.constData(), pMode); }
    int makeDirAt(int pDirFd, const QByteArray& pPath, mode_t pMode) override
    {
        return ::mkdirat(pDirFd, pPath.constData(), pMode);
    }
    int symlink(const QByteArray& pTarget, const QByteArray& pPath) override
    {
        return ::symlink(pTarget.constData(), pPath.constData());
    }
    int symlinkAt(const QByteArray& pTarget, int pDirFd, const QByteArray& pPath) override
    {
        return ::symlinkat(pTarget.constData(), pDirFd, pPath.constData());
    }
    int linkAt(int pFd, int pDirFd, const QByteArray& pName) override
    {
        const int tResult = ::linkat(pFd, "", pDirFd, pName.constData(), AT_EMPTY_PATH);
        if (tResult == 0 || errno != ENOENT) {
            return tResult;
        }
        // Without a privilege this is the only way to name an open file on Linux before 6.10. It takes
        // longer.
        const QByteArray tOpen = "/proc/self/fd/" + QByteArray::number(pFd);
        return ::linkat(AT_FDCWD, tOpen.constData(), pDirFd, pName.constData(), AT_SYMLINK_FOLLOW);
    }
    int cloneFile(int pToFd, int pFromFd) override { return ::ioctl(pToFd, FICLONE, pFromFd); }
    int rename(const QByteArray& pFrom, const QByteArray& pTo) override
    {
        return ::rename(pFrom.constData(), pTo.constData());
    }
    int unlink(const QByteArray& pPath) override { return ::unlink(pPath.constData()); }
    int unlinkAt(int pDirFd, const QByteArray& pPath, int pFlags) override
    {
        return ::unlinkat(pDirFd, pPath.constData(), pFlags);
    }
    int statVfs(const QByteArray& pPath, struct statvfs* pTo) override
    {
        return ::statvfs(pPath.constData(), pTo);
    }
};

} // namespace

FileSystem& realFileSystem()
{
    static RealFileSystem sFileSystem;
    return sFileSystem;
}

} // namespace tarn::os

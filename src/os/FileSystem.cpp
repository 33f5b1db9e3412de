#include "os/FileSystem.h"

#include <fcntl.h>
#include <unistd.h>

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

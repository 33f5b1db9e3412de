#pragma once

#include "os/FileSystem.h"

#include <cerrno>

// A file system whose operations fail from a certain one on, once or for good.
class FailingFileSystem : public tarn::vkservice::os::FileSystem
{
public:
    FailingFileSystem(int pFirst, bool pForGood) : mLeft(pFirst), mForGood(pForGood) {}

    int open(const QByteArray& pPath, int pFlags, mode_t pMode) override
    {
        return fails() ? -1 : mReal.open(pPath, pFlags, pMode);
    }
    int openAt(int, const QByteArray&, int, mode_t) override { return -1; }
    int close(int pFd) override { return mReal.close(pFd); }
    ssize_t read(int pFd, void* pBuffer, size_t pSize) override
    {
        return fails() ? -1 : mReal.read(pFd, pBuffer, pSize);
    }
    ssize_t write(int pFd, const void* pBuffer, size_t pSize) override
    {
        return fails() ? -1 : mReal.write(pFd, pBuffer, pSize);
    }
    int fsync(int pFd) override { return fails() ? -1 : mReal.fsync(pFd); }
    int syncFs(int) override { return -1; }
    int makeDir(const QByteArray& pPath, mode_t pMode) override
    {
        return fails() ? -1 : mReal.makeDir(pPath, pMode);
    }
    int makeDirAt(int, const QByteArray&, mode_t) override { return -1; }
    int symlink(const QByteArray&, const QByteArray&) override { return -1; }
    int symlinkAt(const QByteArray&, int, const QByteArray&) override { return -1; }
    int rename(const QByteArray& pFrom, const QByteArray& pTo) override
    {
        return fails() ? -1 : mReal.rename(pFrom, pTo);
    }
    int unlink(const QByteArray& pPath) override { return fails() ? -1 : mReal.unlink(pPath); }
    int unlinkAt(int, const QByteArray&, int) override { return -1; }
    int statVfs(const QByteArray&, struct statvfs*) override { return -1; }

    bool mFailed = false;

private:
    bool fails()
    {
        const bool tFails = mForGood ? mLeft <= 0 : mLeft == 0;
        --mLeft;
        if (tFails) {
            mFailed = true;
            errno = ENOSPC;
        }
        return tFails;
    }

    tarn::vkservice::os::FileSystem& mReal = tarn::vkservice::os::realFileSystem();
    int mLeft;
    bool mForGood;
};

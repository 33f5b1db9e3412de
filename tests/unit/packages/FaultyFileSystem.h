#pragma once

#include "os/FileSystem.h"

#include <QtCore/QList>
#include <QtCore/QMutex>

#include <cerrno>
#include <fcntl.h>
#include <functional>
#include <unistd.h>

// The real file system, in which one operation, counted from 1, fails with an errno. A failing write first
// writes half of its bytes, like a disk that fills up; a failing close closes.
class FaultyFileSystem : public tarn::os::FileSystem
{
public:
    void failAt(int pOperation, int pErrno)
    {
        const QMutexLocker tLock(&mMutex);
        mFailAt = pOperation;
        mErrno = pErrno;
        mCount = 0;
        mLog.clear();
    }
    int count() const { return mCount; }
    bool hasFailed() const { return mFailAt > 0 && mCount >= mFailAt; }
    // The operations so far, for the message of a failing test.
    QByteArray failed() const { return hasFailed() ? mLog.at(mFailAt - 1) : QByteArray(); }
    // All operations after the failing one fail, too, as after a kill.
    bool mForGood = false;
    // The free space that the file systems report; the real one if negative.
    qint64 mFreeBytes = -1;
    // Called before each operation, on its thread, with its number and name.
    std::function<void(int, const QByteArray&)> mObserver;

    int open(const QByteArray& pPath, int pFlags, mode_t pMode) override
    {
        return fails("open " + pPath) ? -1 : mReal.open(pPath, pFlags, pMode);
    }
    int openAt(int pDirFd, const QByteArray& pPath, int pFlags, mode_t pMode) override
    {
        return fails("openAt " + pPath) ? -1 : mReal.openAt(pDirFd, pPath, pFlags, pMode);
    }
    int close(int pFd) override
    {
        const bool tWritten = (::fcntl(pFd, F_GETFL) & O_ACCMODE) != O_RDONLY;
        const bool tFails = fails(tWritten ? "close behind writing" : "close");
        const int tErrno = errno;
        const int tResult = mReal.close(pFd);
        errno = tFails ? tErrno : errno;
        return tFails ? -1 : tResult;
    }
    ssize_t read(int pFd, void* pBuffer, size_t pSize) override
    {
        return fails("read") ? -1 : mReal.read(pFd, pBuffer, pSize);
    }
    ssize_t write(int pFd, const void* pBuffer, size_t pSize) override
    {
        if (fails("write")) {
            const int tErrno = errno;
            [[maybe_unused]] const ssize_t tDone = ::write(pFd, pBuffer, pSize / 2);
            errno = tErrno;
            return -1;
        }
        return mReal.write(pFd, pBuffer, pSize);
    }
    int changeMode(int pFd, mode_t pMode) override
    {
        return fails("chmod") ? -1 : mReal.changeMode(pFd, pMode);
    }
    int changeTime(int pFd, time_t pModified) override
    {
        return fails("utime") ? -1 : mReal.changeTime(pFd, pModified);
    }
    // No power is cut in these tests, and syncing the machine's disk thousands of times would be slow.
    int fsync(int) override { return fails("fsync") ? -1 : 0; }
    int syncFs(int) override { return fails("syncfs") ? -1 : 0; }
    int makeDir(const QByteArray& pPath, mode_t pMode) override
    {
        return fails("mkdir " + pPath) ? -1 : mReal.makeDir(pPath, pMode);
    }
    int makeDirAt(int pDirFd, const QByteArray& pPath, mode_t pMode) override
    {
        return fails("mkdirat " + pPath) ? -1 : mReal.makeDirAt(pDirFd, pPath, pMode);
    }
    int symlink(const QByteArray& pTarget, const QByteArray& pPath) override
    {
        return fails("symlink " + pPath) ? -1 : mReal.symlink(pTarget, pPath);
    }
    int symlinkAt(const QByteArray& pTarget, int pDirFd, const QByteArray& pPath) override
    {
        return fails("symlinkat " + pPath) ? -1 : mReal.symlinkAt(pTarget, pDirFd, pPath);
    }
    int linkAt(int pFd, int pDirFd, const QByteArray& pName) override
    {
        return fails("linkat " + pName) ? -1 : mReal.linkAt(pFd, pDirFd, pName);
    }
    int cloneFile(int pToFd, int pFromFd) override
    {
        return fails("clone") ? -1 : mReal.cloneFile(pToFd, pFromFd);
    }
    int rename(const QByteArray& pFrom, const QByteArray& pTo) override
    {
        return fails("rename to " + pTo) ? -1 : mReal.rename(pFrom, pTo);
    }
    int unlink(const QByteArray& pPath) override
    {
        return fails("unlink " + pPath) ? -1 : mReal.unlink(pPath);
    }
    int unlinkAt(int pDirFd, const QByteArray& pPath, int pFlags) override
    {
        return fails("unlinkat " + pPath) ? -1 : mReal.unlinkAt(pDirFd, pPath, pFlags);
    }
    int statVfs(const QByteArray& pPath, struct statvfs* pTo) override
    {
        if (fails("statvfs " + pPath) || mReal.statVfs(pPath, pTo) != 0) {
            return -1;
        }
        if (mFreeBytes >= 0) {
            pTo->f_bavail = static_cast<fsblkcnt_t>(mFreeBytes) / pTo->f_frsize;
        }
        return 0;
    }

private:
    bool fails(const QByteArray& pWhat)
    {
        int tNumber = 0;
        {
            const QMutexLocker tLock(&mMutex);
            tNumber = ++mCount;
            mLog.append(pWhat);
        }
        if (mObserver) {
            mObserver(tNumber, pWhat);
        }
        if (mFailAt == 0 || tNumber < mFailAt || (tNumber > mFailAt && !mForGood)) {
            return false;
        }
        errno = mErrno;
        return true;
    }

    tarn::os::FileSystem& mReal = tarn::os::realFileSystem();
    QMutex mMutex;
    int mFailAt = 0;
    int mErrno = 0;
    int mCount = 0;
    QList<QByteArray> mLog;
};

#pragma once

#include <QtCore/QByteArray>

#include <sys/stat.h>
#include <sys/statvfs.h>
#include <sys/types.h>

namespace tarn::os {

// The file operations of an update run, with the signatures of their system calls: -1 and errno on failure.
// Everything that the service writes outside its databases uses this interface, so a test can make any
// operation fail.
class FileSystem
{
public:
    virtual ~FileSystem() = default;

    virtual int open(const QByteArray& pPath, int pFlags, mode_t pMode = 0) = 0;
    virtual int openAt(int pDirFd, const QByteArray& pPath, int pFlags, mode_t pMode = 0) = 0;
    virtual int close(int pFd) = 0;
    virtual ssize_t read(int pFd, void* pBuffer, size_t pSize) = 0;
    virtual ssize_t write(int pFd, const void* pBuffer, size_t pSize) = 0;
    virtual int changeMode(int pFd, mode_t pMode) = 0;
    virtual int changeTime(int pFd, time_t pModified) = 0;
    virtual int fsync(int pFd) = 0;
    virtual int syncFs(int pFd) = 0;
    virtual int makeDir(const QByteArray& pPath, mode_t pMode) = 0;
    virtual int makeDirAt(int pDirFd, const QByteArray& pPath, mode_t pMode) = 0;
    virtual int symlink(const QByteArray& pTarget, const QByteArray& pPath) = 0;
    virtual int symlinkAt(const QByteArray& pTarget, int pDirFd, const QByteArray& pPath) = 0;
    // A second name, in the folder pDirFd, for the file that is open as pFd.
    virtual int linkAt(int pFd, int pDirFd, const QByteArray& pName) = 0;
    // Makes the empty file pToFd share the bytes of pFromFd until one of them changes (FICLONE).
    virtual int cloneFile(int pToFd, int pFromFd) = 0;
    virtual int rename(const QByteArray& pFrom, const QByteArray& pTo) = 0;
    virtual int unlink(const QByteArray& pPath) = 0;
    virtual int unlinkAt(int pDirFd, const QByteArray& pPath, int pFlags) = 0;
    virtual int statVfs(const QByteArray& pPath, struct statvfs* pTo) = 0;
};

// The real one. It has no state and may be used from any thread.
FileSystem& realFileSystem();

} // namespace tarn::os

#include "sqlite/LockHolder.h"

#include <QtCore/QFile>

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>

#include <cstdlib>

using namespace Qt::StringLiterals;

namespace tarn::vkcore {

namespace {

// SQLite's lock bytes in a database file: one each for a pending and a reserved change, 510 for readers.
constexpr off_t sFirstLockByte = 0x40000000;
constexpr off_t sLockBytes = 512;

bool isSameFile(const struct stat& pOne, const struct stat& pOther)
{
    return pOne.st_dev == pOther.st_dev && pOne.st_ino == pOther.st_ino;
}

// A descriptor that this process has of the file already, or -1. To open and close another one would end the
// locks that this process itself has on the file.
int descriptorOf(const QString& pPath)
{
    struct stat tFile
    {
    };
    DIR* tDir = ::opendir("/proc/self/fd");
    if (tDir == nullptr) {
        return -1;
    }
    int tFound = -1;
    if (::stat(QFile::encodeName(pPath).constData(), &tFile) == 0) {
        while (const dirent* tEntry = ::readdir(tDir)) {
            struct stat tStat
            {
            };
            const int tFd = std::atoi(tEntry->d_name);
            if (tEntry->d_name[0] != '.' && ::fstat(tFd, &tStat) == 0 && isSameFile(tStat, tFile)) {
                tFound = tFd;
                break;
            }
        }
    }
    ::closedir(tDir);
    return tFound;
}

// A process chooses its name freely.
QString nameOf(const QByteArray& pProcess)
{
    QFile tFile(QFile::decodeName(pProcess + "/comm"));
    QString tName =
        tFile.open(QIODevice::ReadOnly) ? QString::fromUtf8(tFile.readAll().trimmed()) : QString();
    for (QChar& tChar : tName) {
        tChar = tChar.isPrint() ? tChar : QChar(u'?');
    }
    return tName;
}

} // namespace

QString lockHolder(const QString& pPath)
{
    struct flock tLock
    {
    };
    tLock.l_type = F_WRLCK;
    tLock.l_whence = SEEK_SET;
    tLock.l_start = sFirstLockByte;
    tLock.l_len = sLockBytes;
    const int tFd = descriptorOf(pPath);
    if (tFd < 0 || ::fcntl(tFd, F_GETLK, &tLock) != 0 || tLock.l_type == F_UNLCK || tLock.l_pid <= 0) {
        return u"another process"_s;
    }
    const QByteArray tProcess = "/proc/" + QByteArray::number(tLock.l_pid);
    struct stat tStat
    {
    };
    const QString tPid = QString::number(tLock.l_pid);
    return ::stat(tProcess.constData(), &tStat) == 0
               ? u"the process %1 (%2, user %3)"_s.arg(tPid, nameOf(tProcess), QString::number(tStat.st_uid))
               : u"the process %1"_s.arg(tPid);
}

} // namespace tarn::vkcore

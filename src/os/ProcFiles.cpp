#include "os/ProcFiles.h"

#include "os/Descriptor.h"

#include <dirent.h>
#include <fcntl.h>
#include <unistd.h>

#include <climits>

namespace tarn::os {

namespace {

// The kernel's suffix for the path of a deleted file.
const QByteArray sDeletedMark(" (deleted)");
// The file that a process works on is among its first arguments.
constexpr qsizetype sMaxArguments = 64;
constexpr size_t sReadSize = 16 * 1024;

} // namespace

QByteArrayList entries(const QByteArray& pDir)
{
    QByteArrayList tNames;
    DIR* tDir = ::opendir(pDir.constData());
    while (const dirent* tEntry = tDir == nullptr ? nullptr : ::readdir(tDir)) {
        if (tEntry->d_name[0] != '.') {
            tNames.append(tEntry->d_name);
        }
    }
    if (tDir != nullptr) {
        ::closedir(tDir);
    }
    return tNames;
}

QByteArray linkTarget(const QByteArray& pLink)
{
    char tBuffer[PATH_MAX];
    const ssize_t tLength = ::readlink(pLink.constData(), tBuffer, sizeof tBuffer);
    QByteArray tPath(tBuffer, qMax<ssize_t>(0, tLength));
    if (tPath.endsWith(sDeletedMark)) {
        tPath.chop(sDeletedMark.size());
    }
    return tPath;
}

// Only forward, because vkprocesses may not move in a file.
QByteArray readProcFile(const QByteArray& pPath)
{
    const Descriptor tFile(realFileSystem(), ::open(pPath.constData(), O_RDONLY | O_CLOEXEC));
    QByteArray tBytes;
    char tBuffer[sReadSize];
    ssize_t tSize = tFile.isOpen() ? 1 : 0;
    while (tSize > 0) {
        tSize = ::read(tFile.fd(), tBuffer, sizeof tBuffer);
        tBytes.append(tBuffer, qMax<ssize_t>(tSize, 0));
    }
    return tBytes;
}

QByteArrayList argumentPaths(const QByteArray& pProcDir)
{
    QByteArrayList tPaths = readProcFile(pProcDir + "/cmdline").split('\0').mid(1, sMaxArguments);
    const QByteArray tWorkingDir = linkTarget(pProcDir + "/cwd");
    for (QByteArray& tPath : tPaths) {
        if (!tPath.startsWith('/')) {
            tPath.prepend(tWorkingDir + '/');
        }
    }
    return tPaths;
}

} // namespace tarn::os

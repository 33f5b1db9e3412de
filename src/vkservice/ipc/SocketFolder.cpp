#include "ipc/SocketFolder.h"

#include <QtCore/QFile>

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

using namespace Qt::StringLiterals;

namespace tarn::vkservice::ipc {

Failure makeSocketFolder(const QString& pFolder)
{
    const QByteArray tFolder = QFile::encodeName(pFolder);
    struct stat tStat = {};
    if ((::mkdir(tFolder.constData(), 0755) != 0 && errno != EEXIST) ||
        ::lstat(tFolder.constData(), &tStat) != 0) {
        return Failure::fromErrno(errno, u"create the folder of the socket, %1"_s.arg(pFolder));
    }
    const bool tOwned = tStat.st_uid == 0 || tStat.st_uid == ::geteuid();
    if (!S_ISDIR(tStat.st_mode) || !tOwned || (tStat.st_mode & (S_IWGRP | S_IWOTH)) != 0) {
        return {Failure::Kind::Person, u"The folder of the socket, %1, must belong to root, and nobody else "
                                       "may write to it. Remove it"_s.arg(pFolder)};
    }
    return {};
}

} // namespace tarn::vkservice::ipc

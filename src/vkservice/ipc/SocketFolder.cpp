#include "ipc/SocketFolder.h"

#include "internal/Machine.h"

#include <QtCore/QFile>

#include <sys/stat.h>

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
    const bool tOwned = vkcore::machine::isTrusted(tStat.st_uid);
    if (!S_ISDIR(tStat.st_mode) || !tOwned || (tStat.st_mode & (S_IWGRP | S_IWOTH)) != 0) {
        return {Failure::Kind::Person,
                u"The folder of the socket, %1, must belong to root or the "
                "service's user, and nobody else may write to it. Remove it"_s.arg(pFolder)};
    }
    return {};
}

} // namespace tarn::vkservice::ipc

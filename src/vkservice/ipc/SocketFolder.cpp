#include "ipc/SocketFolder.h"

#include <QtCore/QFile>

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

using namespace Qt::StringLiterals;

namespace tarn::vkservice::ipc {

bool makeSocketFolder(const QString& pFolder, QString* pError)
{
    const QByteArray tFolder = QFile::encodeName(pFolder);
    struct stat tStat = {};
    if ((::mkdir(tFolder.constData(), 0755) != 0 && errno != EEXIST) ||
        ::lstat(tFolder.constData(), &tStat) != 0) {
        *pError = u"The folder of the socket, %1, can't be created: %2."_s.arg(pFolder, qt_error_string());
        return false;
    }
    const bool tOwned = tStat.st_uid == 0 || tStat.st_uid == ::geteuid();
    if (!S_ISDIR(tStat.st_mode) || !tOwned || (tStat.st_mode & (S_IWGRP | S_IWOTH)) != 0) {
        *pError = u"The folder of the socket, %1, must belong to root, and nobody else may write to "
                  "it. Remove it."_s.arg(pFolder);
        return false;
    }
    return true;
}

} // namespace tarn::vkservice::ipc

#include "internal/SocketName.h"

#include "internal/Machine.h"

#include <QtCore/QDir>
#include <QtCore/QFile>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

using namespace Qt::StringLiterals;

namespace tarn::vkcore::protocol {

namespace {

bool mayWriteTo(const QString& pSocket)
{
    return ::faccessat(AT_FDCWD, QFile::encodeName(pSocket).constData(), W_OK, AT_EACCESS) == 0;
}

// The variable survives a change of user and then names another user's folder.
bool isOwnFolder(const QString& pFolder, uid_t pUser)
{
    struct stat tStat = {};
    return pFolder.startsWith(u'/') && ::stat(QFile::encodeName(pFolder).constData(), &tStat) == 0 &&
           S_ISDIR(tStat.st_mode) && tStat.st_uid == pUser && (tStat.st_mode & (S_IWGRP | S_IWOTH)) == 0;
}

} // namespace

QString defaultSocketName()
{
    return defaultSocketName({::geteuid(), QLatin1String(sMachineSocket),
                              QFile::decodeName(qgetenv("XDG_RUNTIME_DIR")), machine::isActing()});
}

QString defaultSocketName(const SocketPlace& pPlace)
{
    if (pPlace.mIsMachine || mayWriteTo(pPlace.mMachineSocket)) {
        return pPlace.mMachineSocket;
    }
    if (isOwnFolder(pPlace.mRuntimeDir, pPlace.mUser)) {
        return QDir::cleanPath(pPlace.mRuntimeDir) + "/vkservice.socket"_L1;
    }
    return u"vkservice"_s;
}

QString socketPath(const QString& pName)
{
    return pName.startsWith(u'/') ? pName : QDir::cleanPath(QDir::tempPath()) + u'/' + pName;
}

} // namespace tarn::vkcore::protocol

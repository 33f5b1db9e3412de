#include "program/ClientApplication.h"

#include <vkcore/LockFile.h>

#include <QtCore/QDir>
#include <QtCore/QFileInfo>

using namespace Qt::StringLiterals;

namespace tarn::vkc {

void ClientApplication::initUserDirs()
{
    OkiApplication::initUserDirs();

    QFileInfo tSettingsDir;
    tSettingsDir.setFile(QDir(QDir::homePath()),
                         getConfig()->getStrValue(u"application.settingsDir.other"_s));
    mUserConfigFile =
        QDir(tSettingsDir.absoluteFilePath()).absoluteFilePath(u"etc/%1_user.cfg"_s.arg(getConfigPrefix()));
}

void ClientApplication::initLogFile()
{
    const QDir tLogDir(getLogDir());
    if (!tLogDir.exists()) {
        tLogDir.mkpath(u"."_s);
    }
    OkiApplication::initLogFile();
}

bool ClientApplication::loadUserConfig()
{
    if (!OkiApplication::loadUserConfig()) {
        return false;
    }
    const QFileInfo tFile(mUserConfigFile);
    if (!tFile.exists()) {
        return true;
    }

    const QString tLockPath = tFile.dir().absoluteFilePath(tFile.completeBaseName() + u".lock"_s);
    vkcore::LockFile tLock(this, tLockPath, vkcore::LockFile::Shared);
    // Without a lock file no process writes the configuration, and none is created here.
    if (QFileInfo::exists(tLockPath)) {
        tLock.lock(1000, 50, false);
    }
    if (!getConfig()->load(mUserConfigFile, tFile.fileName(), vkcore::Config::UserValue, false)) {
        fatalError(
            tr("Failed to load file \"%1\". Application will be terminated now.").arg(mUserConfigFile));
        return false;
    }
    return true;
}

bool ClientApplication::saveUserConfig()
{
    return true;
}

} // namespace tarn::vkc

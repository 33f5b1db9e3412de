#include "internal/Machine.h"

#include <vkcore/Config.h>

#include <QtCore/QFile>

#include <fcntl.h>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

using namespace Qt::StringLiterals;

namespace tarn::vkcore::machine {

namespace {

bool exists(const QString& pPath)
{
    return ::access(QFile::encodeName(pPath).constData(), F_OK) == 0;
}

bool onlyRootCanChange(int pFd, mode_t pType)
{
    struct stat tStat = {};
    return ::fstat(pFd, &tStat) == 0 && (tStat.st_mode & S_IFMT) == pType && tStat.st_uid == 0 &&
           (tStat.st_mode & (S_IWGRP | S_IWOTH)) == 0;
}

// What is read is the file that was checked, whatever its name stands for meanwhile.
void loadIfSafe(int pFolder, const QString& pName, Config::ValueType pType, Config* pTo)
{
    const int tFd = ::openat(pFolder, QFile::encodeName(pName).constData(),
                             O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
    if (tFd < 0) {
        return;
    }
    if (onlyRootCanChange(tFd, S_IFREG)) {
        (void)pTo->load(u"/proc/self/fd/%1"_s.arg(tFd), pName, pType, true);
    }
    ::close(tFd);
}

QString nameIn(const QString& pConfigDir)
{
    const int tFolder = ::open(QFile::encodeName(pConfigDir).constData(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (tFolder < 0) {
        return {};
    }
    Config tConfig;
    if (onlyRootCanChange(tFolder, S_IFDIR)) {
        const QString tPrefix =
            exists(pConfigDir + u"/vk.cfg"_s) || !exists(pConfigDir + u"/vkp.cfg"_s) ? u"vk"_s : u"vkp"_s;
        // The first is the one that the package of the service brings.
        loadIfSafe(tFolder, u"service.cfg"_s, Config::DefaultValue, &tConfig);
        loadIfSafe(tFolder, tPrefix + u".cfg"_s, Config::SystemValue, &tConfig);
        loadIfSafe(tFolder, tPrefix + u"_user.cfg"_s, Config::UserValue, &tConfig);
    }
    ::close(tFolder);
    return tConfig.getStrValue(u"service.user"_s);
}

} // namespace

// The kernel's path has no links; Qt would check each of its folders again.
QString installationPrefix()
{
    return QFile::symLinkTarget(u"/proc/self/exe"_s).section(u'/', 0, -3);
}

QString movableConfigDir()
{
    const QString tPrefix = installationPrefix();
    const QString tDir = tPrefix + u"/etc/vk"_s;
    return !tPrefix.isEmpty() && tPrefix != "/usr"_L1 && exists(tDir) ? tDir : QString();
}

std::optional<ServiceUser> serviceUser(const QString& pConfigDir)
{
    const QString tName = nameIn(pConfigDir);
    const passwd* tEntry = tName.isEmpty() ? nullptr : ::getpwnam(QFile::encodeName(tName).constData());
    if (tEntry == nullptr || tEntry->pw_uid == 0) {
        return std::nullopt;
    }
    return ServiceUser{tName, tEntry->pw_uid, tEntry->pw_gid};
}

const std::optional<ServiceUser>& serviceUser()
{
    static const std::optional<ServiceUser> sUser = [] {
        const QString tMovable = movableConfigDir();
        return serviceUser(tMovable.isEmpty() ? u"/etc/vk"_s : tMovable);
    }();
    return sUser;
}

bool isActing()
{
    return ::geteuid() == 0 || (serviceUser() && serviceUser()->mUid == ::geteuid());
}

bool isTrusted(uid_t pService)
{
    return pService == 0 || pService == ::geteuid() || (serviceUser() && serviceUser()->mUid == pService);
}

} // namespace tarn::vkcore::machine

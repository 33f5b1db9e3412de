#include "StartUp.h"

#include "CommandLine.h"
#include "internal/Machine.h"
#include "internal/SocketName.h"
#include "os/Descriptor.h"
#include "packages/HandOver.h"
#include "process/ServiceApplication.h"
#include "process/Systemd.h"
#include "process/UserChange.h"

#include <vkcore/GRef.h>

#include <QtCore/QDeadlineTimer>
#include <QtCore/QFile>
#include <QtCore/QThread>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>

using namespace Qt::StringLiterals;

namespace tarn::vkservice {

using process::ServiceApplication;
namespace machine = vkcore::machine;

namespace {

constexpr int sLockWaitMs = 30000;
constexpr int sLockLookMs = 100;
constexpr auto sUsualInstallDir = "/opt/vk";
// Where only the unit of the machine's service keeps state.
constexpr auto sStateOfUnit = "/var/lib/vkservice";

// The configuration without the log. Errors in it have been reported.
Failure readConfiguration(ServiceApplication& pApp)
{
    pApp.initApplicationDirs();
    const bool tLoaded = pApp.loadApplicationConfig();
    pApp.initUserDirs();
    return pApp.loadUserConfig() && tLoaded ? Failure()
                                            : Failure::content(u"The configuration can't be read"_s);
}

QString socketPath(const ServiceApplication& pApp, const QString& pGiven)
{
    const QString tName = pGiven.isEmpty() ? pApp.configValue(u"service.socketName"_s) : pGiven;
    return vkcore::protocol::socketPath(tName.isEmpty() ? vkcore::protocol::defaultSocketName() : tName);
}

// Held until the process ends. Not created: without it no service has ever run here.
Failure lockState(const QString& pStateDir)
{
    const QString tPath = pStateDir + u"/state.lock"_s;
    const int tFd = ::open(QFile::encodeName(tPath).constData(),
                           O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
    if (tFd < 0) {
        return errno == ENOENT ? Failure() : Failure::fromErrno(errno, u"open the lock file %1"_s.arg(tPath));
    }
    const QDeadlineTimer tDeadline(sLockWaitMs);
    while (::flock(tFd, LOCK_EX | LOCK_NB) != 0) {
        if (tDeadline.hasExpired()) {
            return {Failure::Kind::Io,
                    u"A service is using the state directory %1: stop it"_s.arg(pStateDir)};
        }
        QThread::msleep(sLockLookMs);
    }
    return {};
}

Failure giveAll(bool pToRoot, QStringList* pLeft)
{
    if (::geteuid() != 0) {
        return {Failure::Kind::Person, u"Only root can change the owner of files"_s};
    }
    const vkcore::GRef<ServiceApplication> tApp(new ServiceApplication(true));
    if (Failure tFailure = readConfiguration(*tApp)) {
        return tFailure;
    }
    const std::optional<machine::ServiceUser>& tUser = machine::serviceUser();
    if (!tUser && tApp->configValue(u"service.user"_s) == "root"_L1) {
        pLeft->append(u"All was left as it is: service.user is root."_s);
        return {};
    }
    if (!tUser) {
        return {Failure::Kind::Person,
                u"No file in the configuration folder that only root can change names an "
                "existing user as service.user"_s};
    }
    const QString tState = tApp->getStateDir();
    if (Failure tFailure = lockState(tState)) {
        return tFailure;
    }
    const QString tInstallDir = tApp->configValue(u"service."_s + u"install.dir"_s);
    const os::Ownership tOwnership =
        pToRoot ? os::Ownership(tUser->mUid, 0, 0) : os::Ownership(0, tUser->mUid, tUser->mGid);
    packages::HandOver tHandOver(tOwnership, tState);
    Failure tFailure = tHandOver.give(tInstallDir.isEmpty() ? QLatin1String(sUsualInstallDir) : tInstallDir);
    *pLeft = tHandOver.left();
    return tFailure;
}

// Root would follow links of that user there, and leave files that the user's service can't change.
Failure refuseStateOfAnother(ServiceApplication& pApp)
{
    struct stat tStat = {};
    if (::stat(sStateOfUnit, &tStat) != 0 || tStat.st_uid == 0) {
        return {};
    }
    (void)readConfiguration(pApp);
    return pApp.getStateDir() != QLatin1String(sStateOfUnit)
               ? Failure()
               : Failure{Failure::Kind::Person,
                         u"The state directory %1 belongs to the user with the number %2, but no file in the "
                         "configuration folder that only root can change names that user as service.user"_s
                             .arg(pApp.getStateDir())
                             .arg(tStat.st_uid)};
}

void print(FILE* pStream, const QString& pText)
{
    std::fputs((pText + u'\n').toLocal8Bit().constData(), pStream);
}

} // namespace

Failure settleUser(const CommandLine& pLine, os::Descriptor* pProcesses)
{
    process::keepRightsFromChildren();
    if (::geteuid() != 0) {
        // As an ordinary user's service it would start with new settings somewhere else.
        return qgetenv("STATE_DIRECTORY") == sStateOfUnit && !machine::isActing()
                   ? Failure{Failure::Kind::Person,
                             u"The machine's service runs as the user with the number %1, but no file in the "
                             "configuration folder that only root can change names it as service.user"_s.arg(
                                 ::geteuid())}
                   : Failure();
    }
    process::closeInheritedFiles();
    const vkcore::GRef<ServiceApplication> tApp(new ServiceApplication(pLine.mForeground));
    Failure tFailure = machine::serviceUser() ? readConfiguration(*tApp) : refuseStateOfAnother(*tApp);
    if (!tFailure && machine::serviceUser()) {
        int tProcesses = -1;
        tFailure = process::becomeServiceUser(*tApp, socketPath(*tApp, pLine.mSocketName), &tProcesses);
        *pProcesses = {os::realFileSystem(), tProcesses};
    }
    if (tFailure && pLine.mForeground) {
        // Who has started a worker does not read its standard error.
        tApp->initLogFile();
        tApp->write(process::LogLevel::Error, tFailure.mText + u'.');
    }
    return tFailure;
}

int handOver(bool pToRoot)
{
    QStringList tLeft;
    const Failure tFailure = giveAll(pToRoot, &tLeft);
    for (const QString& tText : std::as_const(tLeft)) {
        print(stdout, tText);
    }
    if (tFailure) {
        print(stderr, tFailure.mText + u'.');
    }
    return tFailure ? 1 : 0;
}

} // namespace tarn::vkservice

#include "process/UserChange.h"

#include "internal/Machine.h"
#include "internal/SocketName.h"
#include "process/OwnVkprocesses.h"
#include "process/ServiceApplication.h"

#include <QtCore/QDir>
#include <QtCore/QFile>
#include <QtCore/QFileInfo>

#include <fcntl.h>
#include <grp.h>
#include <linux/capability.h>
#include <pwd.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>

using namespace Qt::StringLiterals;

namespace tarn::vkservice::process {

using vkcore::machine::ServiceUser;

namespace {

// The log is root's, too: each may add and rename its own files, and not those of the other.
constexpr mode_t sSharedFolder = 01775;
constexpr mode_t sOwnFolder = 0755;

Failure cant(const QString& pWhat)
{
    return Failure::fromErrno(errno, pWhat);
}

// A folder of root is given away, or shared with the user's group. One that belongs to anybody else, or is a
// link, stays as it is.
Failure prepareFolder(const QString& pPath, uid_t pOwner, const ServiceUser& pUser, mode_t pMode)
{
    const QString tWhat = u"prepare the folder %1 for the user %2"_s.arg(pPath, pUser.mName);
    const QByteArray tPath = QFile::encodeName(pPath);
    if (!QDir().mkpath(QFileInfo(pPath).path()) ||
        (::mkdir(tPath.constData(), sOwnFolder) != 0 && errno != EEXIST)) {
        return cant(tWhat);
    }
    const int tFd = ::open(tPath.constData(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
    struct stat tStat = {};
    if (tFd < 0 || ::fstat(tFd, &tStat) != 0) {
        return cant(tWhat);
    }
    const bool tOk =
        tStat.st_uid != 0 || (::fchown(tFd, pOwner, pUser.mGid) == 0 && ::fchmod(tFd, pMode) == 0);
    const int tError = errno;
    ::close(tFd);
    errno = tError;
    return tOk ? Failure() : cant(tWhat);
}

// A start that failed as root may have begun the log, and the user could not go on with it.
void giveLog(const QString& pLogDir, const ServiceUser& pUser)
{
    const QByteArray tPath = QFile::encodeName(pLogDir) + "/vkservice.log";
    const int tFd = ::open(tPath.constData(), O_WRONLY | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
    struct stat tStat = {};
    if (tFd >= 0 && ::fstat(tFd, &tStat) == 0 && S_ISREG(tStat.st_mode) && tStat.st_nlink == 1 &&
        tStat.st_uid == 0) {
        (void)::fchown(tFd, pUser.mUid, pUser.mGid);
    }
    if (tFd >= 0) {
        ::close(tFd);
    }
}

Failure prepareFolders(const ServiceApplication& pApp, const QString& pSocket, const ServiceUser& pUser)
{
    if (pSocket == QLatin1String(vkcore::protocol::sMachineSocket)) {
        if (Failure tFailure = prepareFolder(QFileInfo(pSocket).path(), pUser.mUid, pUser, sOwnFolder)) {
            return tFailure;
        }
    }
    // A folder that an administrator has chosen is the administrator's to open.
    const bool tIsUsualLog = !pApp.getConfig()->hasValue(u"application.logDir"_s);
    if (!pApp.writesLogFile() || !tIsUsualLog) {
        return {};
    }
    giveLog(pApp.getLogDir(), pUser);
    return prepareFolder(pApp.getLogDir(), 0, pUser, sSharedFolder);
}

// The owner of a socket may give it only to a group that the owner is in.
std::optional<gid_t> groupOfSocket(const ServiceApplication& pApp)
{
    const QString tName = pApp.configValue(u"service.socketGroup"_s);
    const group* tEntry = tName.isEmpty() ? nullptr : ::getgrnam(QFile::encodeName(tName).constData());
    return tEntry == nullptr ? std::nullopt : std::optional(tEntry->gr_gid);
}

// The others can't come back, not even by a program with rights of its own. Without CAP_SETPCAP the kernel
// refuses, and PR_SET_NO_NEW_PRIVS alone does it.
Failure giveUpRights(Sight pSight)
{
    if (::prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) != 0) {
        return cant(u"give up the rights of root"_s);
    }
    for (unsigned long tRight = 0; ::prctl(PR_CAPBSET_READ, tRight, 0, 0, 0) >= 0; ++tRight) {
        if (tRight != CAP_SYS_PTRACE || pSight == Sight::Lost) {
            (void)::prctl(PR_CAPBSET_DROP, tRight, 0, 0, 0);
        }
    }
    return {};
}

// At most CAP_SYS_PTRACE is left of what the process had. Where root does not have it, it is not missed.
bool setRights(Sight pSight)
{
    __user_cap_header_struct tHeader = {_LINUX_CAPABILITY_VERSION_3, 0};
    __user_cap_data_struct tData[_LINUX_CAPABILITY_U32S_3] = {};
    if (::syscall(SYS_capget, &tHeader, tData) != 0) {
        return false;
    }
    const __u32 tSight = pSight == Sight::Kept ? tData[0].permitted & (1U << CAP_SYS_PTRACE) : 0;
    __user_cap_data_struct tLeft[_LINUX_CAPABILITY_U32S_3] = {};
    tLeft[0] = {tSight, tSight, tSight};
    return ::syscall(SYS_capset, &tHeader, tLeft) == 0 &&
           (tSight == 0 || ::prctl(PR_CAP_AMBIENT, PR_CAP_AMBIENT_RAISE, CAP_SYS_PTRACE, 0, 0) == 0);
}

bool setGroups(const ServiceUser& pUser, std::optional<gid_t> pGroup)
{
    const QByteArray tName = QFile::encodeName(pUser.mName);
    if (::setresgid(pUser.mGid, pUser.mGid, pUser.mGid) != 0 ||
        ::initgroups(tName.constData(), pUser.mGid) != 0) {
        return false;
    }
    const int tCount = ::getgroups(0, nullptr);
    QList<gid_t> tGroups(qMax(0, tCount));
    if (tCount < 0 || ::getgroups(tCount, tGroups.data()) != tCount) {
        return false;
    }
    if (pGroup && !tGroups.contains(*pGroup)) {
        tGroups.append(*pGroup);
    }
    return ::setgroups(static_cast<size_t>(tGroups.size()), tGroups.constData()) == 0;
}

// The way back has to be closed.
bool isFinal(const ServiceUser& pUser)
{
    uid_t tUser[3] = {};
    gid_t tGroup[3] = {};
    if (::getresuid(&tUser[0], &tUser[1], &tUser[2]) != 0 ||
        ::getresgid(&tGroup[0], &tGroup[1], &tGroup[2]) != 0) {
        return false;
    }
    for (int i = 0; i < 3; ++i) {
        if (tUser[i] != pUser.mUid || tGroup[i] != pUser.mGid) {
            return false;
        }
    }
    return ::setresuid(0, 0, 0) != 0 && ::setresgid(0, 0, 0) != 0;
}

// What still names root's folders.
void setEnvironment(const ServiceUser& pUser)
{
    const passwd* tEntry = ::getpwuid(pUser.mUid);
    ::setenv("HOME", tEntry != nullptr ? tEntry->pw_dir : "/", 1);
    ::setenv("USER", QFile::encodeName(pUser.mName).constData(), 1);
    ::setenv("LOGNAME", QFile::encodeName(pUser.mName).constData(), 1);
    for (const char* tName : {"XDG_CONFIG_HOME", "XDG_STATE_HOME", "XDG_DATA_HOME", "XDG_CACHE_HOME",
                              "XDG_RUNTIME_DIR", "SHELL", "MAIL"}) {
        ::unsetenv(tName);
    }
}

} // namespace

void keepRightsFromChildren()
{
    (void)::prctl(PR_CAP_AMBIENT, PR_CAP_AMBIENT_CLEAR_ALL, 0, 0, 0);
}

Failure becomeServiceUser(const ServiceApplication& pApp, const QString& pSocket, int* pProcesses)
{
    const std::optional<ServiceUser>& tUser = vkcore::machine::serviceUser();
    if (::geteuid() != 0 || !tUser) {
        return {};
    }
    const QString tState = pApp.getStateDir();
    struct stat tStat = {};
    const bool tIsThere = ::stat(QFile::encodeName(tState).constData(), &tStat) == 0;
    if (!tIsThere && errno != ENOENT) {
        return cant(u"use the state directory %1"_s.arg(tState));
    }
    if (tIsThere && tStat.st_uid == 0) {
        return {};
    }
    if (tIsThere && tStat.st_uid != tUser->mUid) {
        return {Failure::Kind::Person,
                u"The state directory %1 belongs neither to root nor to %2, whom service.user names"_s.arg(
                    tState, tUser->mName)};
    }
    Failure tFailure = tIsThere ? Failure() : prepareFolder(tState, tUser->mUid, *tUser, sOwnFolder);
    tFailure = tFailure ? tFailure : prepareFolders(pApp, pSocket, *tUser);
    if (tFailure) {
        return tFailure;
    }
    *pProcesses = startVkprocesses(*tUser);
    return becomeUser(*tUser, groupOfSocket(pApp));
}

Failure becomeUser(const ServiceUser& pUser, std::optional<gid_t> pGroup, Sight pSight)
{
    const QString tWhat = u"become the user %1"_s.arg(pUser.mName);
    if (Failure tFailure = giveUpRights(pSight)) {
        return tFailure;
    }
    const bool tChanged = ::prctl(PR_SET_KEEPCAPS, 1, 0, 0, 0) == 0 && setGroups(pUser, pGroup) &&
                          ::setresuid(pUser.mUid, pUser.mUid, pUser.mUid) == 0 && setRights(pSight) &&
                          ::prctl(PR_SET_KEEPCAPS, 0, 0, 0, 0) == 0;
    if (!tChanged) {
        return cant(tWhat);
    }
    if (!isFinal(pUser)) {
        return {Failure::Kind::Io, u"Can't %1: the rights of root would come back"_s.arg(tWhat)};
    }
    // The kernel has given this process's own files in /proc to root.
    (void)::prctl(PR_SET_DUMPABLE, 1, 0, 0, 0);
    setEnvironment(pUser);
    return {};
}

} // namespace tarn::vkservice::process

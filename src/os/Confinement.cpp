#include "os/Confinement.h"

#include <QtCore/QFile>

#include <fcntl.h>
#include <linux/landlock.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>

using namespace Qt::StringLiterals;

namespace tarn::os {

namespace {

// Rights newer than this system's kernel headers, with the version that introduced them.
constexpr std::uint64_t sTruncate = 1ULL << 14;
constexpr int sTruncateVersion = 3;
constexpr std::uint64_t sDeviceControl = 1ULL << 15;
constexpr int sDeviceControlVersion = 5;
constexpr int sLeastVersion = 2; // LANDLOCK_ACCESS_FS_REFER

constexpr std::uint64_t sRead = LANDLOCK_ACCESS_FS_READ_FILE | LANDLOCK_ACCESS_FS_READ_DIR;
constexpr std::uint64_t sRun = sRead | LANDLOCK_ACCESS_FS_EXECUTE;
constexpr std::uint64_t sWrite = sRead | sTruncate | LANDLOCK_ACCESS_FS_WRITE_FILE |
                                 LANDLOCK_ACCESS_FS_REMOVE_DIR | LANDLOCK_ACCESS_FS_REMOVE_FILE |
                                 LANDLOCK_ACCESS_FS_MAKE_DIR | LANDLOCK_ACCESS_FS_MAKE_REG |
                                 LANDLOCK_ACCESS_FS_MAKE_SYM | LANDLOCK_ACCESS_FS_REFER;
constexpr std::uint64_t sOfFiles = sTruncate | sDeviceControl | LANDLOCK_ACCESS_FS_READ_FILE |
                                   LANDLOCK_ACCESS_FS_WRITE_FILE | LANDLOCK_ACCESS_FS_EXECUTE;

long makeRuleset(const landlock_ruleset_attr* pWhat, size_t pSize, unsigned pFlags)
{
    return ::syscall(SYS_landlock_create_ruleset, pWhat, pSize, pFlags);
}

int version()
{
    static const long sVersion = makeRuleset(nullptr, 0, LANDLOCK_CREATE_RULESET_VERSION);
    return static_cast<int>(sVersion);
}

// All that this kernel can refuse.
std::uint64_t handled()
{
    std::uint64_t tRights = (LANDLOCK_ACCESS_FS_REFER << 1) - 1;
    tRights |= version() >= sTruncateVersion ? sTruncate : 0;
    tRights |= version() >= sDeviceControlVersion ? sDeviceControl : 0;
    return tRights;
}

} // namespace

bool Confinement::isAvailable()
{
    return version() >= sLeastVersion;
}

Confinement::~Confinement()
{
    for (const Rule& tRule : mRules) {
        ::close(tRule.mFd);
    }
}

void Confinement::allowReading(const QString& pPath)
{
    allow(pPath, sRead);
}

void Confinement::allowPrograms(const QString& pPath)
{
    allow(pPath, sRun);
}

void Confinement::allowWriting(const QString& pPath)
{
    allow(pPath, sWrite);
}

void Confinement::allow(const QString& pPath, std::uint64_t pAccess)
{
    const int tFd = ::open(QFile::encodeName(pPath).constData(), O_PATH | O_CLOEXEC);
    struct stat tStat;
    if (tFd >= 0 && ::fstat(tFd, &tStat) == 0) {
        mRules.push_back({tFd, S_ISDIR(tStat.st_mode) ? pAccess : pAccess & sOfFiles});
    }
}

Failure Confinement::enter()
{
    const auto tFailed = [] { return Failure::fromErrno(errno, u"confine the update"_s); };
    landlock_ruleset_attr tWhat = {};
    tWhat.handled_access_fs = handled();
    const int tRuleset = static_cast<int>(makeRuleset(&tWhat, sizeof tWhat, 0));
    if (tRuleset < 0) {
        return tFailed();
    }
    Failure tFailure;
    for (const Rule& tRule : mRules) {
        landlock_path_beneath_attr tBelow = {};
        tBelow.allowed_access = tRule.mAccess & tWhat.handled_access_fs;
        tBelow.parent_fd = tRule.mFd;
        if (!tFailure &&
            ::syscall(SYS_landlock_add_rule, tRuleset, LANDLOCK_RULE_PATH_BENEATH, &tBelow, 0) != 0) {
            tFailure = tFailed();
        }
    }
    if (!tFailure && (::prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) != 0 ||
                      ::syscall(SYS_landlock_restrict_self, tRuleset, 0) != 0)) {
        tFailure = tFailed();
    }
    ::close(tRuleset);
    return tFailure;
}

} // namespace tarn::os

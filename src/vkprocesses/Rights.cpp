#include "Rights.h"

#include <fcntl.h>
#include <linux/capability.h>
#include <seccomp.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <utility>

using namespace Qt::StringLiterals;

namespace tarn::vkprocesses {

namespace {

// To read what is in /proc and in folders, to talk on the connection, to have memory, and to end. None of
// them reads a file from any other place than its begin, so nobody reads the memory of a process in
// /proc/PID/mem.
// clang-format off
constexpr const char* sCalls[] = {
    "access", "alarm", "brk", "clock_getres", "clock_gettime", "clock_gettime64", "clock_nanosleep", "close",
    "exit", "exit_group", "faccessat", "faccessat2", "fchdir", "fstat", "fstat64", "fstatat64", "fstatfs",
    "fstatfs64", "futex", "futex_time64", "getdents", "getdents64", "getegid", "geteuid", "getgid", "getpid",
    "getppid", "getrandom", "gettid", "gettimeofday", "getuid", "lstat", "lstat64", "madvise", "mremap",
    "munmap", "newfstatat", "poll", "ppoll", "ppoll_time64", "read", "readlink", "readlinkat", "readv",
    "recv", "recvfrom", "restart_syscall", "rt_sigaction", "rt_sigprocmask", "rt_sigreturn", "sched_yield",
    "send", "sendto", "setitimer", "sigreturn", "stat", "stat64", "statx", "write", "writev",
#ifdef __SANITIZE_ADDRESS__
    "pipe", "pipe2", "sigaltstack", // of the sanitizers
#endif
};
// clang-format on
constexpr scmp_datum_t sWriting = O_WRONLY | O_RDWR | O_CREAT | O_TRUNC;

bool setCapabilities()
{
    __user_cap_header_struct tHeader = {_LINUX_CAPABILITY_VERSION_3, 0};
    __user_cap_data_struct tData[_LINUX_CAPABILITY_U32S_3] = {};
    if (::prctl(PR_CAP_AMBIENT, PR_CAP_AMBIENT_CLEAR_ALL, 0, 0, 0) != 0 ||
        ::syscall(SYS_capget, &tHeader, tData) != 0) {
        return false;
    }
    const __u32 tSight = tData[0].permitted & (1U << CAP_SYS_PTRACE);
    __user_cap_data_struct tLeft[_LINUX_CAPABILITY_U32S_3] = {};
    tLeft[0].permitted = tSight;
    tLeft[0].effective = tSight;
    return ::syscall(SYS_capset, &tHeader, tLeft) == 0;
}

int allowIf(scmp_filter_ctx pFilter, const char* pName, const scmp_arg_cmp& pCondition)
{
    const int tCall = ::seccomp_syscall_resolve_name(pName);
    return tCall == __NR_SCMP_ERROR
               ? 0
               : ::seccomp_rule_add_array(pFilter, SCMP_ACT_ALLOW, tCall, 1, &pCondition);
}

// Calls that an architecture does not have are left out.
int allow(scmp_filter_ctx pFilter)
{
    int tError = 0;
    for (const char* tName : sCalls) {
        const int tCall = ::seccomp_syscall_resolve_name(tName);
        tError = tError != 0 || tCall == __NR_SCMP_ERROR
                     ? tError
                     : ::seccomp_rule_add(pFilter, SCMP_ACT_ALLOW, tCall, 0);
    }
    const std::pair<const char*, scmp_arg_cmp> tConditions[] = {
        {"open", SCMP_A1(SCMP_CMP_MASKED_EQ, sWriting, 0)},
        {"openat", SCMP_A2(SCMP_CMP_MASKED_EQ, sWriting, 0)},
        {"mmap", SCMP_A2(SCMP_CMP_MASKED_EQ, PROT_EXEC, 0)},
        {"mmap2", SCMP_A2(SCMP_CMP_MASKED_EQ, PROT_EXEC, 0)},
        {"mprotect", SCMP_A2(SCMP_CMP_MASKED_EQ, PROT_EXEC, 0)},
        {"fcntl", SCMP_A1(SCMP_CMP_EQ, F_GETFL)},
        {"fcntl", SCMP_A1(SCMP_CMP_EQ, F_SETFD)},
        {"fcntl64", SCMP_A1(SCMP_CMP_EQ, F_GETFL)},
        {"fcntl64", SCMP_A1(SCMP_CMP_EQ, F_SETFD)},
        {"tgkill", SCMP_A0(SCMP_CMP_EQ, static_cast<scmp_datum_t>(::getpid()))}, // to abort itself
    };
    for (const auto& [tName, tCondition] : tConditions) {
        tError = tError != 0 ? tError : allowIf(pFilter, tName, tCondition);
    }
    return tError;
}

// The failure is an errno.
int filterCalls()
{
    const scmp_filter_ctx tFilter = ::seccomp_init(SCMP_ACT_ERRNO(EPERM));
    if (tFilter == nullptr) {
        return ENOMEM;
    }
    int tError = allow(tFilter);
    tError = tError != 0 ? tError : ::seccomp_load(tFilter);
    ::seccomp_release(tFilter);
    return -tError;
}

} // namespace

// Without a dump of its memory for whoever may send it a signal.
Failure keepOnlySight()
{
    if (::prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) != 0 || ::prctl(PR_SET_DUMPABLE, 0, 0, 0, 0) != 0 ||
        !setCapabilities()) {
        return Failure::fromErrno(errno, u"give up all other rights"_s);
    }
    const int tError = filterCalls();
    return tError == 0 ? Failure() : Failure::fromErrno(tError, u"filter the calls to the system"_s);
}

} // namespace tarn::vkprocesses

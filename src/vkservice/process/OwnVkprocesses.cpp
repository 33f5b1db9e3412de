#include "process/OwnVkprocesses.h"

#include "internal/Machine.h"
#include "process/UserChange.h"

#include <QtCore/QFile>

#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <csignal>
#include <utility>

using namespace Qt::StringLiterals;

namespace tarn::vkservice::process {

using vkcore::machine::ServiceUser;

namespace {

// Nothing of root's environment and descriptors but the connection. If anything of it fails, the connection
// ends, and the caller sees that with its first question.
[[noreturn]] void becomeVkprocesses(QByteArray pProgram, const ServiceUser& pUser, int pConnection,
                                    pid_t pParent)
{
    const int tNull = ::open("/dev/null", O_RDWR | O_CLOEXEC);
    char tLocale[] = "LC_ALL=C.UTF-8";
    char* tArguments[] = {pProgram.data(), nullptr};
    char* tEnvironment[] = {tLocale, nullptr};
    sigset_t tNone;
    ::sigemptyset(&tNone);
    const bool tIsReady =
        !becomeUser(pUser, std::nullopt, Sight::Kept) && ::prctl(PR_SET_PDEATHSIG, SIGKILL, 0, 0, 0) == 0 &&
        ::getppid() == pParent && ::chdir("/") == 0 && ::sigprocmask(SIG_SETMASK, &tNone, nullptr) == 0 &&
        ::dup2(pConnection, STDIN_FILENO) == STDIN_FILENO && ::dup2(tNull, STDOUT_FILENO) == STDOUT_FILENO &&
        ::dup2(tNull, STDERR_FILENO) == STDERR_FILENO;
    if (tIsReady) {
        ::close_range(STDERR_FILENO + 1, ~0U, 0);
        ::execve(pProgram.constData(), tArguments, tEnvironment);
    }
    ::_exit(1);
}

} // namespace

int startVkprocesses(const ServiceUser& pUser)
{
    const QByteArray tProgram =
        QFile::encodeName(vkcore::machine::installationPrefix() + u"/" VKPROCESSES_PATH ""_s);
    int tEnds[2] = {-1, -1};
    if (::access(tProgram.constData(), X_OK) != 0 ||
        ::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, tEnds) != 0) {
        return -1;
    }
    const pid_t tParent = ::getpid();
    if (::fork() == 0) {
        becomeVkprocesses(tProgram, pUser, tEnds[1], tParent);
    }
    ::close(tEnds[1]);
    return tEnds[0];
}

} // namespace tarn::vkservice::process

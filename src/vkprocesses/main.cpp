// Tells which processes run programs of some folders, and which folders are in use: nothing else of what
// CAP_SYS_PTRACE lets it see. Standard input is the connection.

#include "Asker.h"
#include "os/Frame.h"
#include "os/ProcessQuestion.h"
#include "Rights.h"

#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <memory>
#include <optional>
#include <string_view>

using namespace tarn;
using namespace tarn::os;
using namespace tarn::vkprocesses;

namespace {

constexpr int sConnection = STDIN_FILENO;
// Without a question a process for a client of the socket ends: the next question starts another one.
constexpr int sIdleMs = 60 * 1000;
constexpr int sSendMs = 10 * 1000;
// The client waits less long. A file of a user can be on a disk that never answers.
constexpr unsigned sMostSeconds = 60;

Result<QByteArray> answer(ProcessList& pProcesses, const ProcessQuestion& pQuestion)
{
    if (pQuestion.mKind == ProcessQuestion::Kind::Running) {
        const Result<QList<Process>> tFound = pProcesses.running(pQuestion.mSearch);
        return tFound ? Result(toBytes(*tFound)) : tFound.failure();
    }
    const Result<QStringList> tFound = pProcesses.inUse(pQuestion.mSearch.mFolders);
    return tFound ? Result(toBytes(*tFound)) : tFound.failure();
}

// Until the connection ends, or is used for anything else than questions.
void serve(const Asker& pAsker)
{
    const std::unique_ptr<ProcessList> tProcesses = processListFor(pAsker.mUser);
    for (;;) {
        ::alarm(0);
        const QDeadlineTimer tIdle =
            pAsker.mIsParent ? QDeadlineTimer(QDeadlineTimer::Forever) : QDeadlineTimer(sIdleMs);
        const Result<QByteArray> tBytes = receiveFrame(sConnection, tIdle);
        ::alarm(sMostSeconds);
        const auto tQuestion = tBytes ? ProcessQuestion::fromBytes(*tBytes) : std::nullopt;
        const Result<QByteArray> tAnswer =
            tQuestion ? answer(*tProcesses, *tQuestion) : Result<QByteArray>(Failure::canceled());
        if (!tAnswer || sendFrame(sConnection, *tAnswer, QDeadlineTimer(sSendMs))) {
            return;
        }
    }
}

// Whoever has started this may have blocked or ignored the alarm.
void resetSignals()
{
    sigset_t tNone;
    ::sigemptyset(&tNone);
    ::sigprocmask(SIG_SETMASK, &tNone, nullptr);
    ::signal(SIGALRM, SIG_DFL);
}

[[noreturn]] void leave(const Failure& pFailure)
{
    if (pFailure) {
        std::fputs((pFailure.mText.toLocal8Bit() + ".\n").constData(), stderr);
    }
    std::fflush(nullptr);
    ::_exit(pFailure ? 1 : 0);
}

} // namespace

int main(int argc, char* argv[])
{
    if (argc == 2 && std::string_view(argv[1]) == "--version") {
        std::puts("vkprocesses " VKPROCESSES_VERSION);
        return 0;
    }
    if (argc > 1) {
        std::fputs("Usage: vkprocesses [--version]\nsystemd or vkservice starts it; see man vkprocesses.\n",
                   stderr);
        return 2;
    }
    resetSignals();
    const Result<Asker> tAsker = askerOf(sConnection);
    if (!tAsker) {
        leave(tAsker.failure());
    }
    if (const Failure tFailure = keepOnlySight()) {
        leave(tFailure);
    }
    serve(*tAsker);
    leave({});
}

// Replaces the service executable when rkm starts it as its worker. The variable STAND_IN sets its behavior,
// and worker.log beside its socket records what happened to it.

#include "ScriptedService.h"

#include <QtCore/QDir>

#include <atomic>
#include <csignal>

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

using Peer = ScriptedService::Peer;

static std::atomic<bool> sQuit = false;
static volatile std::sig_atomic_t sTerminated = 0;
static int sLog = -1;

static void note(const QByteArray& pText)
{
    (void)!::write(sLog, (pText + '\n').constData(), static_cast<size_t>(pText.size() + 1));
}

static void pause(int pMs)
{
    std::this_thread::sleep_for(std::chrono::milliseconds(pMs));
}

static void script(ScriptedService& pService, const QByteArray& pBehaviour)
{
    pService.onCall("quitService", [](Peer& pPeer, const QJsonObject&) {
        note("asked to quit");
        pPeer.reply("true");
        sQuit = true;
    });
    if (pBehaviour == "stubborn") {
        pService.refuse("quitService");
    } else if (pBehaviour == "mute") {
        pService.refuse("ping");
    } else if (pBehaviour == "silent") {
        pService.ignore("getKdmlDataDirectory");
    } else if (pBehaviour == "leaving") {
        pService.onCall("triggerUpdate", [&pService](Peer& pPeer, const QJsonObject&) {
            pPeer.reply("true");
            pService.sendEvent("quitRequestReceived", "{}");
            sQuit = true;
        });
    }
}

int main(int argc, char** argv)
{
    const QByteArray tBehaviour = qgetenv("STAND_IN");
    QByteArray tStarted = "started";
    QString tName = q("vkservice");
    for (int i = 1; i < argc; ++i) {
        tStarted += QByteArray(" ") + argv[i];
        tName = QByteArrayView(argv[i]).startsWith("-s=") ? q(argv[i] + 3) : tName;
    }
    sLog = ::open(qPrintable(QDir::tempPath() + q("/worker.log")), O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC,
                  0600);
    note(tStarted);
    std::signal(SIGINT, SIG_IGN);
    std::signal(SIGTERM, [](int) { sTerminated = 1; });
    if (tBehaviour == "gone") {
        return 1;
    }
    if (tBehaviour == "lingering") { // a lock on worker.log waits until this process has ended
        ::flock(sLog, LOCK_EX);
    }
    pause(tBehaviour == "slow" ? 400 : 0);
    const ScriptedService tService(QDir(QDir::tempPath()).absoluteFilePath(tName),
                                   [=](ScriptedService& pService) { script(pService, tBehaviour); });
    const pid_t tParent = ::getppid();
    while (!sQuit && sTerminated == 0 && ::getppid() == tParent) {
        pause(5);
    }
    if (tBehaviour == "lingering") {
        note("stays");
        pause(90000);
    }
    pause(tBehaviour == "leaving" ? 500 : 0);
    note(sTerminated != 0 ? "terminated" : "ended");
    return 0;
}

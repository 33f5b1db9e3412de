// Takes the place of the service executable where rkm starts it as its worker. The variable STAND_IN
// says how it behaves, and worker.log beside its socket tells what happened to it.

#include "ScriptedService.h"

#include <QtCore/QDir>
#include <QtCore/QFile>

#include <atomic>
#include <chrono>
#include <csignal>

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

using Peer = ScriptedService::Peer;

static std::atomic<bool> sQuit = false;
static volatile std::sig_atomic_t sTerminated = 0;

static void note(const QString& pText)
{
    QFile tLog(QDir::tempPath() + q("/worker.log"));
    if (tLog.open(QIODevice::Append)) {
        tLog.write(pText.toUtf8() + '\n');
    }
}

// Until this process has ended, whoever locks worker.log has to wait.
static void lockLog()
{
    const QByteArray tLog = QFile::encodeName(QDir::tempPath() + q("/worker.log"));
    ::flock(::open(tLog.constData(), O_RDONLY | O_CLOEXEC), LOCK_EX);
}

static void pause(int pMs)
{
    std::this_thread::sleep_for(std::chrono::milliseconds(pMs));
}

static void script(ScriptedService& pService, const QByteArray& pBehaviour)
{
    pService.onCall("quitService", [](Peer& pPeer, const QJsonObject&) {
        note(q("asked to quit"));
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
    QStringList tArguments;
    QString tName = q("vkservice");
    for (int i = 1; i < argc; ++i) {
        tArguments.append(QString::fromLocal8Bit(argv[i]));
        if (tArguments.last().startsWith(q("-s="))) {
            tName = tArguments.last().mid(3);
        }
    }
    note(q("started ") + tArguments.join(u' '));
    std::signal(SIGINT, SIG_IGN);
    std::signal(SIGTERM, [](int) { sTerminated = 1; });
    if (tBehaviour == "slow") {
        pause(400);
    }
    if (tBehaviour == "gone") {
        return 1;
    }
    const bool tStays = tBehaviour == "lingering";
    if (tStays) {
        lockLog();
    }

    const ScriptedService tService(QDir(QDir::tempPath()).absoluteFilePath(tName),
                                   [=](ScriptedService& pService) { script(pService, tBehaviour); });
    const pid_t tParent = ::getppid();
    while (!sQuit && sTerminated == 0 && ::getppid() == tParent) {
        pause(5);
    }
    if (tBehaviour == "leaving") {
        pause(500);
    } else if (tStays) {
        note(q("stays"));
        pause(90000);
    }
    note(sTerminated != 0 ? q("terminated") : q("ended"));
    return 0;
}

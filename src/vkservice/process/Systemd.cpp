#include "process/Systemd.h"

#include <systemd/sd-daemon.h>

#include <QtCore/QFile>

#include <fcntl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <ctime>

namespace tarn::vkservice::process {

namespace {

constexpr int sExtensionMs = 10000;

} // namespace

int inheritedSocket(const QString& pPath)
{
    int tFound = -1;
    const int tCount = sd_listen_fds(1);
    for (int tFd = SD_LISTEN_FDS_START; tFd < SD_LISTEN_FDS_START + tCount; ++tFd) {
        const bool tOurs =
            sd_is_socket_unix(tFd, SOCK_STREAM, 1, QFile::encodeName(pPath).constData(), 0) > 0;
        if (tFound < 0 && tOurs) {
            ::fcntl(tFd, F_SETFL, ::fcntl(tFd, F_GETFL) | O_NONBLOCK);
            tFound = tFd;
        } else {
            ::close(tFd);
        }
    }
    return tFound;
}

void closeInheritedFiles()
{
    const int tPassed = qMax(0, sd_listen_fds(0));
    ::close_range(static_cast<unsigned>(SD_LISTEN_FDS_START + tPassed), ~0U, 0);
}

SystemdNotifier::SystemdNotifier(QObject* pParent) : QObject(pParent)
{
    uint64_t tMicroseconds = 0;
    if (sd_watchdog_enabled(0, &tMicroseconds) > 0) {
        connect(&mWatchdog, &QTimer::timeout, this, [] { sd_notify(0, "WATCHDOG=1"); });
        mWatchdog.start(static_cast<int>(tMicroseconds / 1000 / 3));
    }
    connect(&mExtension, &QTimer::timeout, this, [] { sd_notify(0, "EXTEND_TIMEOUT_USEC=30000000"); });
}

void SystemdNotifier::ready(const QString& pStatus)
{
    sd_notify(0, ("READY=1\nSTATUS=" + pStatus.toUtf8()).constData());
}

void SystemdNotifier::reloading()
{
    timespec tNow = {};
    ::clock_gettime(CLOCK_MONOTONIC, &tNow);
    sd_notifyf(0, "RELOADING=1\nMONOTONIC_USEC=%lld",
               static_cast<long long>(tNow.tv_sec) * 1000000 + tNow.tv_nsec / 1000);
}

void SystemdNotifier::stopping()
{
    sd_notify(0, "STOPPING=1\nEXTEND_TIMEOUT_USEC=30000000");
    mExtension.start(sExtensionMs);
}

} // namespace tarn::vkservice::process

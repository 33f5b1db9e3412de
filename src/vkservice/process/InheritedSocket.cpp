#include "process/InheritedSocket.h"

#include <systemd/sd-daemon.h>

#include <QtCore/QFile>

#include <fcntl.h>
#include <sys/socket.h>
#include <unistd.h>

namespace tarn::vkservice::process {

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

} // namespace tarn::vkservice::process

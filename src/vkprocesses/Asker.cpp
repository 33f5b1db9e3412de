#include "Asker.h"

#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>

using namespace Qt::StringLiterals;

namespace tarn::vkprocesses {

namespace {

Failure noSocket()
{
    return Failure::fromErrno(errno, u"use standard input as a connection"_s);
}

} // namespace

Result<Asker> askerOf(int pConnection)
{
    sockaddr_un tName = {};
    socklen_t tSize = sizeof tName - 1; // a zero byte stays behind the path
    if (::getsockname(pConnection, reinterpret_cast<sockaddr*>(&tName), &tSize) != 0) {
        return noSocket();
    }
    if (tName.sun_family != AF_UNIX) {
        return Failure::content(u"The connection is none of this machine"_s);
    }
    if (tSize <= offsetof(sockaddr_un, sun_path)) {
        return Asker{::geteuid(), true};
    }
    ucred tClient = {};
    socklen_t tLength = sizeof tClient;
    struct stat tSocket = {};
    if (::getsockopt(pConnection, SOL_SOCKET, SO_PEERCRED, &tClient, &tLength) != 0 ||
        ::lstat(tName.sun_path, &tSocket) != 0) {
        return noSocket();
    }
    if (!S_ISSOCK(tSocket.st_mode) || (tClient.uid != tSocket.st_uid && tClient.uid != 0)) {
        return Failure{Failure::Kind::Person, u"The user with the number %1 may not ask"_s.arg(tClient.uid)};
    }
    return Asker{tClient.uid, false};
}

} // namespace tarn::vkprocesses

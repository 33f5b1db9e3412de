#pragma once

#include <QtCore/QFile>

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstring>

inline sockaddr_un unixAddress(const QString& pPath)
{
    sockaddr_un tAddress = {};
    tAddress.sun_family = AF_UNIX;
    const QByteArray tPath = QFile::encodeName(pPath);
    if (static_cast<size_t>(tPath.size()) >= sizeof tAddress.sun_path) {
        qFatal("too long for a socket: %s", tPath.constData());
    }
    std::memcpy(tAddress.sun_path, tPath.constData(), static_cast<size_t>(tPath.size()));
    return tAddress;
}

// A socket with this name that does not listen yet.
inline int boundSocket(const QString& pPath, int pType = SOCK_STREAM)
{
    const sockaddr_un tAddress = unixAddress(pPath);
    const int tFd = ::socket(AF_UNIX, pType | SOCK_CLOEXEC, 0);
    if (::bind(tFd, reinterpret_cast<const sockaddr*>(&tAddress), sizeof tAddress) != 0) {
        qFatal("can't bind %s", qPrintable(pPath));
    }
    return tFd;
}

// -1 if nobody listens.
inline int connectedSocket(const QString& pPath)
{
    const sockaddr_un tAddress = unixAddress(pPath);
    const int tFd = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (::connect(tFd, reinterpret_cast<const sockaddr*>(&tAddress), sizeof tAddress) != 0) {
        ::close(tFd);
        return -1;
    }
    return tFd;
}

// False if the peer has closed the connection.
inline bool sendAll(int pFd, const QByteArray& pBytes)
{
    ssize_t tCount = 0;
    for (qsizetype tSent = 0; tSent < pBytes.size(); tSent += tCount) {
        tCount =
            ::send(pFd, pBytes.constData() + tSent, static_cast<size_t>(pBytes.size() - tSent), MSG_NOSIGNAL);
        if (tCount <= 0) {
            return false;
        }
    }
    return true;
}

#pragma once

#include "Text.h"

#include <QtCore/QProcess>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>

inline sockaddr_in loopback(quint16 pPort)
{
    sockaddr_in tAddress = {};
    tAddress.sin_family = AF_INET;
    tAddress.sin_port = htons(pPort);
    tAddress.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    return tAddress;
}

// A socket on a free port of this machine, stored in *pPort; it does not listen yet.
inline int loopbackSocket(quint16* pPort)
{
    sockaddr_in tAddress = loopback(0);
    socklen_t tLength = sizeof tAddress;
    const int tFd = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (::bind(tFd, reinterpret_cast<sockaddr*>(&tAddress), tLength) != 0 ||
        ::getsockname(tFd, reinterpret_cast<sockaddr*>(&tAddress), &tLength) != 0) {
        qFatal("no port is free");
    }
    *pPort = ntohs(tAddress.sin_port);
    return tFd;
}

// Writes a self-signed certificate and its key.
inline void makeCertificate(const QString& pCertificate, const QString& pKey,
                            const QString& pName = q("localhost"))
{
    QProcess tOpenssl; // its output is dropped
    const QString tWords = q("req -x509 -nodes -newkey ec -pkeyopt ec_paramgen_curve:P-256 -days 2 "
                             "-subj /CN=%1 -addext subjectAltName=DNS:%1")
                               .arg(pName);
    tOpenssl.start(q("openssl"),
                   tWords.split(u' ') + QStringList{q("-keyout"), pKey, q("-out"), pCertificate});
    if (!tOpenssl.waitForFinished() || tOpenssl.exitCode() != 0) {
        qFatal("openssl makes no certificate");
    }
}

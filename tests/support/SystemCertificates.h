#pragma once

#include "Files.h"
#include "Text.h"

#include <QtCore/QProcess>
#include <QtCore/QTemporaryDir>

#include <sched.h>
#include <sys/mount.h>
#include <sys/wait.h>
#include <unistd.h>

// The result of pBody in a child process in which the system trusts the certificate, in its folder and in its
// bundle; -1 where the kernel allows no mount namespace.
template <typename T>
int withSystemCertificate(const QString& pCertificate, T pBody)
{
    const QTemporaryDir tDir;
    writeFile(tDir.filePath(q("ca-certificates.crt")), readFile(pCertificate));
    QProcess tOpenssl;
    tOpenssl.start(q("openssl"), {q("rehash"), tDir.path()});
    tOpenssl.waitForFinished();
    constexpr int sNoNamespace = 255;
    const pid_t tChild = ::fork();
    if (tChild == 0) {
        const bool tInside =
            ::unshare(CLONE_NEWUSER | CLONE_NEWNS) == 0 &&
            ::mount(qPrintable(tDir.path()), "/etc/ssl/certs", nullptr, MS_BIND, nullptr) == 0;
        ::_exit(tInside ? static_cast<int>(pBody()) : sNoNamespace);
    }
    int tStatus = 0;
    ::waitpid(tChild, &tStatus, 0);
    return WIFEXITED(tStatus) && WEXITSTATUS(tStatus) != sNoNamespace ? WEXITSTATUS(tStatus) : -1;
}

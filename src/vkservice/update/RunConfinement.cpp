#include "update/RunConfinement.h"

#include "os/Confinement.h"
#include "update/RunRequest.h"

#include <QtCore/QDir>
#include <QtCore/QFile>
#include <QtCore/QFileInfo>
#include <QtCore/QUrl>

using namespace Qt::StringLiterals;

namespace tarn::vkservice::update {

namespace {

// For libraries that are loaded late, and for the programs that a sanitizer runs for its report.
constexpr const char* sPrograms[] = {"/usr", "/bin", "/lib", "/lib32", "/lib64", "/libx32"};
// Names, certificates, time zones, resolvers. Files that may be links are listed separately, too.
constexpr const char* sSystem[] = {
    "/etc", "/etc/resolv.conf", "/etc/localtime",         "/etc/ssl/certs/ca-certificates.crt", "/proc",
    "/run", "/dev/urandom",     "/sys/devices/system/cpu"};
// Variables that point OpenSSL to other files.
constexpr const char* sVariables[] = {"SSL_CERT_FILE", "SSL_CERT_DIR", "OPENSSL_CONF", "OPENSSL_MODULES"};

// The folder of this installation, with bin/ and lib/.
QString ownFolder()
{
    const QDir tPrograms = QFileInfo(QFile::symLinkTarget(u"/proc/self/exe"_s)).dir();
    return QFileInfo(tPrograms.path()).path();
}

// The two parts of a repository may be links to other folders.
void allowServer(os::Confinement* pTo, const QUrl& pServer)
{
    if (pServer.isLocalFile() && !pServer.toLocalFile().isEmpty()) {
        for (const char* tBelow : {"", "/metadata", "/targets"}) {
            pTo->allowReading(pServer.toLocalFile() + QLatin1String(tBelow));
        }
    }
}

void allowSystem(os::Confinement* pTo)
{
    for (const char* tPath : sPrograms) {
        pTo->allowPrograms(QLatin1String(tPath));
    }
    for (const char* tPath : sSystem) {
        pTo->allowReading(QLatin1String(tPath));
    }
    for (const char* tName : sVariables) {
        const QStringList tPaths = qEnvironmentVariable(tName).split(u':', Qt::SkipEmptyParts);
        for (const QString& tPath : tPaths) {
            pTo->allowReading(tPath);
        }
    }
    if (const QString tOwn = ownFolder(); tOwn != "/"_L1) {
        pTo->allowReading(tOwn);
    }
}

} // namespace

Failure confineRun(const RunRequest& pRequest, const QStringList& pWritable)
{
    if (!os::Confinement::isAvailable()) {
        return {};
    }
    os::Confinement tConfinement;
    for (const QString& tPath : pWritable) {
        tConfinement.allowWriting(tPath);
    }
    allowSystem(&tConfinement);
    tConfinement.allowReading(pRequest.mRootFile);
    tConfinement.allowReading(pRequest.mCaFile);
    for (const ServerAccess& tServer : pRequest.mServers) {
        allowServer(&tConfinement, QUrl(tServer.mUri));
    }
    return tConfinement.enter();
}

} // namespace tarn::vkservice::update

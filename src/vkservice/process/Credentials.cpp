#include "process/Credentials.h"

#include <QtCore/QFile>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

using namespace Qt::StringLiterals;

namespace tarn::vkservice::process {

namespace {

constexpr qsizetype sMaxSize = 4096;

} // namespace

Result<QString> credential(const QString& pName)
{
    const QByteArray tFolder = qgetenv("CREDENTIALS_DIRECTORY");
    if (!tFolder.startsWith('/')) {
        return QString();
    }
    const QString tWhat = u"read the credential %1"_s.arg(pName);
    const QByteArray tPath = tFolder + '/' + QFile::encodeName(pName);
    const int tFd = ::open(tPath.constData(), O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
    if (tFd < 0) {
        return errno == ENOENT ? Result<QString>(QString()) : Failure::fromErrno(errno, tWhat);
    }
    struct stat tStat = {};
    QByteArray tText(sMaxSize + 1, '\0');
    const bool tIsFile = ::fstat(tFd, &tStat) == 0 && S_ISREG(tStat.st_mode);
    const ssize_t tLength = tIsFile ? ::read(tFd, tText.data(), static_cast<size_t>(tText.size())) : -1;
    const int tError = tIsFile ? errno : EINVAL;
    ::close(tFd);
    if (tLength < 0) {
        return Failure::fromErrno(tError, tWhat);
    }
    if (tLength > sMaxSize) {
        return Failure::content(u"The credential %1 is longer than %2 bytes"_s.arg(pName).arg(sMaxSize));
    }
    tText.truncate(tLength);
    if (tText.endsWith('\n')) {
        tText.chop(tText.endsWith("\r\n") ? 2 : 1);
    }
    return QString::fromUtf8(tText);
}

} // namespace tarn::vkservice::process

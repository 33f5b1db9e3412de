#include <vkcore/LockFile.h>

#include <vkcore/Application.h>

#include <QtCore/QDeadlineTimer>
#include <QtCore/QFile>
#include <QtCore/QThread>

#include <algorithm>
#include <cerrno>

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

using namespace Qt::StringLiterals;

namespace tarn::vkcore {

namespace {

// O_NONBLOCK: a pipe in place of the file must not block the open.
int openLockFile(const QByteArray& pPath, bool pReadOnlyWillDo)
{
    const int tFlags = O_CLOEXEC | O_NOCTTY | O_NONBLOCK;
    int tFd = ::open(pPath.constData(), O_RDWR | O_CREAT | tFlags, 0666);
    if (tFd < 0 && pReadOnlyWillDo && (errno == EACCES || errno == EROFS)) {
        tFd = ::open(pPath.constData(), O_RDONLY | tFlags);
    }
    return tFd;
}

} // namespace

LockFile::LockFile(Application* pApp, const QString& pPath, LockMode pMode)
    : mApp(pApp), mPath(pPath), mMode(pMode)
{
}

LockFile::~LockFile()
{
    if (mFd >= 0) {
        ::close(mFd);
    }
}

bool LockFile::lock(int pTimeoutMs, int pIntervalMs, bool pLogFailure)
{
    if (mFd >= 0) {
        return true;
    }
    QString tReason;
    const int tFd = openLockFile(QFile::encodeName(mPath), mMode == Shared);
    if (tFd < 0) {
        tReason = qt_error_string(errno);
    } else {
        const QDeadlineTimer tDeadline(qMax(0, pTimeoutMs));
        while (true) {
            if (::flock(tFd, (mMode == Shared ? LOCK_SH : LOCK_EX) | LOCK_NB) == 0) {
                mFd = tFd;
                return true;
            }
            if (errno != EWOULDBLOCK && errno != EINTR) {
                tReason = qt_error_string(errno);
                break;
            }
            const qint64 tLeft = tDeadline.remainingTime();
            if (tLeft <= 0) {
                tReason = u"held by another process for %1 ms"_s.arg(pTimeoutMs);
                break;
            }
            QThread::msleep(static_cast<unsigned long>(std::clamp(qint64{pIntervalMs}, qint64{1}, tLeft)));
        }
        ::close(tFd);
    }
    if (pLogFailure && mApp != nullptr) {
        mApp->log(u"Failed to lock file \"%1\": %2"_s.arg(mPath, tReason));
    }
    return false;
}

} // namespace tarn::vkcore

#include "keys/FolderLock.h"

#include "internal/PlainText.h"
#include "internal/StandardOutput.h"

#include <QtCore/QFile>

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <cerrno>

using namespace Qt::StringLiterals;

namespace tarn::vkpublish {

namespace {

constexpr mode_t sFileMode = 0600;

int lockWith(int pFd, int pOperation)
{
    int tResult = -1;
    do {
        tResult = ::flock(pFd, pOperation);
    } while (tResult != 0 && errno == EINTR);
    return tResult;
}

// What network file systems say of a folder.
bool isNoLock(int pErrno)
{
    return pErrno == EBADF || pErrno == ENOLCK || pErrno == EOPNOTSUPP || pErrno == ENOSYS;
}

} // namespace

FolderLock::~FolderLock()
{
    if (mFd >= 0) {
        ::close(mFd);
    }
}

QString FolderLock::fileName()
{
    return u"lock"_s;
}

Failure FolderLock::takeKeys(const QString& pFolder, Patience pPatience)
{
    const QByteArray tPath = QFile::encodeName(pFolder + u'/' + fileName());
    mFd = ::open(tPath.constData(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, sFileMode);
    return mFd >= 0 ? wait(pFolder, u"using the keys in %1"_s.arg(pFolder), pPatience)
                    : Failure::fromErrno(errno, u"lock %1"_s.arg(pFolder));
}

Failure FolderLock::takeRepository(const QString& pMetadata, Patience pPatience)
{
    mFd = ::open(QFile::encodeName(pMetadata).constData(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (mFd < 0) {
        return Failure::fromErrno(errno, u"lock %1"_s.arg(pMetadata));
    }
    return lockWith(mFd, LOCK_EX | LOCK_NB) != 0 && isNoLock(errno)
               ? Failure()
               : wait(pMetadata, u"writing to %1"_s.arg(pMetadata), pPatience);
}

Failure FolderLock::wait(const QString& pFolder, const QString& pUse, Patience pPatience) const
{
    if (lockWith(mFd, LOCK_EX | LOCK_NB) == 0) {
        return {};
    }
    if (errno == EWOULDBLOCK && pPatience == Patience::Refuse) {
        return Failure::content(u"Another vkpublish is "_s + pUse);
    }
    if (errno == EWOULDBLOCK) {
        const QString tText = u"vkpublish: Waiting for another vkpublish, which is %1"_s.arg(pUse);
        vkcore::writeError(vkcore::singleLine(tText, vkcore::sMaxMessage).toLocal8Bit() + '\n');
        if (lockWith(mFd, LOCK_EX) == 0) {
            return {};
        }
    }
    return Failure::fromErrno(errno, u"lock %1"_s.arg(pFolder));
}

} // namespace tarn::vkpublish

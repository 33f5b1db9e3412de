#include "keys/FolderLock.h"

#include <QtCore/QFile>

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>

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

Failure FolderLock::take(const QString& pFolder, Patience pPatience)
{
    const QByteArray tPath = QFile::encodeName(pFolder + u'/' + fileName());
    mFd = ::open(tPath.constData(), O_RDWR | O_CREAT | O_CLOEXEC, sFileMode);
    if (mFd >= 0 && lockWith(mFd, LOCK_EX | LOCK_NB) == 0) {
        return {};
    }
    if (mFd >= 0 && errno == EWOULDBLOCK) {
        if (pPatience == Patience::Refuse) {
            return Failure::content(u"Another vkpublish is using the keys in %1"_s.arg(pFolder));
        }
        std::fprintf(stderr, "vkpublish: Waiting for another vkpublish, which is using the keys in %s\n",
                     pFolder.toLocal8Bit().constData());
        if (lockWith(mFd, LOCK_EX) == 0) {
            return {};
        }
    }
    return Failure::fromErrno(errno, u"lock %1"_s.arg(pFolder));
}

} // namespace tarn::vkpublish

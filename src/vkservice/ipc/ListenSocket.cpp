#include "ipc/ListenSocket.h"

#include "internal/Machine.h"
#include "internal/SocketName.h"
#include "ipc/PeerCredentials.h"
#include "ipc/SocketFolder.h"

#include <QtCore/QFile>
#include <QtCore/QFileInfo>
#include <QtCore/QSocketNotifier>
#include <QtCore/QTimer>

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <limits>

using namespace Qt::StringLiterals;

namespace tarn::vkservice::ipc {

namespace {

constexpr int sBacklog = 1024;
constexpr int sAcceptsPerTurn = 64;
constexpr int sPauseMs = 100;

enum class Holder
{
    Nobody,
    Service,  // a user that may run a service, or a process that does not accept us
    Stranger, // another user, so not a service
};

bool toAddress(const QByteArray& pPath, sockaddr_un* pAddress)
{
    *pAddress = {};
    pAddress->sun_family = AF_UNIX;
    if (pPath.size() >= static_cast<qsizetype>(sizeof(pAddress->sun_path))) {
        return false;
    }
    std::memcpy(pAddress->sun_path, pPath.constData(), static_cast<size_t>(pPath.size()));
    return true;
}

Holder holderOf(const QByteArray& pPath)
{
    sockaddr_un tAddress;
    if (!toAddress(pPath, &tAddress)) {
        return Holder::Nobody;
    }
    const int tFd = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    if (tFd < 0) {
        return Holder::Service;
    }
    const bool tConnected =
        ::connect(tFd, reinterpret_cast<const sockaddr*>(&tAddress), sizeof(tAddress)) == 0;
    const int tError = tConnected ? 0 : errno;
    Holder tHolder = Holder::Service;
    if (tConnected) {
        const auto tPeer = peerCredentials(tFd);
        if (tPeer && !vkcore::machine::isTrusted(tPeer->mUid)) {
            tHolder = Holder::Stranger;
        }
    } else if (tError == ECONNREFUSED || tError == ENOENT) {
        tHolder = Holder::Nobody;
    }
    ::close(tFd);
    return tHolder;
}

// Renames the file before the second check: between the first check and the removal another service may have
// started to listen there, and then its socket must go back.
bool removeAbandoned(const QByteArray& pPath)
{
    struct stat tStat = {};
    if (::lstat(pPath.constData(), &tStat) != 0) {
        return errno == ENOENT;
    }
    if (!S_ISSOCK(tStat.st_mode)) {
        errno = EEXIST;
        return false;
    }
    if (holderOf(pPath) == Holder::Service) {
        errno = EADDRINUSE;
        return false;
    }
    const QByteArray tAside = pPath + '.' + QByteArray::number(::getpid());
    if (::rename(pPath.constData(), tAside.constData()) != 0) {
        return errno == ENOENT;
    }
    if (holderOf(tAside) == Holder::Service) {
        ::renameat2(AT_FDCWD, tAside.constData(), AT_FDCWD, pPath.constData(), RENAME_NOREPLACE);
        errno = EADDRINUSE;
        return false;
    }
    return ::unlink(tAside.constData()) == 0;
}

bool bindPrivately(int pFd, const sockaddr_un& pAddress, std::optional<gid_t> pGroup)
{
    const mode_t tOld = ::umask(0177);
    const bool tBound = ::bind(pFd, reinterpret_cast<const sockaddr*>(&pAddress), sizeof(pAddress)) == 0;
    const int tError = errno;
    ::umask(tOld);
    errno = tError;
    if (!tBound || !pGroup) {
        return tBound;
    }
    if (::chown(pAddress.sun_path, static_cast<uid_t>(-1), *pGroup) == 0 &&
        ::chmod(pAddress.sun_path, 0660) == 0) {
        return true;
    }
    const int tReason = errno;
    ::unlink(pAddress.sun_path);
    errno = tReason;
    return false;
}

Failure failure(const QString& pPath)
{
    if (errno == EADDRINUSE) {
        return {Failure::Kind::Io, u"Another service is already listening on %1"_s.arg(pPath)};
    }
    return Failure::fromErrno(errno, u"create the socket %1"_s.arg(pPath));
}

} // namespace

ListenSocket::ListenSocket(QObject* pParent) : QObject(pParent) {}
ListenSocket::~ListenSocket()
{
    close();
}

Failure ListenSocket::listen(const QString& pPath, std::optional<gid_t> pGroup)
{
    close();
    const QByteArray tPath = QFile::encodeName(pPath);
    sockaddr_un tAddress;
    if (!toAddress(tPath, &tAddress)) {
        return Failure::content(
            u"The socket's path is too long (%1 bytes at most): %2"_s.arg(sizeof(tAddress.sun_path) - 1)
                .arg(pPath));
    }
    if (pPath == QLatin1String(vkcore::protocol::sMachineSocket)) {
        if (const Failure tFailure = makeSocketFolder(QFileInfo(pPath).path())) {
            return tFailure;
        }
    }
    if (!removeAbandoned(tPath)) {
        return failure(pPath);
    }
    const int tFd = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    struct stat tStat = {};
    if (tFd < 0 || !bindPrivately(tFd, tAddress, pGroup) || ::lstat(tPath.constData(), &tStat) != 0 ||
        ::listen(tFd, sBacklog) != 0) {
        const Failure tFailure = failure(pPath);
        if (tFd >= 0) {
            ::close(tFd);
        }
        return tFailure;
    }
    mPath = tPath;
    mDevice = tStat.st_dev;
    mInode = tStat.st_ino;
    watch(tFd);
    return {};
}

void ListenSocket::adopt(int pFd)
{
    close();
    mPath.clear();
    watch(pFd);
}

void ListenSocket::watch(int pFd)
{
    mFd = pFd;
    mNotifier = std::make_unique<QSocketNotifier>(mFd, QSocketNotifier::Read);
    connect(mNotifier.get(), &QSocketNotifier::activated, this, [this] { accept(sAcceptsPerTurn); });
}

// Closing alone would reset the connections that wait to be accepted. A socket that somebody else has made
// keeps them for its next service.
void ListenSocket::finish()
{
    if (mFd >= 0 && !mPath.isEmpty()) {
        ::shutdown(mFd, SHUT_RD);
        accept(std::numeric_limits<int>::max());
    }
    close();
}

void ListenSocket::close()
{
    mPause.reset();
    mNotifier.reset();
    if (mFd < 0) {
        return;
    }
    ::close(mFd);
    mFd = -1;
    struct stat tStat = {};
    if (!mPath.isEmpty() && ::lstat(mPath.constData(), &tStat) == 0 && tStat.st_dev == mDevice &&
        tStat.st_ino == mInode) {
        ::unlink(mPath.constData());
    }
}

void ListenSocket::accept(int pMost)
{
    for (int tCount = 0; tCount < pMost && mFd >= 0; ++tCount) {
        const int tSocket = ::accept4(mFd, nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK);
        if (tSocket >= 0) {
            Q_EMIT accepted(tSocket);
            continue;
        }
        if (errno == EMFILE || errno == ENFILE || errno == ENOBUFS || errno == ENOMEM) {
            pause();
        }
        if (errno != ECONNABORTED && errno != EINTR) {
            return;
        }
    }
}

// Without a free descriptor the kernel would report the waiting connection again and again.
void ListenSocket::pause()
{
    const int tError = errno;
    mNotifier->setEnabled(false);
    if (!mPause) {
        mPause = std::make_unique<QTimer>();
        mPause->setSingleShot(true);
        connect(mPause.get(), &QTimer::timeout, this, [this] { mNotifier->setEnabled(true); });
    }
    mPause->start(sPauseMs);
    errno = tError;
}

} // namespace tarn::vkservice::ipc

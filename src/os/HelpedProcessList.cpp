#include "os/HelpedProcessList.h"

#include "os/Frame.h"
#include "os/ProcessQuestion.h"

#include <QtCore/QDeadlineTimer>
#include <QtCore/QFile>

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

using namespace Qt::StringLiterals;

namespace tarn::os {

namespace {

Failure cantAsk(const Failure& pWhy)
{
    return {pWhy.mKind,
            u"vkprocesses, which sees the programs of all users, gives no answer: %1"_s.arg(pWhy.mText)};
}

} // namespace

HelpedProcessList::HelpedProcessList(const QString& pSocket) : mSocket(QFile::encodeName(pSocket)) {}

HelpedProcessList::HelpedProcessList(Descriptor pConnection, const Patience& pPatience)
    : mPatience(pPatience), mConnection(std::move(pConnection))
{
}

Result<QList<Process>> HelpedProcessList::running(const ProgramSearch& pSearch)
{
    const Result<QByteArray> tAnswer = ask({ProcessQuestion::Kind::Running, pSearch}, mPatience.mRunningMs);
    if (!tAnswer) {
        return cantAsk(tAnswer.failure());
    }
    const std::optional<QList<Process>> tFound = processesFromBytes(*tAnswer, pSearch);
    return tFound ? Result(*tFound) : cantAsk(Failure::content(u"what it sends is none"_s));
}

Result<QStringList> HelpedProcessList::inUse(const QStringList& pFolders)
{
    const Result<QByteArray> tAnswer =
        ask({ProcessQuestion::Kind::InUse, {.mFolders = pFolders, .mScripts = {}, .mPlaces = {}}},
            mPatience.mInUseMs);
    if (!tAnswer) {
        return cantAsk(tAnswer.failure());
    }
    const std::optional<QStringList> tFound = foldersFromBytes(*tAnswer, pFolders);
    return tFound ? Result(*tFound) : cantAsk(Failure::content(u"what it sends is none"_s));
}

Failure HelpedProcessList::connect()
{
    sockaddr_un tAddress = {};
    tAddress.sun_family = AF_UNIX;
    if (mSocket.isEmpty() || mSocket.size() >= qsizetype(sizeof tAddress.sun_path)) {
        return {Failure::Kind::Unreachable, u"it has ended"_s};
    }
    std::memcpy(tAddress.sun_path, mSocket.constData(), static_cast<size_t>(mSocket.size()));
    mConnection = {realFileSystem(), ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0)};
    const bool tIsConnected =
        mConnection.isOpen() &&
        ::connect(mConnection.fd(), reinterpret_cast<const sockaddr*>(&tAddress), sizeof tAddress) == 0;
    return tIsConnected ? Failure()
                        : Failure::fromErrno(errno, u"connect to %1"_s.arg(QFile::decodeName(mSocket)));
}

// It ends when it has had no question for a while, so a connection may have ended since the last one.
Result<QByteArray> HelpedProcessList::ask(const ProcessQuestion& pQuestion, int pMilliseconds)
{
    const std::lock_guard tLock(mMutex);
    const QByteArray tQuestion = pQuestion.toBytes();
    const bool tIsKept = mConnection.isOpen();
    Result<QByteArray> tAnswer = exchange(tQuestion, pMilliseconds);
    if (!tAnswer && tAnswer.failure().mKind == Failure::Kind::Unreachable && tIsKept && !mSocket.isEmpty()) {
        tAnswer = exchange(tQuestion, pMilliseconds);
    }
    return tAnswer;
}

// After a failure the connection is closed: a late answer must not be taken for that to another question.
Result<QByteArray> HelpedProcessList::exchange(const QByteArray& pQuestion, int pMilliseconds)
{
    const QDeadlineTimer tDeadline(pMilliseconds);
    Failure tFailure = mConnection.isOpen() ? Failure() : connect();
    tFailure = tFailure ? tFailure : sendFrame(mConnection.fd(), pQuestion, tDeadline);
    Result<QByteArray> tAnswer =
        tFailure ? Result<QByteArray>(tFailure) : receiveFrame(mConnection.fd(), tDeadline);
    if (!tAnswer) {
        mConnection = {};
    }
    return tAnswer;
}

} // namespace tarn::os

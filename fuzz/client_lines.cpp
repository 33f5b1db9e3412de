// What a service sends to its clients. The first line of an input names the method to call, the rest is what
// the service sends. Answers may come before their requests; hello has the id 1, the call 2.
#include "support/ScratchFolder.h"

#include "ClientQueries.h"
#include "UnixSocket.h"

#include <QtCore/QCoreApplication>
#include <QtCore/QHash>
#include <QtCore/QSocketNotifier>

#include <unistd.h>

#include <cstdlib>
#include <functional>

using namespace Qt::StringLiterals;

using namespace tarn;
using namespace tarn::vkcore;

namespace {

const fuzz::ScratchFolder& folder()
{
    static const fuzz::ScratchFolder sFolder;
    return sFolder;
}

// Sends the same to every client and closes the connection.
class Service
{
public:
    Service() : mFd(boundSocket(folder().path(u"socket"_s)))
    {
        if (::listen(mFd, 10) != 0) {
            std::abort();
        }
        mNotifier = std::make_unique<QSocketNotifier>(mFd, QSocketNotifier::Read);
        QObject::connect(mNotifier.get(), &QSocketNotifier::activated, mNotifier.get(), [this] { serve(); });
    }

    QByteArray mBytes;

private:
    void serve() const
    {
        const int tPeer = ::accept4(mFd, nullptr, nullptr, SOCK_CLOEXEC);
        [[maybe_unused]] const ssize_t tSent = ::send(
            tPeer, mBytes.constData(), static_cast<size_t>(mBytes.size()), MSG_NOSIGNAL | MSG_DONTWAIT);
        // A close would discard what the client has not read yet, because its requests are unread.
        ::shutdown(tPeer, SHUT_WR);
        char tRequests[4096];
        while (::recv(tPeer, tRequests, sizeof tRequests, MSG_DONTWAIT) > 0) {
        }
        ::close(tPeer);
    }

    int mFd;
    std::unique_ptr<QSocketNotifier> mNotifier;
};

using Call = std::function<void(IPCClient&)>;

QHash<QByteArray, Call> makeCalls()
{
    QHash<QByteArray, Call> tCalls{
        {"testConnect", [](IPCClient& pClient) { pClient.testConnect(1000); }},
        {"enterMonitorMode", [](IPCClient& pClient) { pClient.enterMonitorMode(); }},
        {"getLastServiceResult", [](IPCClient& pClient) { pClient.getLastServiceResult(false); }},
        {"getConfigValue", [](IPCClient& pClient) { pClient.getConfigValue(u"a"_s, {}); }},
    };
    for (const test::ClientQuery& tQuery : test::sClientQueries) {
        tCalls.insert(tQuery.mMethod, tQuery.mCall);
    }
    tCalls[QByteArrayLiteral("getServerList")] = [](IPCClient& pClient) {
        test::serverNames(pClient);
        pClient.removeServer(0);
    };
    return tCalls;
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int* pArgc, char*** pArgv)
{
    new QCoreApplication(*pArgc, *pArgv);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* pData, size_t pSize)
{
    static Service sService;
    const QByteArray tInput(reinterpret_cast<const char*>(pData), static_cast<qsizetype>(pSize));
    const qsizetype tEnd = tInput.indexOf('\n');
    static const QHash<QByteArray, Call> sCalls = makeCalls();
    const auto tCall = sCalls.constFind(tInput.left(tEnd));
    if (tEnd < 0 || tCall == sCalls.cend()) {
        return -1;
    }
    sService.mBytes = tInput.mid(tEnd + 1);
    IPCClient tClient(nullptr, nullptr);
    tClient.setServerName(folder().path(u"socket"_s));
    (*tCall)(tClient);
    QCoreApplication::processEvents(); // the events after the answer
    return 0;
}

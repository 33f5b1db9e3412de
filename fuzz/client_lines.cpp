// What a service writes to its clients: the first line of an input names the method that is called, all
// behind it is the service's side of the connection. Its answers may come before their requests; hello has
// the id 1, the call 2.
#include "support/ScratchFolder.h"

#include <vkcore/Application.h>
#include <vkcore/IPCClient.h>
#include <vkcore/MonitoringSettings.h>
#include <vkcore/Server.h>
#include <vkcore/ServerList.h>

#include <QtCore/QCoreApplication>
#include <QtCore/QFile>
#include <QtCore/QHash>
#include <QtCore/QSocketNotifier>

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstdlib>
#include <functional>

using namespace tarn;
using namespace tarn::vkcore;

namespace {

const fuzz::ScratchFolder& folder()
{
    static const fuzz::ScratchFolder sFolder;
    return sFolder;
}

// Says the same to every client, and hangs up.
class Service
{
public:
    Service() : mFd(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0))
    {
        sockaddr_un tAddress = {};
        tAddress.sun_family = AF_UNIX;
        const QByteArray tPath = QFile::encodeName(folder().path(QStringLiteral("socket")));
        std::copy(tPath.begin(), tPath.end(), tAddress.sun_path);
        if (::bind(mFd, reinterpret_cast<const sockaddr*>(&tAddress), sizeof tAddress) != 0 ||
            ::listen(mFd, 10) != 0) {
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
        // A close would take back what the client has not read yet, since the service has not read its
        // requests.
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

void getServerList(IPCClient& pClient)
{
    GRef<ServerList> tList(new ServerList(nullptr));
    pClient.getServerList(tList.get());
    pClient.removeServer(0);
}

void getSchedule(IPCClient& pClient)
{
    Scheduler::AutoUpdateMode tMode{};
    Scheduler::PeriodUnit tUnit{};
    int tFlags = 0;
    int tCount = 0;
    QDateTime tNext;
    QString tExtra;
    pClient.getScheduleParameters(&tMode, &tFlags, &tNext, &tCount, &tUnit, &tExtra);
}

void getProgress(IPCClient& pClient)
{
    ServiceActivity tActivity{};
    bool tCancelable = false;
    QString tText;
    long long tNumbers[4] = {};
    int tPackages[3] = {};
    pClient.getServiceProgress(&tActivity, &tCancelable, &tText, &tNumbers[0], &tNumbers[1], &tNumbers[2],
                               &tNumbers[3], &tPackages[0], &tPackages[1], &tPackages[2]);
}

void getTexts(IPCClient& pClient)
{
    QString tTexts[3];
    pClient.getDefaultServer(&tTexts[0], &tTexts[1], &tTexts[2]);
}

void getLanguages(IPCClient& pClient)
{
    QString tTexts[2];
    pClient.getLanguages(&tTexts[0], &tTexts[1]);
}

void getProxy(IPCClient& pClient)
{
    NetProxyMode tMode{};
    NetProxy tProxy(false, false);
    pClient.getNetProxySettings(&tMode, &tProxy);
}

void getMonitoring(IPCClient& pClient)
{
    MonitoringSettings tSettings;
    pClient.getMonitoringSettings(&tSettings);
}

const QHash<QByteArray, Call>& calls()
{
    static const QHash<QByteArray, Call> sCalls{
        {"ping", [](IPCClient& pClient) { pClient.ping(); }},
        {"testConnect", [](IPCClient& pClient) { pClient.testConnect(1000); }},
        {"enterMonitorMode", [](IPCClient& pClient) { pClient.enterMonitorMode(); }},
        {"getServiceStatus", [](IPCClient& pClient) { pClient.getServiceStatus(nullptr); }},
        {"getLastServiceResult", [](IPCClient& pClient) { pClient.getLastServiceResult(false); }},
        {"getConfigValue", [](IPCClient& pClient) { pClient.getConfigValue(QStringLiteral("a"), {}); }},
        {"getServiceProgress", getProgress},
        {"getDefaultServer", getTexts},
        {"getLanguages", getLanguages},
        {"getNetProxySettings", getProxy},
        {"getScheduleParameters", getSchedule},
        {"getMonitoringSettings", getMonitoring},
        {"getServerList", getServerList},
    };
    return sCalls;
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
    const auto tCall = calls().constFind(tInput.left(tEnd));
    if (tEnd < 0 || tCall == calls().cend()) {
        return -1;
    }
    sService.mBytes = tInput.mid(tEnd + 1);
    IPCClient tClient(nullptr, nullptr);
    tClient.setServerName(folder().path(QStringLiteral("socket")));
    (*tCall)(tClient);
    QCoreApplication::processEvents(); // the events that came along
    return 0;
}

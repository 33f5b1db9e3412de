// What a peer sends to the service: the real service, its methods and its store, without its own event loop.
// Every line of an answer has to be a JSON object, and the service has to serve the next peer.
#include "support/ScratchFolder.h"

#include "internal/Protocol.h"
#include "ipc/MethodTable.h"
#include "ipc/SocketServer.h"
#include "process/ServiceApplication.h"
#include "Service.h"
#include "UnixSocket.h"

#include <vkcore/GRef.h>

#include <QtCore/QCoreApplication>
#include <QtCore/QJsonDocument>

#include <unistd.h>

#include <cstdlib>
#include <memory>

using namespace Qt::StringLiterals;

using namespace tarn;
using namespace tarn::vkservice;

namespace {

constexpr int sRunsOfAService = 250;
constexpr qint64 sLastId = 4611686018427387904;

// A service in a private folder, without the methods that would contact the made-up servers and mail servers.
class Rig
{
public:
    Rig() : mApp(new process::ServiceApplication(false)), mServer(mFiltered)
    {
        mApp->getConfig()->setValue(u"service.stateDir"_s, mFolder.path(u"state"_s),
                                    vkcore::Config::UserValue);
        mApp->getConfig()->setValue(u"service.install.dir"_s, mFolder.path(u"vk"_s),
                                    vkcore::Config::UserValue);
        mService = std::make_unique<Service>(*mApp, Service::Options{mFolder.path(u"own"_s), true});
        if (mService->start()) {
            std::abort();
        }
        const ipc::MethodTable& tAll = mService->methods();
        const QStringList tNames = tAll.names();
        for (const QString& tName : tNames) {
            mFiltered.add(tName, ipc::MethodTable::Kind::Query,
                          [&tAll, tName](ipc::Peer& pPeer, const QJsonObject& pParams) {
                              return reachesOut(tName, pParams) ? ipc::Reply::done()
                                                                : tAll.call(pPeer, tName, pParams);
                          });
        }
        if (mServer.listen(mFolder.path(u"socket"_s), {})) {
            std::abort();
        }
    }

    bool isEnding() const { return mService->lifetime().isEnding(); }

    int connect() const { return connectedSocket(mFolder.path(u"socket"_s)); }

private:
    static bool reachesOut(const QString& pMethod, const QJsonObject& pParams)
    {
        return pMethod == u"triggerUpdate"_s ||
               (pMethod == u"setConfigValue"_s && pParams.value(u"name"_s) == u"mail.url"_s);
    }

    fuzz::ScratchFolder mFolder;
    vkcore::GRef<process::ServiceApplication> mApp;
    std::unique_ptr<Service> mService;
    ipc::MethodTable mFiltered;
    ipc::SocketServer mServer;
};

// Sends pBytes as fast as the service reads. Returns what it answers up to pLast, or until it closes the
// connection.
QByteArray talk(int pFd, QByteArrayView pBytes, const QByteArray& pLast)
{
    QByteArray tAnswers;
    while (!tAnswers.endsWith(pLast)) {
        const ssize_t tSent =
            ::send(pFd, pBytes.data(), static_cast<size_t>(pBytes.size()), MSG_NOSIGNAL | MSG_DONTWAIT);
        pBytes = pBytes.sliced(std::max<ssize_t>(0, tSent));
        QCoreApplication::processEvents();
        char tBytes[64 * 1024];
        const ssize_t tCount = ::recv(pFd, tBytes, sizeof tBytes, MSG_DONTWAIT);
        if (tCount == 0 || (tCount < 0 && errno != EAGAIN)) {
            break;
        }
        tAnswers.append(tBytes, std::max<ssize_t>(0, tCount));
    }
    return tAnswers;
}

void check(const QByteArray& pAnswers)
{
    const QByteArrayList tLines = pAnswers.split('\n');
    for (qsizetype i = 0; i + 1 < tLines.size(); ++i) {
        if (tLines[i].size() > vkcore::protocol::sMaxLine || !QJsonDocument::fromJson(tLines[i]).isObject()) {
            std::abort();
        }
    }
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int* pArgc, char*** pArgv)
{
    new QCoreApplication(*pArgc, *pArgv);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* pData, size_t pSize)
{
    // A new service for each input would be too slow, and one for all would accumulate too much state.
    static std::unique_ptr<Rig> sRig;
    static int sRuns = 0;
    if (!sRig || sRig->isEnding() || ++sRuns % sRunsOfAService == 0) {
        sRig.reset();
        sRig = std::make_unique<Rig>();
    }
    const QByteArray tLast = vkcore::protocol::toLine(vkcore::protocol::request(sLastId, u"ping"_s, {}));
    const QByteArray tBytes =
        QByteArray(reinterpret_cast<const char*>(pData), static_cast<qsizetype>(pSize)) + '\n' + tLast;
    const int tFd = sRig->connect();
    check(talk(tFd, tBytes, vkcore::protocol::toLine(vkcore::protocol::result(sLastId, true))));
    ::close(tFd);
    QCoreApplication::processEvents();
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    return 0;
}

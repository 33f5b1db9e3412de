#include "control/Configuration.h"
#include "control/Events.h"
#include "control/Lifetime.h"
#include "internal/Methods.h"
#include "internal/Protocol.h"
#include "ipc/Peer.h"
#include "ipc/SocketServer.h"
#include "methods/Group.h"
#include "methods/Methods.h"
#include "process/Systemd.h"

#include <QtCore/QCoreApplication>
#include <QtCore/QPointer>

#include <unistd.h>

using namespace Qt::StringLiterals;

namespace tarn::vkservice::methods {

using namespace vkcore::protocol;
using namespace ipc;

namespace {

constexpr qsizetype sMaxClientName = 100;

Reply hello(const SessionParts& pParts, Peer& pPeer, const Hello& pHello)
{
    if (pHello.mProtocol != sVersion) {
        return Reply::refused(u"This service speaks version %1 of the protocol."_s.arg(sVersion));
    }
    pPeer.setClientName(pHello.mClient.left(sMaxClientName));
    return Reply::result(toJson(Greeting{.mProtocol = sVersion,
                                         .mService = u"vkservice"_s,
                                         .mVersion = QCoreApplication::applicationVersion(),
                                         .mPid = QCoreApplication::applicationPid(),
                                         .mWorker = pParts.mLifetime.isWorker()}));
}

Reply ping(const SessionParts&)
{
    return Reply::done();
}

Reply hasWizard(const SessionParts& pParts, Peer& pPeer)
{
    return Reply::result(pParts.mSockets.hasClient(u"wizard"_s, &pPeer));
}

// Errors from before the first monitor follow the answer.
Reply enterMonitorMode(const SessionParts& pParts, Peer& pPeer)
{
    pPeer.setMonitor();
    const QList<Message> tErrors = pParts.mEvents.takeKeptErrors();
    const QPointer<Peer> tPeer(&pPeer);
    for (const Message& tError : tErrors) {
        const QByteArray tLine = toLine(event(method::sServiceErrorReceived, toJson(tError)));
        QMetaObject::invokeMethod(
            &pPeer, [tPeer, tLine] { tPeer->sendEvent(tLine); }, Qt::QueuedConnection);
    }
    return Reply::done();
}

// Clients may not end the machine's own service, because it runs the schedule. A worker belongs to the
// process that started it; other processes only found it.
Reply quit(const SessionParts& pParts, Peer& pPeer)
{
    const pid_t tPeer = pPeer.credentials().mPid;
    if (pParts.mLifetime.isWorker()) {
        if (tPeer != ::getppid()) {
            return Reply::refused(u"This worker belongs to another process, and ends with it."_s);
        }
        QMetaObject::invokeMethod(
            &pParts.mLifetime, [&tLifetime = pParts.mLifetime, tPeer] { tLifetime.leave(tPeer); },
            Qt::QueuedConnection);
        return Reply::done();
    }
    if (process::SystemdNotifier::isListening()) {
        return Reply::refused(u"This service is managed by systemd: use systemctl stop vkservice."_s);
    }
    QMetaObject::invokeMethod(&pParts.mLifetime, &control::Lifetime::quit, Qt::QueuedConnection);
    return Reply::done();
}

Reply reload(const SessionParts& pParts)
{
    return Reply::of(pParts.mConfiguration.reload());
}

} // namespace

void addSessionMethods(MethodTable& pTable, const SessionParts& pParts)
{
    const Group tGroup(pTable, pParts);
    tGroup.add(method::sHello, MethodTable::Kind::Query, &hello);
    tGroup.add(method::sPing, &ping);
    tGroup.add(method::sIsVKClientActive, &hasWizard);
    tGroup.add(method::sEnterMonitorMode, &enterMonitorMode);
    tGroup.add(method::sQuitService, &quit);
    tGroup.add(method::sReloadConfig, &reload);
}

} // namespace tarn::vkservice::methods

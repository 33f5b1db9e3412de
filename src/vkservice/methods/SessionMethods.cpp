#include "control/Configuration.h"
#include "control/Events.h"
#include "control/Lifetime.h"
#include "internal/Protocol.h"
#include "ipc/Connection.h"
#include "ipc/Params.h"
#include "ipc/SocketServer.h"
#include "methods/Methods.h"
#include "process/SystemdNotifier.h"

#include <QtCore/QCoreApplication>
#include <QtCore/QPointer>

#include <unistd.h>

using namespace Qt::StringLiterals;

namespace tarn::vkservice::methods {

using namespace vkcore;
using namespace ipc;

namespace {

constexpr qsizetype sMaxClientName = 100;

Reply hello(const SessionParts& pParts, Connection& pPeer, const QJsonObject& pParams)
{
    Params tParams(pParams);
    const int tProtocol = tParams.get<int>("protocol");
    const QString tClient = tParams.get<QString>("client");
    tParams.get<QString>("version");
    if (!tParams.ok()) {
        return tParams.invalid();
    }
    if (tProtocol != protocol::sVersion) {
        return Reply::refused(u"This service speaks version %1 of the protocol."_s.arg(protocol::sVersion));
    }
    pPeer.setClientName(tClient.left(sMaxClientName));
    return Reply::result(QJsonObject{
        {u"protocol"_s, protocol::sVersion},
        {u"service"_s, u"vkservice"_s},
        {u"version"_s, QCoreApplication::applicationVersion()},
        {u"pid"_s, QCoreApplication::applicationPid()},
        {u"worker"_s, pParts.mLifetime.isWorker()},
    });
}

// Errors that came before anybody listened follow the answer.
Reply enterMonitorMode(const SessionParts& pParts, Connection& pPeer)
{
    pPeer.setMonitor();
    const QList<QJsonObject> tHeld = pParts.mEvents.takeKeptErrors();
    const QPointer<Connection> tPeer(&pPeer);
    for (const QJsonObject& tError : tHeld) {
        const QByteArray tLine = protocol::toLine(protocol::event(u"serviceErrorReceived"_s, tError));
        QMetaObject::invokeMethod(
            &pPeer, [tPeer, tLine] { tPeer->sendEvent(tLine); }, Qt::QueuedConnection);
    }
    return Reply::done();
}

// The machine's own service has a schedule to keep, so it is not for a client to end it. A worker belongs to
// the process that started it; others have only found it.
Reply quit(const SessionParts& pParts, const Connection& pPeer)
{
    const pid_t tPeer = pPeer.peer().mPid;
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
        return Reply::refused(u"systemd runs this service, and ends it: systemctl stop vkservice."_s);
    }
    QMetaObject::invokeMethod(&pParts.mLifetime, &control::Lifetime::quit, Qt::QueuedConnection);
    return Reply::done();
}

} // namespace

void addSessionMethods(MethodTable& pTable, const SessionParts& pParts)
{
    using Kind = MethodTable::Kind;
    pTable.add(u"hello"_s, Kind::Query, [pParts](Connection& pPeer, const QJsonObject& pParams) {
        return hello(pParts, pPeer, pParams);
    });
    pTable.add(u"ping"_s, Kind::Query, [](Connection&, const QJsonObject&) { return Reply::done(); });
    pTable.add(u"isVKClientActive"_s, Kind::Query, [pParts](Connection& pPeer, const QJsonObject&) {
        return Reply::result(pParts.mSockets.hasClient(u"wizard"_s, &pPeer));
    });
    pTable.add(u"enterMonitorMode"_s, Kind::Query,
               [pParts](Connection& pPeer, const QJsonObject&) { return enterMonitorMode(pParts, pPeer); });
    pTable.add(u"quitService"_s, Kind::Query,
               [pParts](Connection& pPeer, const QJsonObject&) { return quit(pParts, pPeer); });
    pTable.add(u"reloadConfig"_s, Kind::Query, [pParts](Connection&, const QJsonObject&) {
        QString tReason;
        const bool tDone = pParts.mConfiguration.reload(&tReason);
        return Reply::of(tDone, tReason);
    });
}

} // namespace tarn::vkservice::methods

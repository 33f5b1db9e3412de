#include "internal/Protocol.h"
#include "ipc/Connection.h"
#include "ipc/Params.h"
#include "methods/Methods.h"
#include "process/SystemdNotifier.h"
#include "Service.h"

#include <QtCore/QCoreApplication>
#include <QtCore/QPointer>

#include <unistd.h>

using namespace Qt::StringLiterals;

namespace tarn::vkservice::methods {

using namespace vkcore;
using namespace ipc;

namespace {

constexpr qsizetype sMaxClientName = 100;

Reply hello(Service& pService, Connection& pPeer, const QJsonObject& pParams)
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
        {u"worker"_s, pService.isWorker()},
    });
}

// Errors that came before anybody listened follow the answer.
Reply enterMonitorMode(Service& pService, Connection& pPeer)
{
    pPeer.setMonitor();
    const QList<QJsonObject> tHeld = pService.takeHeldErrors();
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
Reply quit(Service& pService, const Connection& pPeer)
{
    const pid_t tPeer = pPeer.peer().mPid;
    if (pService.isWorker()) {
        if (tPeer != ::getppid()) {
            return Reply::refused(u"This worker belongs to another process, and ends with it."_s);
        }
        QMetaObject::invokeMethod(
            &pService, [&pService, tPeer] { pService.leave(tPeer); }, Qt::QueuedConnection);
        return Reply::done();
    }
    if (process::SystemdNotifier::isListening()) {
        return Reply::refused(u"systemd runs this service, and ends it: systemctl stop vkservice."_s);
    }
    QMetaObject::invokeMethod(&pService, &Service::quit, Qt::QueuedConnection);
    return Reply::done();
}

} // namespace

void addSessionMethods(MethodTable& pTable, Service& pService)
{
    using Kind = MethodTable::Kind;
    pTable.add(u"hello"_s, Kind::Query, [&](Connection& pPeer, const QJsonObject& pParams) {
        return hello(pService, pPeer, pParams);
    });
    pTable.add(u"ping"_s, Kind::Query, [](Connection&, const QJsonObject&) { return Reply::done(); });
    pTable.add(u"isVKClientActive"_s, Kind::Query, [&](Connection& pPeer, const QJsonObject&) {
        return Reply::result(pService.sockets().hasClient(u"wizard"_s, &pPeer));
    });
    pTable.add(u"enterMonitorMode"_s, Kind::Query,
               [&](Connection& pPeer, const QJsonObject&) { return enterMonitorMode(pService, pPeer); });
    pTable.add(u"quitService"_s, Kind::Query,
               [&](Connection& pPeer, const QJsonObject&) { return quit(pService, pPeer); });
    pTable.add(u"reloadConfig"_s, Kind::Query, [&](Connection&, const QJsonObject&) {
        QString tReason;
        const bool tDone = pService.reload(&tReason);
        return Reply::of(tDone, tReason);
    });
}

} // namespace tarn::vkservice::methods

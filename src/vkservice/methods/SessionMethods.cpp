#include "internal/Protocol.h"
#include "ipc/Connection.h"
#include "ipc/Params.h"
#include "methods/Methods.h"
#include "process/SystemdNotifier.h"
#include "Service.h"

#include <QtCore/QCoreApplication>
#include <QtCore/QPointer>

#include <unistd.h>

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
        return Reply::refused(
            QStringLiteral("This service speaks version %1 of the protocol.").arg(protocol::sVersion));
    }
    pPeer.setClientName(tClient.left(sMaxClientName));
    return Reply::result(QJsonObject{
        {QStringLiteral("protocol"), protocol::sVersion},
        {QStringLiteral("service"), QStringLiteral("vkservice")},
        {QStringLiteral("version"), QCoreApplication::applicationVersion()},
        {QStringLiteral("pid"), QCoreApplication::applicationPid()},
        {QStringLiteral("worker"), pService.isWorker()},
    });
}

// Errors that came before anybody listened follow the answer.
Reply enterMonitorMode(Service& pService, Connection& pPeer)
{
    pPeer.setMonitor();
    const QList<QJsonObject> tHeld = pService.takeHeldErrors();
    const QPointer<Connection> tPeer(&pPeer);
    for (const QJsonObject& tError : tHeld) {
        const QByteArray tLine =
            protocol::toLine(protocol::event(QStringLiteral("serviceErrorReceived"), tError));
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
            return Reply::refused(
                QStringLiteral("This worker belongs to another process, and ends with it."));
        }
        QMetaObject::invokeMethod(
            &pService, [&pService, tPeer] { pService.leave(tPeer); }, Qt::QueuedConnection);
        return Reply::done();
    }
    if (process::SystemdNotifier::isListening()) {
        return Reply::refused(
            QStringLiteral("systemd runs this service, and ends it: systemctl stop vkservice."));
    }
    QMetaObject::invokeMethod(&pService, &Service::quit, Qt::QueuedConnection);
    return Reply::done();
}

} // namespace

void addSessionMethods(MethodTable& pTable, Service& pService)
{
    using Kind = MethodTable::Kind;
    pTable.add(QStringLiteral("hello"), Kind::Query, [&](Connection& pPeer, const QJsonObject& pParams) {
        return hello(pService, pPeer, pParams);
    });
    pTable.add(QStringLiteral("ping"), Kind::Query,
               [](Connection&, const QJsonObject&) { return Reply::done(); });
    pTable.add(QStringLiteral("isVKClientActive"), Kind::Query, [&](Connection& pPeer, const QJsonObject&) {
        return Reply::result(pService.sockets().hasClient(QStringLiteral("wizard"), &pPeer));
    });
    pTable.add(QStringLiteral("enterMonitorMode"), Kind::Query,
               [&](Connection& pPeer, const QJsonObject&) { return enterMonitorMode(pService, pPeer); });
    pTable.add(QStringLiteral("quitService"), Kind::Query,
               [&](Connection& pPeer, const QJsonObject&) { return quit(pService, pPeer); });
    pTable.add(QStringLiteral("reloadConfig"), Kind::Query, [&](Connection&, const QJsonObject&) {
        QString tReason;
        const bool tDone = pService.reload(&tReason);
        return Reply::of(tDone, tReason);
    });
}

} // namespace tarn::vkservice::methods

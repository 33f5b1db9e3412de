#include "internal/Protocol.h"
#include "ipc/Params.h"
#include "methods/Methods.h"
#include "Service.h"

#include <vkcore/Server.h>

#include <QtCore/QJsonArray>

namespace tarn::vkservice::methods {

using namespace vkcore;
using namespace ipc;
using store::ServerEntry;
using store::ServerTable;

namespace {

QString present(const QString& pText)
{
    return pText.isNull() ? QString(QLatin1String("")) : pText;
}

Reply answer(Service& pService, ServerTable::Outcome pOutcome)
{
    switch (pOutcome) {
    case ServerTable::Outcome::Done:
        return Reply::done();
    case ServerTable::Outcome::Stale:
        return Reply::result(false);
    case ServerTable::Outcome::NoEntry:
        return Reply::refused(QStringLiteral("The server list has no entry at this position."));
    case ServerTable::Outcome::Invalid:
        return Reply::refused(pService.servers().reason());
    case ServerTable::Outcome::Failed:
        break;
    }
    return pService.storeFailure(QStringLiteral("The server list"));
}

Reply getDefaultServer(Service& pService, const QJsonObject& pParams)
{
    Params tParams(pParams);
    const bool tWithPassword = tParams.get<bool>("withPassword");
    if (!tParams.ok()) {
        return tParams.invalid();
    }
    const auto tEntry = pService.servers().defaultEntry();
    if (!tEntry) {
        return pService.storeFailure(QStringLiteral("The default server"));
    }
    return Reply::result(QJsonObject{
        {QStringLiteral("uri"), present(tEntry->mUri)},
        {QStringLiteral("user"), present(tEntry->mUser)},
        {QStringLiteral("password"), tWithPassword ? protocol::toJson(tEntry->mPassword) : QJsonValue()},
    });
}

Reply updateDefaultServer(Service& pService, const QJsonObject& pParams)
{
    Params tParams(pParams);
    const QString tUri = tParams.get<QString>("uri");
    const QString tUser = tParams.get<QString>("user");
    const QString tPassword = tParams.get<QString>("password");
    return tParams.ok() ? answer(pService, pService.servers().setDefault(tUri, tUser, tPassword))
                        : tParams.invalid();
}

QJsonObject toJson(const ServerEntry& pEntry)
{
    GRef<Server> tServer(new Server(nullptr));
    tServer->setName(pEntry.mName);
    tServer->setUri(pEntry.mUri);
    tServer->setUserName(pEntry.mUser);
    tServer->setEnabled(pEntry.mEnabled);
    tServer->setDefault(pEntry.mDefault);
    tServer->setSavePassword(pEntry.mSavePassword);
    return protocol::toJson(*tServer);
}

Reply getServerList(Service& pService)
{
    const auto tEntries = pService.servers().entries();
    const auto tRevision = pService.servers().revision();
    if (!tEntries || !tRevision) {
        return pService.storeFailure(QStringLiteral("The server list"));
    }
    QJsonArray tServers;
    for (const ServerEntry& tEntry : *tEntries) {
        tServers.append(toJson(tEntry));
    }
    return Reply::result(
        QJsonObject{{QStringLiteral("revision"), *tRevision}, {QStringLiteral("servers"), tServers}});
}

std::optional<qint64> revisionOf(Params& pParams, const QJsonObject& pObject)
{
    if (!pObject.contains(QLatin1String("revision"))) {
        return std::nullopt;
    }
    return pParams.get<long long>("revision");
}

Reply addServer(Service& pService, const QJsonObject& pParams)
{
    Params tParams(pParams);
    GRef<Server> tServer(new Server(nullptr));
    tParams.object("server", tServer.get());
    return tParams.ok() ? answer(pService, pService.servers().add(*tServer)) : tParams.invalid();
}

Reply changeServer(Service& pService, const QJsonObject& pParams)
{
    Params tParams(pParams);
    const int tIndex = tParams.get<int>("index");
    GRef<Server> tServer(new Server(nullptr));
    tParams.object("server", tServer.get());
    const auto tRevision = revisionOf(tParams, pParams);
    return tParams.ok() ? answer(pService, pService.servers().change(tIndex, *tServer, tRevision))
                        : tParams.invalid();
}

Reply removeServer(Service& pService, const QJsonObject& pParams)
{
    Params tParams(pParams);
    const int tIndex = tParams.get<int>("index");
    const auto tRevision = revisionOf(tParams, pParams);
    return tParams.ok() ? answer(pService, pService.servers().remove(tIndex, tRevision)) : tParams.invalid();
}

} // namespace

void addServerMethods(MethodTable& pTable, Service& pService)
{
    using Kind = MethodTable::Kind;
    const auto tAdd = [&](const char* pName, Kind pKind, Reply (*pHandler)(Service&, const QJsonObject&)) {
        pTable.add(QLatin1String(pName), pKind,
                   [&pService, pHandler](Connection&, const QJsonObject& pParams) {
                       return pHandler(pService, pParams);
                   });
    };
    tAdd("getDefaultServer", Kind::Query, &getDefaultServer);
    tAdd("updateDefaultServer", Kind::Change, &updateDefaultServer);
    pTable.add(QStringLiteral("getServerList"), Kind::Query,
               [&](Connection&, const QJsonObject&) { return getServerList(pService); });
    tAdd("addServer", Kind::Change, &addServer);
    tAdd("changeServer", Kind::Change, &changeServer);
    tAdd("removeServer", Kind::Change, &removeServer);
}

} // namespace tarn::vkservice::methods

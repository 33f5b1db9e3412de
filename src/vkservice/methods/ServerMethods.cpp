#include "internal/Protocol.h"
#include "ipc/Params.h"
#include "methods/Methods.h"
#include "store/ServerTable.h"

#include <vkcore/Server.h>

#include <QtCore/QJsonArray>

using namespace Qt::StringLiterals;

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

Reply answer(const ServerParts& pParts, ServerTable::Outcome pOutcome)
{
    switch (pOutcome) {
    case ServerTable::Outcome::Done:
        return Reply::done();
    case ServerTable::Outcome::Stale:
        return Reply::result(false);
    case ServerTable::Outcome::NoEntry:
        return Reply::refused(u"The server list has no entry at this position."_s);
    case ServerTable::Outcome::Invalid:
        return Reply::refused(pParts.mServers.reason());
    case ServerTable::Outcome::Failed:
        break;
    }
    return storeFailure(pParts.mStore, u"The server list"_s);
}

Reply getDefaultServer(const ServerParts& pParts, const QJsonObject& pParams)
{
    Params tParams(pParams);
    const bool tWithPassword = tParams.get<bool>("withPassword");
    if (!tParams.ok()) {
        return tParams.invalid();
    }
    const auto tEntry = pParts.mServers.defaultEntry();
    if (!tEntry) {
        return storeFailure(pParts.mStore, u"The default server"_s);
    }
    return Reply::result(QJsonObject{
        {u"uri"_s, present(tEntry->mUri)},
        {u"user"_s, present(tEntry->mUser)},
        {u"password"_s, tWithPassword ? protocol::toJson(tEntry->mPassword) : QJsonValue()},
    });
}

Reply updateDefaultServer(const ServerParts& pParts, const QJsonObject& pParams)
{
    Params tParams(pParams);
    const QString tUri = tParams.get<QString>("uri");
    const QString tUser = tParams.get<QString>("user");
    const QString tPassword = tParams.get<QString>("password");
    return tParams.ok() ? answer(pParts, pParts.mServers.setDefault(tUri, tUser, tPassword))
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

Reply getServerList(const ServerParts& pParts)
{
    const auto tEntries = pParts.mServers.entries();
    const auto tRevision = pParts.mServers.revision();
    if (!tEntries || !tRevision) {
        return storeFailure(pParts.mStore, u"The server list"_s);
    }
    QJsonArray tServers;
    for (const ServerEntry& tEntry : *tEntries) {
        tServers.append(toJson(tEntry));
    }
    return Reply::result(QJsonObject{{u"revision"_s, *tRevision}, {u"servers"_s, tServers}});
}

std::optional<qint64> revisionOf(Params& pParams, const QJsonObject& pObject)
{
    if (!pObject.contains("revision"_L1)) {
        return std::nullopt;
    }
    return pParams.get<long long>("revision");
}

Reply addServer(const ServerParts& pParts, const QJsonObject& pParams)
{
    Params tParams(pParams);
    GRef<Server> tServer(new Server(nullptr));
    tParams.object("server", tServer.get());
    return tParams.ok() ? answer(pParts, pParts.mServers.add(*tServer)) : tParams.invalid();
}

Reply changeServer(const ServerParts& pParts, const QJsonObject& pParams)
{
    Params tParams(pParams);
    const int tIndex = tParams.get<int>("index");
    GRef<Server> tServer(new Server(nullptr));
    tParams.object("server", tServer.get());
    const auto tRevision = revisionOf(tParams, pParams);
    return tParams.ok() ? answer(pParts, pParts.mServers.change(tIndex, *tServer, tRevision))
                        : tParams.invalid();
}

Reply removeServer(const ServerParts& pParts, const QJsonObject& pParams)
{
    Params tParams(pParams);
    const int tIndex = tParams.get<int>("index");
    const auto tRevision = revisionOf(tParams, pParams);
    return tParams.ok() ? answer(pParts, pParts.mServers.remove(tIndex, tRevision)) : tParams.invalid();
}

} // namespace

void addServerMethods(MethodTable& pTable, const ServerParts& pParts)
{
    using Kind = MethodTable::Kind;
    const auto tAdd = [&](const char* pName, Kind pKind,
                          Reply (*pHandler)(const ServerParts&, const QJsonObject&)) {
        pTable.add(QLatin1String(pName), pKind, [pParts, pHandler](Connection&, const QJsonObject& pParams) {
            return pHandler(pParts, pParams);
        });
    };
    tAdd("getDefaultServer", Kind::Query, &getDefaultServer);
    tAdd("updateDefaultServer", Kind::Change, &updateDefaultServer);
    pTable.add(u"getServerList"_s, Kind::Query,
               [pParts](Connection&, const QJsonObject&) { return getServerList(pParts); });
    tAdd("addServer", Kind::Change, &addServer);
    tAdd("changeServer", Kind::Change, &changeServer);
    tAdd("removeServer", Kind::Change, &removeServer);
}

} // namespace tarn::vkservice::methods

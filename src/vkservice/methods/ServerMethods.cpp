#include "internal/Methods.h"
#include "internal/PlainText.h"
#include "methods/Group.h"
#include "methods/Methods.h"
#include "store/ServerTable.h"

using namespace Qt::StringLiterals;

namespace tarn::vkservice::methods {

using namespace vkcore;
using namespace vkcore::protocol;
using ipc::MethodTable;
using ipc::Reply;
using store::ServerTable;

namespace {

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

Reply getDefaultServer(const ServerParts& pParts, const WithPassword& pQuery)
{
    const auto tEntry = pParts.mServers.defaultEntry();
    if (!tEntry) {
        return storeFailure(pParts.mStore, u"The default server"_s);
    }
    const bool tTold = pQuery.mWithPassword && tEntry->mPassword;
    return Reply::result(toJson(DefaultServer{.mUri = present(tEntry->mUri),
                                              .mUser = present(tEntry->mUser),
                                              .mPassword = tTold ? *tEntry->mPassword : QString()}));
}

Reply updateDefaultServer(const ServerParts& pParts, const DefaultServer& pServer)
{
    return answer(pParts, pParts.mServers.setDefault(pServer.mUri, pServer.mUser, pServer.mPassword));
}

Reply getServerList(const ServerParts& pParts)
{
    auto tEntries = pParts.mServers.entries();
    const auto tRevision = pParts.mServers.revision();
    if (!tEntries || !tRevision) {
        return storeFailure(pParts.mStore, u"The server list"_s);
    }
    for (ServerEntry& tEntry : *tEntries) {
        tEntry.mPassword.reset();
    }
    return Reply::result(toJson(ServerEntries{.mRevision = *tRevision, .mServers = *tEntries}));
}

Reply addServer(const ServerParts& pParts, const NewServer& pNew)
{
    return answer(pParts, pParts.mServers.add(pNew.mServer));
}

// Calls pChange with the revision that the client knows. For clients a revision is opaque; this service uses
// whole numbers.
template <typename F>
Reply withRevision(const ServerParts& pParts, const ServerPosition& pPosition, F pChange)
{
    QString tFault;
    std::optional<qint64> tRevision;
    JsonReader tReader(toJson(pPosition), &tFault);
    read(tReader, "revision", &tRevision);
    return tReader.ok() ? answer(pParts, pChange(tRevision)) : Reply::invalidParams(tFault);
}

Reply changeServer(const ServerParts& pParts, const ServerChange& pChange)
{
    return withRevision(pParts, pChange, [&](std::optional<qint64> pRevision) {
        return pParts.mServers.change(pChange.mIndex, pChange.mServer, pRevision);
    });
}

Reply removeServer(const ServerParts& pParts, const ServerPosition& pPosition)
{
    return withRevision(pParts, pPosition, [&](std::optional<qint64> pRevision) {
        return pParts.mServers.remove(pPosition.mIndex, pRevision);
    });
}

} // namespace

void addServerMethods(MethodTable& pTable, const ServerParts& pParts)
{
    using Kind = MethodTable::Kind;
    const Group tGroup(pTable, pParts);
    tGroup.add(method::sGetDefaultServer, Kind::Query, &getDefaultServer);
    tGroup.add(method::sUpdateDefaultServer, Kind::Change, &updateDefaultServer);
    tGroup.add(method::sGetServerList, &getServerList);
    tGroup.add(method::sAddServer, Kind::Change, &addServer);
    tGroup.add(method::sChangeServer, Kind::Change, &changeServer);
    tGroup.add(method::sRemoveServer, Kind::Change, &removeServer);
}

} // namespace tarn::vkservice::methods

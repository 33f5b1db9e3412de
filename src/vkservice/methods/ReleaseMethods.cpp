#include "control/ReleaseControl.h"
#include "internal/Methods.h"
#include "internal/PlainText.h"
#include "ipc/SocketServer.h"
#include "methods/Group.h"
#include "methods/Methods.h"

using namespace Qt::StringLiterals;

namespace tarn::vkservice::methods {

using namespace vkcore::protocol;
using ipc::MethodTable;
using ipc::Peer;
using ipc::Reply;

namespace {

Reply outcome(const Failure& pFailure)
{
    return Reply::result(
        toJson(Outcome{!pFailure, pFailure ? vkcore::present(pFailure.mText + u'.') : u""_s}));
}

Reply generations(const ReleaseParts& pParts)
{
    const auto tGenerations = pParts.mReleases.generations();
    return tGenerations ? Reply::result(toJson(*tGenerations)) : Reply::of(tGenerations.failure());
}

Reply rollBack(const ReleaseParts& pParts, Peer& pPeer, const GenerationNumber& pTo)
{
    return pParts.mSockets.hasClient(u"wizard"_s, &pPeer)
               ? Reply::refused(u"Not while the wizard is active."_s)
               : outcome(pParts.mReleases.rollBack(pTo.mGeneration));
}

Reply refusals(const ReleaseParts& pParts)
{
    const auto tRefusals = pParts.mReleases.refusals();
    return tRefusals ? Reply::result(toJson(*tRefusals)) : Reply::of(tRefusals.failure());
}

Reply accept(const ReleaseParts& pParts, const PackageName& pName)
{
    return outcome(pParts.mReleases.accept(pName.mName));
}

} // namespace

void addReleaseMethods(MethodTable& pTable, const ReleaseParts& pParts)
{
    using Kind = MethodTable::Kind;
    const Group tGroup(pTable, pParts);
    tGroup.add(method::sGetGenerations, &generations);
    tGroup.add(method::sRollBack, Kind::Change, &rollBack);
    tGroup.add(method::sGetRefusals, &refusals);
    tGroup.add(method::sAcceptPackage, Kind::Change, &accept);
}

} // namespace tarn::vkservice::methods

#include "control/UpdateControl.h"
#include "internal/Methods.h"
#include "internal/PlainText.h"
#include "methods/Group.h"
#include "methods/Methods.h"

using namespace Qt::StringLiterals;

namespace tarn::vkservice::methods {

using namespace vkcore;
using namespace vkcore::protocol;
using ipc::MethodTable;
using ipc::Reply;

namespace {

Reply isActive(const UpdateParts& pParts)
{
    return Reply::result(pParts.mUpdates.isActive());
}

Reply status(const UpdateParts& pParts)
{
    return Reply::result(toJson(pParts.mUpdates.status()));
}

Reply progress(const UpdateParts& pParts)
{
    Progress tProgress = pParts.mUpdates.progress();
    tProgress.mText = present(tProgress.mText);
    return Reply::result(toJson(tProgress));
}

const RunRecord& record(const UpdateParts& pParts, const ResultOf& pRun)
{
    return pRun.mThisSession ? pParts.mUpdates.sessionRun() : pParts.mUpdates.lastRun();
}

Reply lastResult(const UpdateParts& pParts, const ResultOf& pRun)
{
    return Reply::result(record(pParts, pRun).mCode);
}

Reply lastResultText(const UpdateParts& pParts, const ResultOf& pRun)
{
    return Reply::result(pParts.mUpdates.resultText(record(pParts, pRun)));
}

Reply trigger(const UpdateParts& pParts, const Trigger& pTrigger)
{
    return Reply::of(pParts.mUpdates.trigger(pTrigger.mManual));
}

Reply abort(const UpdateParts& pParts)
{
    return Reply::of(pParts.mUpdates.abort(), u"No update is running."_s);
}

} // namespace

void addUpdateMethods(MethodTable& pTable, const UpdateParts& pParts)
{
    using Kind = MethodTable::Kind;
    const Group tGroup(pTable, pParts);
    tGroup.add(method::sIsServiceActive, &isActive);
    tGroup.add(method::sGetServiceStatus, &status);
    tGroup.add(method::sGetServiceProgress, &progress);
    tGroup.add(method::sGetLastServiceResult, Kind::Query, &lastResult);
    tGroup.add(method::sGetLastServiceResultStr, Kind::Query, &lastResultText);
    tGroup.add(method::sTriggerUpdate, Kind::Query, &trigger);
    tGroup.add(method::sAbortUpdate, &abort);
}

} // namespace tarn::vkservice::methods

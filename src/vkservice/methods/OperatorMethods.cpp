#include "control/OperatorView.h"
#include "internal/Methods.h"
#include "methods/Group.h"
#include "methods/Methods.h"

using namespace Qt::StringLiterals;

namespace tarn::vkservice::methods {

using namespace vkcore::protocol;
using ipc::MethodTable;
using ipc::Reply;

namespace {

constexpr int sDefaultRuns = 100;
constexpr int sMostRuns = 1000;

Reply overview(const OperatorParts& pParts)
{
    return Reply::result(toJson(pParts.mView.overview()));
}

Reply history(const OperatorParts& pParts, const HistoryQuery& pQuery)
{
    const int tRuns = pQuery.mRuns.value_or(sDefaultRuns);
    if (tRuns < 1 || tRuns > sMostRuns) {
        return Reply::invalidParams(u"runs is not a number from 1 to %1"_s.arg(sMostRuns));
    }
    const auto tHistory = pParts.mView.history(tRuns);
    return tHistory ? Reply::result(toJson(*tHistory)) : Reply::of(tHistory.failure());
}

} // namespace

void addOperatorMethods(MethodTable& pTable, const OperatorParts& pParts)
{
    const Group tGroup(pTable, pParts);
    tGroup.add(method::sGetOverview, &overview);
    tGroup.add(method::sGetHistory, MethodTable::Kind::Query, &history);
}

} // namespace tarn::vkservice::methods

#include "control/ScheduleControl.h"
#include "internal/Protocol.h"
#include "ipc/Params.h"
#include "methods/Methods.h"

using namespace Qt::StringLiterals;

namespace tarn::vkservice::methods {

using namespace vkcore;
using namespace ipc;

namespace {

constexpr qsizetype sMaxExtra = 64 * 1024;

Reply getSchedule(const ScheduleParts& pParts)
{
    const ScheduleSettings& tSchedule = pParts.mSchedule.settings();
    return Reply::result(QJsonObject{
        {u"mode"_s, static_cast<int>(tSchedule.mMode)},
        {u"flags"_s, tSchedule.mFlags},
        {u"nextCheck"_s, protocol::toJson(tSchedule.mNextCheck)},
        {u"periodCount"_s, tSchedule.mPeriodCount},
        {u"unit"_s, static_cast<int>(tSchedule.mUnit)},
        {u"extra"_s, protocol::toJson(tSchedule.mExtra)},
    });
}

Reply setSchedule(const ScheduleParts& pParts, const QJsonObject& pParams)
{
    Params tParams(pParams);
    ScheduleSettings tWanted;
    tWanted.mMode = tParams.enumerator("mode", Scheduler::AutoUpdateAutomatic);
    tWanted.mFlags = tParams.get<int>("flags");
    tWanted.mNextCheck = tParams.get<QDateTime>("nextCheck");
    tWanted.mPeriodCount = tParams.get<int>("periodCount");
    tWanted.mUnit = tParams.enumerator("unit", Scheduler::PeriodMonth);
    tWanted.mExtra = tParams.get<QString>("extra");
    const bool tSave = tParams.get<bool>("save");
    if (!tParams.ok()) {
        return tParams.invalid();
    }
    if (tWanted.mPeriodCount < 0) {
        return Reply::refused(u"A period can't be negative."_s);
    }
    if (tWanted.mExtra.size() > sMaxExtra) {
        return Reply::refused(u"The extra text of the schedule is too long."_s);
    }
    return pParts.mSchedule.change(tWanted, tSave) ? Reply::done()
                                                   : storeFailure(pParts.mStore, u"The schedule"_s);
}

} // namespace

void addScheduleMethods(MethodTable& pTable, const ScheduleParts& pParts)
{
    using Kind = MethodTable::Kind;
    pTable.add(u"getScheduleParameters"_s, Kind::Query,
               [pParts](Connection&, const QJsonObject&) { return getSchedule(pParts); });
    pTable.add(u"setScheduleParameters"_s, Kind::Change,
               [pParts](Connection&, const QJsonObject& pParams) { return setSchedule(pParts, pParams); });
}

} // namespace tarn::vkservice::methods

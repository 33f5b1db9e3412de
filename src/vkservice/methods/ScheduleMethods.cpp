#include "internal/Protocol.h"
#include "ipc/Params.h"
#include "methods/Methods.h"
#include "Service.h"

namespace tarn::vkservice::methods {

using namespace vkcore;
using namespace ipc;

namespace {

constexpr qsizetype sMaxExtra = 64 * 1024;

Reply getSchedule(Service& pService)
{
    const ScheduleSettings& tSchedule = pService.schedule().settings();
    return Reply::result(QJsonObject{
        {QStringLiteral("mode"), static_cast<int>(tSchedule.mMode)},
        {QStringLiteral("flags"), tSchedule.mFlags},
        {QStringLiteral("nextCheck"), protocol::toJson(tSchedule.mNextCheck)},
        {QStringLiteral("periodCount"), tSchedule.mPeriodCount},
        {QStringLiteral("unit"), static_cast<int>(tSchedule.mUnit)},
        {QStringLiteral("extra"), protocol::toJson(tSchedule.mExtra)},
    });
}

Reply setSchedule(Service& pService, const QJsonObject& pParams)
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
        return Reply::refused(QStringLiteral("A period can't be negative."));
    }
    if (tWanted.mExtra.size() > sMaxExtra) {
        return Reply::refused(QStringLiteral("The extra text of the schedule is too long."));
    }
    return pService.changeSchedule(tWanted, tSave) ? Reply::done()
                                                   : pService.storeFailure(QStringLiteral("The schedule"));
}

} // namespace

void addScheduleMethods(MethodTable& pTable, Service& pService)
{
    using Kind = MethodTable::Kind;
    pTable.add(QStringLiteral("getScheduleParameters"), Kind::Query,
               [&](Connection&, const QJsonObject&) { return getSchedule(pService); });
    pTable.add(QStringLiteral("setScheduleParameters"), Kind::Change,
               [&](Connection&, const QJsonObject& pParams) { return setSchedule(pService, pParams); });
}

} // namespace tarn::vkservice::methods

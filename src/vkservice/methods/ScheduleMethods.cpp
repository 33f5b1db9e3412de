#include "control/ScheduleControl.h"
#include "internal/Methods.h"
#include "methods/Group.h"
#include "methods/Methods.h"

using namespace Qt::StringLiterals;

namespace tarn::vkservice::methods {

using namespace vkcore;
using namespace vkcore::protocol;
using ipc::MethodTable;
using ipc::Reply;

namespace {

constexpr qsizetype sMaxExtra = 64 * 1024;

Reply getSchedule(const ScheduleParts& pParts)
{
    return Reply::result(toJson<Schedule>(pParts.mSchedule.settings()));
}

Reply setSchedule(const ScheduleParts& pParts, const ScheduleChange& pWanted)
{
    if (!isKnown(pWanted.mMode, Scheduler::AutoUpdateAutomatic) ||
        !isKnown(pWanted.mUnit, Scheduler::PeriodMonth)) {
        return Reply::invalidParams(u"mode or unit is not a known one"_s);
    }
    if (pWanted.mPeriodCount < 0) {
        return Reply::refused(u"A period can't be negative."_s);
    }
    if (pWanted.mExtra.size() > sMaxExtra) {
        return Reply::refused(u"The extra text of the schedule is too long."_s);
    }
    return pParts.mSchedule.change(ScheduleSettings{pWanted}, pWanted.mSave)
               ? Reply::done()
               : storeFailure(pParts.mStore, u"The schedule"_s);
}

} // namespace

void addScheduleMethods(MethodTable& pTable, const ScheduleParts& pParts)
{
    const Group tGroup(pTable, pParts);
    tGroup.add(method::sGetScheduleParameters, &getSchedule);
    tGroup.add(method::sSetScheduleParameters, MethodTable::Kind::Change, &setSchedule);
}

} // namespace tarn::vkservice::methods

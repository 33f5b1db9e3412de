#pragma once

#include "values/ScheduleSettings.h"

#include <QtCore/QByteArray>
#include <QtCore/QDateTime>

namespace tarn::vkservice::schedule {

inline constexpr int sLeadSeconds = 600; // a date that had to be made up lies at least this far ahead

// Does the schedule come round by its date? Not by hand, and not at logins.
bool runsByDate(const ScheduleSettings& pSchedule);

// What pWanted becomes when it replaces pOld: its next check lies ahead, and fits to its period. The anchor
// of pWanted does not count.
// - A date that was named anew is kept if it lies ahead, else moved on by whole periods.
// - A new period counts from the last date of the old one, so the time of day stays; but a date that was
// named
//   and is still to come is kept.
// - A schedule that runs by date and has none begins soon.
ScheduleSettings afterChange(const ScheduleSettings& pOld, const ScheduleSettings& pWanted,
                             const QDateTime& pNow);

// Moved on by whole periods to the first date ahead, however many were missed.
ScheduleSettings afterCheck(const ScheduleSettings& pSchedule, const QDateTime& pNow);

// A clock that ran ahead and was set right has left the next check further away than a period can be. The
// check comes back then, unless somebody named its date.
ScheduleSettings afterClockChange(const ScheduleSettings& pSchedule, const QDateTime& pNow);

// 0 to pJitterSeconds, the same for the same machine and date, and evenly spread over machines.
int jitterOffset(const QDateTime& pNextCheck, int pJitterSeconds, const QByteArray& pMachine);

} // namespace tarn::vkservice::schedule

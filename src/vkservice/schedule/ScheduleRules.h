#pragma once

#include "values/ScheduleSettings.h"

#include <QtCore/QByteArray>
#include <QtCore/QDateTime>

namespace tarn::vkservice::schedule {

inline constexpr int sLeadSeconds = 600; // a generated date is at least this far ahead

// True if the schedule starts checks by date: not by hand, and not at logins.
bool runsByDate(const ScheduleSettings& pSchedule);

// The schedule that replaces pOld: pWanted, with its next check in the future and matching its period.
// Ignores the anchor of pWanted.
// - A newly set date is kept if it is in the future, else advanced by whole periods.
// - A new period counts from the last date of the old one, which keeps the time of day; but a date that was
// set
//   and is still in the future is kept.
// - A schedule that runs by date and has none starts soon.
ScheduleSettings afterChange(const ScheduleSettings& pOld, const ScheduleSettings& pWanted,
                             const QDateTime& pNow);

// Advanced by whole periods to the first date in the future, however many were missed.
ScheduleSettings afterCheck(const ScheduleSettings& pSchedule, const QDateTime& pNow);

// If the clock was ahead and has been corrected, the next check may be further away than a period. Then this
// moves it back, unless a client set its date.
ScheduleSettings afterClockChange(const ScheduleSettings& pSchedule, const QDateTime& pNow);

// 0 to pJitterSeconds, the same for the same machine and date, and evenly spread over machines.
int jitterOffset(const QDateTime& pNextCheck, int pJitterSeconds, const QByteArray& pMachine);

// When the next verification of the installed files is due. pSince: the begin of the wait. Those that are on
// time are spread over a day, those that were missed over ten minutes after pNotBefore.
QDateTime verificationDue(const QDateTime& pSince, int pDays, const QDateTime& pNotBefore,
                          const QByteArray& pMachine);

} // namespace tarn::vkservice::schedule

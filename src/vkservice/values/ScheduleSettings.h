#pragma once

#include "internal/Values.h"

#include <QtCore/QDateTime>
#include <QtCore/QString>

namespace tarn::vkservice {

inline constexpr int sFlagAtLogin =
    1; // bit 0 of the flags: the check comes at a user's login, not after a period

struct Period
{
    int mCount = 1;
    vkcore::Scheduler::PeriodUnit mUnit = vkcore::Scheduler::PeriodDay;

    bool operator==(const Period&) const = default;
};

// What clients see of the schedule, and what the service remembers of it.
struct ScheduleSettings : vkcore::protocol::Schedule
{
    // The date that periods are counted from, so that the 31st comes back after a short month, and the hour
    // after the night that lacks it. Invalid: the next check itself.
    QDateTime mAnchor = {};
    // Somebody named this very date, so it may lie further ahead than one period.
    bool mNextCheckChosen = false;

    // What lies between two checks. A count of 0 or less, which a number that is too large becomes on its
    // way, is not a period: such a schedule goes by the day.
    Period period() const { return mPeriodCount > 0 ? Period{mPeriodCount, mUnit} : Period(); }
    bool atLogin() const { return (mFlags & sFlagAtLogin) != 0; }
    bool operator==(const ScheduleSettings&) const = default;
};

} // namespace tarn::vkservice

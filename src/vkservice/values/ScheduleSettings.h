#pragma once

#include "internal/Values.h"

#include <QtCore/QDateTime>
#include <QtCore/QString>

namespace tarn::vkservice {

inline constexpr int sFlagAtLogin =
    1; // bit 0 of the flags: the check runs at a user's login, not after a period

struct Period
{
    int mCount = 1;
    vkcore::Scheduler::PeriodUnit mUnit = vkcore::Scheduler::PeriodDay;

    bool operator==(const Period&) const = default;
};

// What clients see of the schedule, and what the service stores of it.
struct ScheduleSettings : vkcore::protocol::Schedule
{
    // The date that periods are counted from, so that the 31st returns after a short month, and the hour
    // after the night that skips it. Invalid: the next check itself.
    QDateTime mAnchor = {};
    // A client set this exact date, so it may be more than one period ahead.
    bool mNextCheckChosen = false;

    // The time between two checks. A count of 0 or less (also the result of an overflow) is not a period:
    // such a schedule runs daily.
    Period period() const { return mPeriodCount > 0 ? Period{mPeriodCount, mUnit} : Period(); }
    bool atLogin() const { return (mFlags & sFlagAtLogin) != 0; }
    bool operator==(const ScheduleSettings&) const = default;
};

} // namespace tarn::vkservice

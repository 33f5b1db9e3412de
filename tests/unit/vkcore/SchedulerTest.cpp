#include "Test.h"

#include <vkcore/Scheduler.h>

#include <limits>

using namespace tarn::vkcore;

namespace {

QDateTime at(const char* pText)
{
    return QDateTime::fromString(q(pText), q("yyyy-MM-dd hh:mm:ss"));
}

constexpr int sMaxInt = std::numeric_limits<int>::max();

} // namespace

TEST(SchedulerTest, NextValidUpdateTime)
{
    // A zone whose clock changes on 2024-03-31 at 2:00 (to 3:00) and on 2024-10-27 at 3:00 (to 2:00).
    ::setenv("TZ", "CET-1CEST,M3.5.0,M10.5.0/3", 1);
    ::tzset();
    const auto tHour = Scheduler::PeriodHour;
    const auto tDay = Scheduler::PeriodDay;
    const auto tWeek = Scheduler::PeriodWeek;
    const auto tMonth = Scheduler::PeriodMonth;
    const struct
    {
        const char* mName;
        const char* mDate;
        int mCount;
        Scheduler::PeriodUnit mUnit;
        const char* mNow;
        int mLead;
        const char* mResult;
    } tCases[] = {
        {"exactly the lead away", "2024-05-01 12:00:00", 1, tDay, "2024-05-01 11:50:00", 600,
         "2024-05-01 12:00:00"},
        {"a second short", "2024-05-01 12:00:00", 1, tDay, "2024-05-01 11:50:01", 600, "2024-05-02 12:00:00"},
        {"hours", "2024-05-01 12:30:00", 5, tHour, "2024-05-02 12:00:00", 0, "2024-05-02 13:30:00"},
        {"the time of day stays", "2024-03-29 08:00:00", 1, tDay, "2024-03-31 12:00:00", 0,
         "2024-04-01 08:00:00"},
        {"an hour left out once", "2024-03-30 02:30:00", 1, tDay, "2024-03-31 12:00:00", 0,
         "2024-04-01 02:30:00"},
        {"real hours", "2024-03-31 00:30:00", 2, tHour, "2024-03-31 03:00:00", 0, "2024-03-31 03:30:00"},
        {"weeks", "2024-10-20 02:30:00", 1, tWeek, "2024-10-28 00:00:00", 0, "2024-11-03 02:30:00"},
        {"to February", "2023-01-31 10:00:00", 1, tMonth, "2023-02-01 00:00:00", 0, "2023-02-28 10:00:00"},
        {"and back to the 31st", "2023-01-31 10:00:00", 1, tMonth, "2023-03-01 00:00:00", 0,
         "2023-03-31 10:00:00"},
        {"leap year", "2020-02-29 10:00:00", 12, tMonth, "2024-01-01 00:00:00", 0, "2024-02-29 10:00:00"},
        {"an earlier hour", "2023-01-15 10:00:00", 1, tMonth, "2023-06-15 10:00:01", 0,
         "2023-07-15 10:00:00"},
        {"since the year 1", "0001-01-31 00:00:00", 1, tMonth, "2023-02-01 00:00:00", 0,
         "2023-02-28 00:00:00"},
        {"daily since then", "0001-01-01 07:00:00", 1, tDay, "2024-05-01 07:00:01", 0, "2024-05-02 07:00:00"},
        {"the last year", "2024-01-01 10:00:00", sMaxInt, tMonth, "2024-05-01 12:00:00", 0,
         "9999-12-31 10:00:00"},
        {"count 0", "2024-01-01 00:00:00", 0, tDay, "2024-05-01 12:00:00", 600, "2024-05-01 12:10:00"},
        {"negative count", "2024-01-01 00:00:00", -5, tDay, "2024-05-01 12:00:00", 600,
         "2024-05-01 12:10:00"},
        {"no date", "", 1, tDay, "2024-05-01 12:00:00", 600, "2024-05-01 12:10:00"},
    };
    for (const auto& tCase : tCases) {
        SCOPED_TRACE(tCase.mName);
        const QDateTime tResult = Scheduler::nextValidUpdateTime(at(tCase.mDate), tCase.mCount, tCase.mUnit,
                                                                 at(tCase.mNow), tCase.mLead);
        EXPECT_EQ(tResult.toString(Qt::ISODate).toStdString(),
                  at(tCase.mResult).toString(Qt::ISODate).toStdString());
    }
}

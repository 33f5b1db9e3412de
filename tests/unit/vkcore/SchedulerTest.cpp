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
        {"in the future already", "2024-05-01 12:00:00", 1, Scheduler::PeriodDay, "2024-04-01 00:00:00", 600,
         "2024-05-01 12:00:00"},
        {"exactly the lead away", "2024-05-01 12:00:00", 1, Scheduler::PeriodDay, "2024-05-01 11:50:00", 600,
         "2024-05-01 12:00:00"},
        {"a second short of the lead", "2024-05-01 12:00:00", 1, Scheduler::PeriodDay, "2024-05-01 11:50:01",
         600, "2024-05-02 12:00:00"},
        {"hours", "2024-05-01 12:30:00", 5, Scheduler::PeriodHour, "2024-05-02 12:00:00", 0,
         "2024-05-02 13:30:00"},
        {"days keep the time of day over the clock's change", "2024-03-29 08:00:00", 1, Scheduler::PeriodDay,
         "2024-03-31 12:00:00", 0, "2024-04-01 08:00:00"},
        {"the hour left out on one day only", "2024-03-30 02:30:00", 1, Scheduler::PeriodDay,
         "2024-03-31 12:00:00", 0, "2024-04-01 02:30:00"},
        {"hours over the clock's change are real hours", "2024-03-31 00:30:00", 2, Scheduler::PeriodHour,
         "2024-03-31 03:00:00", 0, "2024-03-31 03:30:00"},
        {"weeks", "2024-10-20 02:30:00", 1, Scheduler::PeriodWeek, "2024-10-28 00:00:00", 0,
         "2024-11-03 02:30:00"},
        {"end of January to February", "2023-01-31 10:00:00", 1, Scheduler::PeriodMonth,
         "2023-02-01 00:00:00", 0, "2023-02-28 10:00:00"},
        {"and back to the 31st", "2023-01-31 10:00:00", 1, Scheduler::PeriodMonth, "2023-03-01 00:00:00", 0,
         "2023-03-31 10:00:00"},
        {"leap year", "2020-02-29 10:00:00", 12, Scheduler::PeriodMonth, "2024-01-01 00:00:00", 0,
         "2024-02-29 10:00:00"},
        {"same day of the month, earlier hour", "2023-01-15 10:00:00", 1, Scheduler::PeriodMonth,
         "2023-06-15 10:00:01", 0, "2023-07-15 10:00:00"},
        {"monthly since the year 1", "0001-01-31 00:00:00", 1, Scheduler::PeriodMonth, "2023-02-01 00:00:00",
         0, "2023-02-28 00:00:00"},
        {"daily since the year 1", "0001-01-01 07:00:00", 1, Scheduler::PeriodDay, "2024-05-01 07:00:01", 0,
         "2024-05-02 07:00:00"},
        {"behind the last year", "2024-01-01 10:00:00", sMaxInt, Scheduler::PeriodMonth,
         "2024-05-01 12:00:00", 0, "9999-12-31 10:00:00"},
        {"count 0", "2024-01-01 00:00:00", 0, Scheduler::PeriodDay, "2024-05-01 12:00:00", 600,
         "2024-05-01 12:10:00"},
        {"negative count", "2024-01-01 00:00:00", -5, Scheduler::PeriodDay, "2024-05-01 12:00:00", 600,
         "2024-05-01 12:10:00"},
        {"no date", "", 1, Scheduler::PeriodDay, "2024-05-01 12:00:00", 600, "2024-05-01 12:10:00"},
        {"a unit that does not exist counts as months", "2024-01-01 00:00:00", 1,
         static_cast<Scheduler::PeriodUnit>(99), "2024-05-01 12:00:00", 0, "2024-06-01 00:00:00"},
    };
    for (const auto& tCase : tCases) {
        SCOPED_TRACE(tCase.mName);
        const QDateTime tResult = Scheduler::nextValidUpdateTime(at(tCase.mDate), tCase.mCount, tCase.mUnit,
                                                                 at(tCase.mNow), tCase.mLead);
        EXPECT_EQ(tResult.toString(Qt::ISODate).toStdString(),
                  at(tCase.mResult).toString(Qt::ISODate).toStdString());
    }
}

TEST(SchedulerTest, HugeCountsAndOldDatesAnswerAtOnce)
{
    QElapsedTimer tTimer;
    tTimer.start();
    const QDateTime tNow = at("2024-05-01 12:00:00");
    for (const char* tDate : {"0001-01-01 00:00:00", "1970-01-01 00:00:00", "2024-05-01 11:59:59"}) {
        for (const int tCount : {1, 3, 65536, 1073741824, sMaxInt - 1, sMaxInt}) {
            for (const auto tUnit : {Scheduler::PeriodHour, Scheduler::PeriodDay, Scheduler::PeriodWeek,
                                     Scheduler::PeriodMonth}) {
                SCOPED_TRACE(::testing::Message() << tDate << " count " << tCount << " unit " << tUnit);
                const QDateTime tResult = Scheduler::nextValidUpdateTime(at(tDate), tCount, tUnit, tNow, 600);
                EXPECT_TRUE(tResult.isValid());
                EXPECT_LE(tResult.date().year(), 9999);
                EXPECT_GE(tResult, tNow.addSecs(600));
            }
        }
    }
    EXPECT_LT(tTimer.elapsed(), 1000);
}

TEST(SchedulerTest, WithoutNowTheClockCounts)
{
    const QDateTime tBefore = QDateTime::currentDateTime();
    const QDateTime tResult =
        Scheduler::nextValidUpdateTime(tBefore.addDays(-400), 1, Scheduler::PeriodHour, QDateTime(), 600);
    EXPECT_GE(tResult, tBefore.addSecs(600));
    EXPECT_LE(tResult, QDateTime::currentDateTime().addSecs(600 + 3600));
}

#include "schedule/ScheduleRules.h"
#include "Test.h"

#include <QtCore/QSet>

using namespace tarn::vkcore;
using namespace tarn::vkservice;
using namespace tarn::vkservice::schedule;

namespace {

QDateTime date(const char* pText)
{
    return QDateTime::fromString(q(pText).left(16), q("yyyy-MM-dd hh:mm"));
}

constexpr auto sHour = Scheduler::PeriodHour;
constexpr auto sDay = Scheduler::PeriodDay;
constexpr auto sWeek = Scheduler::PeriodWeek;
constexpr auto sMonth = Scheduler::PeriodMonth;

std::string text(const QDateTime& pDate)
{
    return pDate.toString(q("yyyy-MM-dd hh:mm")).toStdString();
}

ScheduleSettings automatic(const char* pNext, int pCount, Scheduler::PeriodUnit pUnit)
{
    ScheduleSettings tSchedule;
    tSchedule.mMode = Scheduler::AutoUpdateAutomatic;
    tSchedule.mNextCheck = date(pNext);
    tSchedule.mPeriodCount = pCount;
    tSchedule.mUnit = pUnit;
    return tSchedule;
}

} // namespace

TEST(ScheduleRules, ChangeLeavesAConsistentSchedule)
{
    const char* tNow = "2026-03-10 12:00"; // a Tuesday
    const ScheduleSettings tWeekly = automatic("2026-03-14 03:00", 1, sWeek);
    ScheduleSettings tManual = automatic("", 1, sWeek);
    tManual.mMode = Scheduler::AutoUpdateManual;
    ScheduleSettings tManualLongAgo = tManual;
    tManualLongAgo.mNextCheck = date("2025-01-01 03:00");

    const ScheduleSettings tLongAgo = automatic("2025-01-01 03:00", 1, sWeek);
    ScheduleSettings tLoginLongAgo = tLongAgo;
    tLoginLongAgo.mFlags = sFlagAtLogin;
    ScheduleSettings tChosen = automatic("2026-12-24 18:00", 1, sWeek);
    tChosen.mNextCheckChosen = true;

    const struct
    {
        const char* mWhat;
        ScheduleSettings mOld;
        ScheduleSettings mWanted;
        const char* mNext;
        bool mChosen;
    } tCases[] = {
        {"manual keeps its date", tLongAgo, tManualLongAgo, "2025-01-01 03:00", false},
        {"at login keeps its date", tLongAgo, tLoginLongAgo, "2025-01-01 03:00", false},
        {"nothing changed", tWeekly, tWeekly, "2026-03-14 03:00", false},
        {"automatic without a date begins soon", tManual, automatic("", 1, sWeek), "2026-03-10 12:10", false},
        {"automatic with a date long ago keeps its weekday and time", tManualLongAgo, tLongAgo,
         "2026-03-11 03:00", false},
        {"weekly becomes monthly", tWeekly, automatic("2026-03-14 03:00", 1, sMonth), "2026-04-07 03:00",
         false},
        {"a period of nothing", tWeekly, automatic("2026-03-14 03:00", 0, sHour), "2026-03-11 03:00", false},
        {"a date far ahead is somebody's choice", tWeekly, automatic("2026-12-24 18:00", 1, sWeek),
         "2026-12-24 18:00", true},
        {"a period under a chosen date", tChosen, automatic("2026-12-24 18:00", 1, sDay), "2026-12-24 18:00",
         true},
        {"a date in the past moves by periods", tWeekly, automatic("2026-03-01 05:00", 1, sDay),
         "2026-03-11 05:00", true},
        {"the calendar ends", tWeekly, automatic("2026-03-14 03:00", 2147483647, sMonth), "9999-12-31 00:00",
         false},
        {"and begins again", automatic("9999-12-31 00:00", 2147483647, sMonth),
         automatic("9999-12-31 00:00", 1, sDay), "2026-03-11 12:00", false},
    };
    for (const auto& tCase : tCases) {
        SCOPED_TRACE(tCase.mWhat);
        const ScheduleSettings tNew = afterChange(tCase.mOld, tCase.mWanted, date(tNow));
        EXPECT_EQ(text(tNew.mNextCheck), tCase.mNext);
        EXPECT_EQ(tNew.mNextCheckChosen, tCase.mChosen);
        EXPECT_EQ(tNew.mPeriodCount, tCase.mWanted.mPeriodCount);
        EXPECT_EQ(tNew.mUnit, tCase.mWanted.mUnit);
    }
}

TEST(ScheduleRules, CheckMovesOnBehindNow)
{
    const std::tuple<ScheduleSettings, const char*, const char*> tCases[] = {
        {automatic("2026-03-10 03:00", 1, sDay), "2026-03-10 03:00", "2026-03-11 03:00"},
        {automatic("2026-03-10 03:00", 6, sHour), "2026-03-10 04:00", "2026-03-10 09:00"},
        // Missed for years: one check, then the old rhythm.
        {automatic("2020-03-10 03:00", 1, sDay), "2026-03-10 12:00", "2026-03-11 03:00"},
        {automatic("2026-03-10 03:00", -3, sMonth), "2026-03-10 03:00", "2026-03-11 03:00"},
    };
    for (const auto& [tSchedule, tNow, tNext] : tCases) {
        SCOPED_TRACE(tNext);
        EXPECT_EQ(text(afterCheck(tSchedule, date(tNow)).mNextCheck), tNext);
    }
}

TEST(ScheduleRules, The31stComesBackAfterAShortMonth)
{
    ScheduleSettings tSchedule = automatic("2026-01-31 03:00", 1, sMonth);
    for (const char* tExpected : {"2026-02-28 03:00", "2026-03-31 03:00", "2026-04-30 03:00"}) {
        tSchedule = afterCheck(tSchedule, tSchedule.mNextCheck);
        EXPECT_EQ(text(tSchedule.mNextCheck), tExpected);
        tSchedule = afterChange(tSchedule, tSchedule, tSchedule.mNextCheck.addDays(-1));
    }
}

TEST(ScheduleRules, ClockThatRanAheadDoesNotStopUpdates)
{
    const ScheduleSettings tAhead = automatic("2035-06-02 03:00", 1, sWeek);
    const QDateTime tNow = date("2026-03-10 12:00");
    EXPECT_EQ(text(afterClockChange(tAhead, tNow).mNextCheck), "2026-03-17 03:00");

    ScheduleSettings tChosen = tAhead;
    tChosen.mNextCheckChosen = true;
    EXPECT_EQ(afterClockChange(tChosen, tNow), tChosen);
    const ScheduleSettings tUsual = automatic("2026-03-17 12:59", 1, sWeek);
    EXPECT_EQ(afterClockChange(tUsual, tNow), tUsual)
        << "an hour too far is what a change of daylight time makes";
}

TEST(ScheduleRules, JitterIsStableInRangeAndSpread)
{
    const QDateTime tDate = date("2026-03-10 03:00");
    EXPECT_EQ(jitterOffset(tDate, 0, "machine"), 0);
    EXPECT_EQ(jitterOffset(tDate, 3600, "machine"), jitterOffset(tDate, 3600, "machine"));
    int tFirstHalf = 0;
    QSet<int> tOffsets;
    for (int i = 0; i < 1000; ++i) {
        const int tOffset = jitterOffset(tDate, 3600, QByteArray::number(i));
        ASSERT_GE(tOffset, 0);
        ASSERT_LE(tOffset, 3600);
        tFirstHalf += tOffset < 1800 ? 1 : 0;
        tOffsets.insert(tOffset);
    }
    EXPECT_GT(tOffsets.size(), 700);
    EXPECT_NEAR(tFirstHalf, 500, 80);
}

TEST(ScheduleRules, AVerificationIsDueAfterItsPeriodAndNotAtOnceAfterAStart)
{
    const QDateTime tSince = date("2026-03-10 03:00");
    const QDateTime tEarly = date("2026-03-11 08:00");
    const QDateTime tLate = date("2026-06-01 08:00");
    for (const char* tMachine : {"a", "b", "c"}) {
        const QDateTime tOnTime = verificationDue(tSince, 30, tEarly, tMachine);
        EXPECT_GE(tOnTime, tSince.addDays(30));
        EXPECT_LE(tOnTime, tSince.addDays(31));
        EXPECT_EQ(verificationDue(tSince, 30, tEarly.addDays(1), tMachine), tOnTime)
            << "whatever is restarted";
        EXPECT_LE(tLate.secsTo(verificationDue(tSince, 30, tLate, tMachine)), 600);
    }
    EXPECT_NE(verificationDue(tSince, 30, tLate, "a"), verificationDue(tSince, 30, tLate, "b"));
}

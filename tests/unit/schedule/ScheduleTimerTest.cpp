#include "schedule/ScheduleTimer.h"
#include "MovedClock.h"

#include "schedule/ScheduleRules.h"

using namespace tarn::vkcore;
using namespace tarn::vkservice;
using namespace tarn::vkservice::schedule;

namespace {

class ScheduleTimerTest : public testing::Test
{
protected:
    ScheduleTimerTest()
    {
        QObject::connect(&mTimer, &ScheduleTimer::due, [this] { mChecks.append(mClock.mNow); });
        QObject::connect(&mTimer, &ScheduleTimer::moved, [this](const ScheduleSettings&) { ++mMoves; });
    }

    static ScheduleSettings daily(const char* pNext)
    {
        ScheduleSettings tSchedule;
        tSchedule.mMode = Scheduler::AutoUpdateAutomatic;
        tSchedule.mNextCheck = date(pNext);
        return tSchedule;
    }

    MovedClock mClock{date("2026-03-10T12:00:00")};
    ScheduleTimer mTimer{mClock, "machine"};
    QList<QDateTime> mChecks;
    int mMoves = 0;
};

} // namespace

TEST_F(ScheduleTimerTest, RunsAtEachDateAndMovesOn)
{
    mTimer.start(daily("2026-03-11T03:00:00"));
    mClock.runUntil(date("2026-03-11T02:59:59"));
    EXPECT_TRUE(mChecks.isEmpty());
    mClock.runUntil(date("2026-03-13T12:00:00"));
    EXPECT_EQ(mChecks,
              (QList{date("2026-03-11T03:00:00"), date("2026-03-12T03:00:00"), date("2026-03-13T03:00:00")}));
    EXPECT_EQ(mMoves, 3);
    EXPECT_EQ(mTimer.settings().mNextCheck, date("2026-03-14T03:00:00"));
}

TEST_F(ScheduleTimerTest, JitterDelaysEachCheckAlsoAfterDowntimeAndLeavesTheDate)
{
    mTimer.setJitter(3600);
    const auto tOffset = [](const char* pDate) { return jitterOffset(date(pDate), 3600, "machine"); };
    ASSERT_GT(tOffset("2026-03-01T03:00:00"), 0);
    mTimer.start(daily("2026-03-01T03:00:00"));
    EXPECT_TRUE(mChecks.isEmpty()) << "machines that all come on together must not all ask at once";
    mClock.runUntil(date("2026-03-11T12:00:00"));
    EXPECT_EQ(mChecks, (QList{date("2026-03-10T12:00:00").addSecs(tOffset("2026-03-01T03:00:00")),
                              date("2026-03-11T03:00:00").addSecs(tOffset("2026-03-11T03:00:00"))}));
    EXPECT_EQ(mTimer.settings().mNextCheck, date("2026-03-12T03:00:00"));
}

TEST_F(ScheduleTimerTest, ClockJumps)
{
    const std::tuple<const char*, const char*, int, const char*> tCases[] = {
        {"a little back", "2026-03-10T11:00:00", 0, "2026-03-11T03:00:00"},
        {"years back", "2020-01-01T00:00:00", 0, "2020-01-02T03:00:00"},
        {"forward over the date", "2026-03-12T02:00:00", 1, "2026-03-12T03:00:00"},
        {"forward over many dates", "2026-03-20T09:00:00", 1, "2026-03-21T03:00:00"},
        {"years forward", "2036-01-01T00:00:00", 1, "2036-01-01T03:00:00"},
    };
    for (const auto& [tWhat, tTo, tChecks, tNext] : tCases) {
        SCOPED_TRACE(tWhat);
        mClock.jumpTo(date("2026-03-10T12:00:00"));
        mTimer.start(daily("2026-03-11T03:00:00"));
        mChecks.clear();
        mClock.jumpTo(date(tTo));
        EXPECT_EQ(mChecks.size(), tChecks);
        EXPECT_EQ(mTimer.settings().mNextCheck, date(tNext));
        EXPECT_EQ(mClock.mWake, date(tNext));
    }
}

TEST_F(ScheduleTimerTest, ClockThatGoesBackWhileACheckIsMadeUpFor)
{
    mTimer.setJitter(3600);
    mTimer.start(daily("2026-03-01T03:00:00"));
    const QDateTime tMadeUp = mClock.mWake;
    ASSERT_TRUE(tMadeUp.isValid());
    mClock.jumpTo(date("2026-03-05T12:00:00"));
    EXPECT_LE(mClock.mWake, date("2026-03-05T13:00:00")) << "not at the date of the clock that was wrong";
}

// A client sends unchanged values back, with whole seconds.
TEST_F(ScheduleTimerTest, ADateThatComesBackWasNotChosen)
{
    mTimer.start({});
    ScheduleSettings tWanted;
    tWanted.mMode = Scheduler::AutoUpdateAutomatic;
    mTimer.start(afterChange(mTimer.settings(), tWanted, mClock.now()));
    EXPECT_EQ(mTimer.settings().mNextCheck, date("2026-03-10T12:10:00"));
    tWanted.mNextCheck = date("2026-03-10T12:10:00");
    tWanted.mPeriodCount = 3;
    mTimer.start(afterChange(mTimer.settings(), tWanted, mClock.now()));
    EXPECT_FALSE(mTimer.settings().mNextCheckChosen);
    EXPECT_EQ(mTimer.settings().mNextCheck, date("2026-03-12T12:10:00"));
}

TEST_F(ScheduleTimerTest, ManualLoginAndPausedNeverRunByDate)
{
    ScheduleSettings tManual = daily("2026-03-11T03:00:00");
    tManual.mMode = Scheduler::AutoUpdateManual;
    ScheduleSettings tLogin = daily("2026-03-11T03:00:00");
    tLogin.mFlags = sFlagAtLogin;
    for (const auto& tSchedule : {tManual, tLogin}) {
        mTimer.start(tSchedule);
        mClock.jumpTo(date("2026-03-12T12:00:00"));
        EXPECT_TRUE(mChecks.isEmpty());
        EXPECT_FALSE(mClock.mWake.isValid());
    }
    mTimer.pause();
    mTimer.start(daily("2026-03-11T03:00:00"));
    mTimer.userLoggedIn();
    EXPECT_TRUE(mChecks.isEmpty());
    EXPECT_EQ(mTimer.settings().mNextCheck, date("2026-03-11T03:00:00"));
}

TEST_F(ScheduleTimerTest, LoginChecksOnceInAnHour)
{
    ScheduleSettings tLogin = daily("");
    tLogin.mFlags = sFlagAtLogin;
    mTimer.start(tLogin);
    mTimer.userLoggedIn();
    mClock.jumpTo(date("2026-03-10T12:30:00"));
    mTimer.userLoggedIn();
    EXPECT_EQ(mChecks.size(), 1);
    mClock.jumpTo(date("2026-03-10T13:00:00"));
    mTimer.userLoggedIn();
    EXPECT_EQ(mChecks.size(), 2);
    mClock.jumpTo(date("2026-03-10T08:00:00"));
    mTimer.userLoggedIn();
    EXPECT_EQ(mChecks.size(), 3) << "a check of a clock that ran ahead holds nothing up";
    mTimer.start(daily("2026-03-11T03:00:00"));
    mClock.jumpTo(date("2026-03-10T16:00:00"));
    mTimer.userLoggedIn();
    EXPECT_EQ(mChecks.size(), 3) << "a login means nothing without the bit";
}

TEST_F(ScheduleTimerTest, RetryComesOnceBesideTheSchedule)
{
    mTimer.start(daily("2026-03-11T03:00:00"));
    mTimer.retryIn(900);
    mClock.runUntil(date("2026-03-11T03:00:00"));
    EXPECT_EQ(mChecks, (QList{date("2026-03-10T12:15:00"), date("2026-03-11T03:00:00")}));
    EXPECT_EQ(mTimer.settings().mNextCheck, date("2026-03-12T03:00:00"));
}

#include "schedule/WindowTimer.h"
#include "MovedClock.h"

#include <QtCore/QSet>

using namespace tarn::vkservice;
using namespace tarn::vkservice::schedule;

namespace {

class WindowTimerTest : public testing::Test
{
protected:
    WindowTimerTest()
    {
        QObject::connect(&mTimer, &WindowTimer::opened, [this] { mOpened.append(mClock.mNow); });
        mTimer.setWindows(mWindows, 0);
    }

    const Windows mWindows = *Windows::fromText(q("01:00-05:00"));
    MovedClock mClock{date("2026-03-10T12:00:00")};
    WindowTimer mTimer{mClock, "machine"};
    QList<QDateTime> mOpened;
};

} // namespace

TEST_F(WindowTimerTest, OpensOnceForEachWait)
{
    mClock.runUntil(date("2026-03-11T12:00:00"));
    EXPECT_TRUE(mOpened.isEmpty()) << "nothing waits";
    mTimer.waitForWindow(60);
    mClock.runUntil(date("2026-03-14T02:00:00"));
    EXPECT_EQ(mOpened, QList{date("2026-03-12T01:00:00")});
    mTimer.waitForWindow(60);
    mClock.runUntil(date("2026-03-14T04:55:00"));
    mTimer.waitForWindow(60); // too little time is left
    mClock.runUntil(date("2026-03-15T12:00:00"));
    mTimer.pause(60);
    mClock.runUntil(date("2026-03-15T12:30:00"));
    mTimer.waitForWindow(60);
    mTimer.stop();
    mTimer.setWindows({}, 0);
    mTimer.waitForWindow(60);
    mClock.runUntil(date("2026-03-16T12:00:00"));
    EXPECT_EQ(mOpened.mid(1), (QList{date("2026-03-14T02:01:00"), date("2026-03-15T01:00:00"),
                                     date("2026-03-15T12:01:00"), date("2026-03-15T12:31:00")}));
}

TEST_F(WindowTimerTest, ClockJumps)
{
    const std::tuple<const char*, const char*, int, const char*> tCases[] = {
        {"over the window", "2026-03-11T06:00:00", 0, "2026-03-12T01:00:00"},
        {"into the window", "2026-03-11T03:00:00", 1, nullptr},
        {"to its end", "2026-03-11T04:55:00", 0, "2026-03-12T01:00:00"},
        {"years back", "2020-01-01T12:00:00", 0, "2020-01-02T01:00:00"},
    };
    for (const auto& [tWhat, tTo, tOpened, tWake] : tCases) {
        SCOPED_TRACE(tWhat);
        mClock.jumpTo(date("2026-03-10T12:00:00"));
        mTimer.waitForWindow(60);
        mOpened.clear();
        mClock.jumpTo(date(tTo));
        EXPECT_EQ(mOpened.size(), tOpened);
        EXPECT_EQ(mClock.mWake, tWake == nullptr ? QDateTime() : date(tWake));
    }
}

TEST_F(WindowTimerTest, MachinesAreSpreadInTheFirstHalf)
{
    QSet<QDateTime> tTimes;
    for (int tMachine = 0; tMachine < 50; ++tMachine) {
        WindowTimer tTimer(mClock, QByteArray::number(tMachine));
        tTimer.setWindows(mWindows, 86400);
        tTimer.waitForWindow(60);
        EXPECT_TRUE((Opening{date("2026-03-11T01:00:00"), date("2026-03-11T03:00:01")}.isOpen(mClock.mWake)));
        tTimes.insert(mClock.mWake);
    }
    EXPECT_GT(tTimes.size(), 45);
}

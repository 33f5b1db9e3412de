#include "schedule/WindowTimer.h"

#include "schedule/Clock.h"
#include "schedule/ScheduleRules.h"

#include <algorithm>

namespace tarn::vkservice::schedule {

WindowTimer::WindowTimer(Clock& pClock, const QByteArray& pMachine, QObject* pParent)
    : QObject(pParent), mClock(pClock), mMachine(pMachine)
{
    connect(&mClock, &Clock::woke, this, &WindowTimer::evaluate);
}

void WindowTimer::setWindows(const Windows& pWindows, int pJitterSeconds)
{
    mWindows = pWindows;
    mJitter = pJitterSeconds;
    evaluate();
}

void WindowTimer::wait(int pPauseSeconds, bool pForWindow)
{
    mForWindow = pForWindow;
    mPause = pPauseSeconds;
    mNotBefore = mClock.now().addSecs(pPauseSeconds);
    evaluate();
}

void WindowTimer::stop()
{
    mNotBefore.reset();
    evaluate();
}

QDateTime WindowTimer::dueTime(const QDateTime& pNow) const
{
    QDateTime tDue = std::max(*mNotBefore, pNow);
    if (!mForWindow || mWindows.isEmpty()) {
        return tDue;
    }
    Opening tOpening = mWindows.at(tDue);
    if (tDue.secsTo(tOpening.mUntil) <= sLeastSeconds) {
        tOpening = mWindows.at(tOpening.mUntil);
    }
    const qint64 tHalf = tOpening.mFrom.secsTo(tOpening.mUntil) / 2;
    const int tJitter = static_cast<int>(std::min<qint64>(mJitter, tHalf));
    return std::max(tDue, tOpening.mFrom.addSecs(jitterOffset(tOpening.mFrom, tJitter, mMachine)));
}

void WindowTimer::evaluate()
{
    if (!mNotBefore) {
        mClock.wakeAt({});
        return;
    }
    const QDateTime tNow = mClock.now();
    mNotBefore = std::min(*mNotBefore, tNow.addSecs(mPause)); // the clock may have been set back
    const QDateTime tDue = dueTime(tNow);
    if (tDue > tNow) {
        mClock.wakeAt(tDue);
        return;
    }
    mNotBefore.reset();
    mClock.wakeAt({});
    Q_EMIT opened();
}

} // namespace tarn::vkservice::schedule

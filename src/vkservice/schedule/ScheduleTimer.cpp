#include "schedule/ScheduleTimer.h"

#include "schedule/Clock.h"
#include "schedule/ScheduleRules.h"

#include <algorithm>
#include <utility>

namespace tarn::vkservice::schedule {

namespace {

constexpr qint64 sOnTimeSeconds = 60;       // a check that is later than this was missed
constexpr qint64 sLoginPauseSeconds = 3600; // many short sessions on a machine must not cause many checks

} // namespace

ScheduleTimer::ScheduleTimer(Clock& pClock, const QByteArray& pMachine, QObject* pParent)
    : QObject(pParent), mClock(pClock), mMachine(pMachine)
{
    connect(&mClock, &Clock::woke, this, &ScheduleTimer::evaluate);
}

void ScheduleTimer::start(const ScheduleSettings& pSettings)
{
    mSettings = pSettings;
    mMissedUntil = {};
    evaluate();
}

void ScheduleTimer::setJitter(int pSeconds)
{
    if (pSeconds != mJitter) {
        mJitter = pSeconds;
        mMissedUntil = {};
        evaluate();
    }
}

// Machines that were all off at the time of the check, and start together, are spread like those that were
// on.
QDateTime ScheduleTimer::dueTime(const QDateTime& pNow)
{
    const int tOffset = jitterOffset(mSettings.mNextCheck, mJitter, mMachine);
    const QDateTime tOnTime = mSettings.mNextCheck.addSecs(tOffset);
    if (tOnTime.secsTo(pNow) <= sOnTimeSeconds) {
        mMissedUntil = {};
        return tOnTime;
    }
    const bool tClockWentBack = mMissedUntil.isValid() && pNow.secsTo(mMissedUntil) > mJitter;
    if (!mMissedUntil.isValid() || tClockWentBack) {
        mMissedUntil = pNow.addSecs(tOffset);
    }
    return mMissedUntil;
}

bool ScheduleTimer::retryIsDue(const QDateTime& pNow)
{
    if (!mRetryAt.isValid() || pNow < mRetryAt) {
        return false;
    }
    mRetryAt = {};
    return true;
}

void ScheduleTimer::wake(const QDateTime& pNow)
{
    const QDateTime tDue = dueTime(pNow);
    mClock.wakeAt(mRetryAt.isValid() ? std::min(tDue, mRetryAt) : tDue);
}

void ScheduleTimer::evaluate()
{
    if (mPaused || !runsByDate(mSettings)) {
        mClock.wakeAt({});
        return;
    }
    const QDateTime tNow = mClock.now();
    ScheduleSettings tNext = afterClockChange(mSettings, tNow);
    if (!tNext.mNextCheck.isValid()) {
        tNext = afterChange(tNext, tNext, tNow);
    }
    const bool tCorrected = std::exchange(mSettings, tNext) != tNext;
    const bool tDue = tNow >= dueTime(tNow);
    const bool tRetry = retryIsDue(tNow);
    if (tDue) {
        mMissedUntil = {};
        mRetryAt = {};
        mSettings = afterCheck(mSettings, tNow);
    }
    wake(tNow);
    if (tDue || tCorrected) {
        Q_EMIT moved(mSettings);
    }
    if (tDue || tRetry) {
        Q_EMIT due();
    }
}

void ScheduleTimer::retryIn(int pSeconds)
{
    mRetryAt = mClock.now().addSecs(pSeconds);
    evaluate();
}

void ScheduleTimer::userLoggedIn()
{
    const bool tWanted = mSettings.mMode != vkcore::Scheduler::AutoUpdateManual && mSettings.atLogin();
    if (mPaused || !tWanted) {
        return;
    }
    const QDateTime tNow = mClock.now();
    const bool tRecently = mLastLoginCheck.isValid() && mLastLoginCheck <= tNow &&
                           mLastLoginCheck.secsTo(tNow) < sLoginPauseSeconds;
    if (!tRecently) {
        mLastLoginCheck = tNow;
        Q_EMIT due();
    }
}

} // namespace tarn::vkservice::schedule

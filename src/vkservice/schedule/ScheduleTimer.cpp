#include "schedule/ScheduleTimer.h"

#include "schedule/Clock.h"
#include "schedule/ScheduleRules.h"

namespace tarn::vkservice::schedule {

namespace {

constexpr qint64 sOnTimeSeconds = 60;       // later than this a check has been missed
constexpr qint64 sLoginPauseSeconds = 3600; // a machine with many short sessions is no reason for many checks

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

void ScheduleTimer::change(const ScheduleSettings& pWanted)
{
    start(afterChange(mSettings, pWanted, mClock.now()));
}

void ScheduleTimer::setJitter(int pSeconds)
{
    if (pSeconds != mJitter) {
        mJitter = pSeconds;
        mMissedUntil = {};
        evaluate();
    }
}

// Machines that were all off at their time, and come on together, are spread like those that were on.
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

void ScheduleTimer::evaluate()
{
    if (!runsByDate(mSettings)) {
        mClock.wakeAt({});
        return;
    }
    const QDateTime tNow = mClock.now();
    const ScheduleSettings tCorrected = afterClockChange(mSettings, tNow);
    if (tCorrected != mSettings) {
        mSettings = tCorrected;
        Q_EMIT moved(mSettings);
    }
    if (!mSettings.mNextCheck.isValid()) {
        mSettings = afterChange(mSettings, mSettings, tNow);
        Q_EMIT moved(mSettings);
    }
    if (tNow < dueTime(tNow)) {
        mClock.wakeAt(dueTime(tNow));
        return;
    }
    mMissedUntil = {};
    mSettings = afterCheck(mSettings, tNow);
    mClock.wakeAt(dueTime(tNow));
    Q_EMIT moved(mSettings);
    Q_EMIT due();
}

void ScheduleTimer::userLoggedIn()
{
    if (mSettings.mMode == vkcore::Scheduler::AutoUpdateManual || !mSettings.atLogin()) {
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

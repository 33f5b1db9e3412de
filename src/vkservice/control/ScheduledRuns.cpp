#include "control/ScheduledRuns.h"

#include "control/KnownVariables.h"
#include "control/MachineId.h"
#include "control/StoreCare.h"
#include "control/UpdateControl.h"
#include "process/ServiceApplication.h"
#include "store/ConfigVariables.h"
#include "store/Settings.h"

#include <utility>

using namespace Qt::StringLiterals;

namespace tarn::vkservice::control {

using process::LogLevel;
using schedule::WindowTimer;

namespace {

constexpr int sPauseSeconds = 10;      // settings may still change
constexpr int sAgainSeconds = 30 * 60; // after a run in the window that failed

bool defers(const store::ConfigVariables& pVariables, const QString& pName)
{
    return pVariables.text(pName).compare("defer"_L1, Qt::CaseInsensitive) == 0;
}

} // namespace

ScheduledRuns::ScheduledRuns(const Parts& pParts) : mParts(pParts), mTimer(mClock, machineId())
{
    connect(&mMachine, &machine::MachineQuery::answered, this, &ScheduledRuns::onMachineState);
    connect(&mTimer, &WindowTimer::opened, this, &ScheduledRuns::due);
}

void ScheduledRuns::start(bool pWorker)
{
    mIsActive = !pWorker;
    if (const auto tWaiting = mParts.mSettings.waiting()) {
        mWaiting = *tWaiting;
    }
    onVariablesChanged();
    if (mIsActive && mWaiting.mSince.isValid()) {
        mTimer.waitForWindow(sPauseSeconds);
    }
    tick();
}

void ScheduledRuns::stop()
{
    mIsActive = false;
    mTimer.stop();
}

void ScheduledRuns::onVariablesChanged()
{
    const auto tWindows = windowsOf(mParts.mVariables);
    if (!tWindows || !mIsActive) {
        return;
    }
    // A run must not begin between two settings of one command.
    const QString tText = mParts.mVariables.text(u"schedule.window"_s);
    const bool tWaits = std::exchange(mWindowText, tText) != tText && mWaiting.mSince.isValid();
    if (tWaits) {
        mTimer.stop();
    }
    mTimer.setWindows(*tWindows, static_cast<int>(mParts.mVariables.number(u"schedule.jitter"_s)));
    if (tWaits) {
        mTimer.waitForWindow(sPauseSeconds);
    }
}

// The state is asked for only if it counts.
void ScheduledRuns::begin()
{
    if (defers(mParts.mVariables, u"update.onMetered"_s) ||
        defers(mParts.mVariables, u"update.onBattery"_s)) {
        mMachine.ask();
    } else {
        trigger();
    }
}

void ScheduledRuns::onMachineState(const machine::MachineState& pState)
{
    if (!mIsActive) {
        return;
    }
    QString tWhy;
    if (pState.mIsMetered && defers(mParts.mVariables, u"update.onMetered"_s)) {
        tWhy = u"the network connection is metered"_s;
    } else if (pState.mIsOnBattery && defers(mParts.mVariables, u"update.onBattery"_s)) {
        tWhy = u"the machine runs on battery"_s;
    } else {
        trigger();
        return;
    }
    if (!mWaiting.mSince.isValid()) {
        setWaiting({.mSince = mClock.now()});
    }
    if (!mParts.mUpdates.isActive()) { // else the text would be part of that run's result
        mParts.mUpdates.putOff(
            u"A scheduled update was put off because %1; the next try is in %2 minutes."_s.arg(tWhy).arg(
                sAgainSeconds / 60));
    }
    mTimer.pause(sAgainSeconds);
}

// If no run comes of it, what waits is tried again.
void ScheduledRuns::trigger()
{
    if (mWaiting.mSince.isValid()) {
        mTimer.waitForWindow(sAgainSeconds);
    }
    if (const Failure tFailure = mParts.mUpdates.trigger(false)) {
        mParts.mApp.write(LogLevel::Error, u"The scheduled update did not start. %1."_s.arg(tFailure.mText));
    }
}

void ScheduledRuns::putOff()
{
    mTimer.pause(sAgainSeconds);
}

void ScheduledRuns::onRunEnded(const RunRecord& pRecord)
{
    const bool tHolds = mParts.mUpdates.preparedFor().isValid();
    if (tHolds && !mWaiting.mSince.isValid()) {
        setWaiting({.mSince = pRecord.mFinished});
    } else if (!tHolds && mWaiting.mSince.isValid() && (pRecord.mCode == ResultSuccess || !hasWindows())) {
        setWaiting({}); // without windows the schedule goes on by itself, also after a failure
    }
    if (!mIsActive || !mWaiting.mSince.isValid()) {
        mTimer.stop();
    } else {
        mTimer.waitForWindow(tHolds ? sPauseSeconds : sAgainSeconds);
    }
}

bool ScheduledRuns::hasWindows() const
{
    return !windowsOf(mParts.mVariables).valueOr({}).isEmpty();
}

void ScheduledRuns::setWaiting(const Waiting& pWaiting)
{
    mWaiting = pWaiting;
    if (!mParts.mSettings.setWaiting(pWaiting)) {
        (void)mParts.mStore.failure(u"The update that waits"_s); // it is in the log
    }
}

void ScheduledRuns::tick()
{
    const int tDays = static_cast<int>(mParts.mVariables.number(u"schedule.windowDeadline"_s));
    const QDateTime tNow = QDateTime::currentDateTime();
    if (!mIsActive || !mWaiting.mSince.isValid()) {
        return;
    }
    if (mWaiting.mSince > tNow) {
        setWaiting({.mSince = tNow, .mIsReported = mWaiting.mIsReported}); // the clock was ahead
    }
    if (tDays > 0 && !mWaiting.mIsReported && mWaiting.mSince.addDays(tDays) <= tNow) {
        setWaiting({.mSince = mWaiting.mSince, .mIsReported = true});
        Q_EMIT waitsTooLong(
            u"A scheduled update has been waiting since %1."_s.arg(
                mWaiting.mSince.toLocalTime().toString(u"yyyy-MM-dd hh:mm"_s)),
            u"The machine was not on, or not able to update, in any window since then. \"rkm update\" "
            "installs at once. The last result: %1"_s.arg(
                mParts.mUpdates.resultText(mParts.mUpdates.lastRun())));
    }
}

} // namespace tarn::vkservice::control

#include "control/ScheduleControl.h"

#include "control/MachineId.h"
#include "control/ScheduledRuns.h"
#include "control/StoreCare.h"
#include "control/UpdateControl.h"
#include "internal/Machine.h"
#include "process/ServiceApplication.h"
#include "schedule/ScheduleRules.h"
#include "store/ConfigVariables.h"
#include "store/Settings.h"

#include <QtCore/QTimer>

#include <chrono>

using namespace Qt::StringLiterals;

namespace tarn::vkservice::control {

using process::LogLevel;
using schedule::LoginWatch;
using schedule::ScheduleTimer;
using vkcore::Scheduler;

namespace {

constexpr int sRetrySeconds = 900; // after a run that found no server, doubled each time
constexpr int sMaxRetries = 3;

// A service of a user is started with the user's session.
bool startsWithSession()
{
    return !vkcore::machine::isActing();
}

} // namespace

ScheduleControl::ScheduleControl(const Parts& pParts) : mParts(pParts), mTimer(mClock, machineId())
{
    connect(&mTimer, &ScheduleTimer::moved, this, &ScheduleControl::onMoved);
    connect(&mTimer, &ScheduleTimer::due, this, &ScheduleControl::onDue);
    connect(&mParts.mRuns, &ScheduledRuns::due, this, &ScheduleControl::onWaitEnded);
    connect(&mLogins, &LoginWatch::userLoggedIn, &mTimer, &ScheduleTimer::userLoggedIn);
}

Failure ScheduleControl::start(bool pWorker)
{
    const auto tSettings = mParts.mSettings.schedule();
    if (!tSettings) {
        return {Failure::Kind::Damaged, u"The schedule can't be read: %1"_s.arg(mParts.mStore.reason())};
    }
    if (pWorker) {
        mTimer.pause();
    }
    mParts.mRuns.start(pWorker);
    onVariablesChanged();
    mTimer.start(*tSettings);
    if (pWorker) {
        return {};
    }
    mLogins.start();
    if (mParts.mUpdates.lastRun().mCutShort > 0) {
        resumeRun();
    } else if (startsWithSession()) {
        mTimer.userLoggedIn();
    }
    return {};
}

void ScheduleControl::pause()
{
    mTimer.pause();
    mParts.mRuns.stop();
}

// The cause of the last interruption may still be present.
void ScheduleControl::resumeRun()
{
    const bool tAtStart = settings().atLogin() && startsWithSession();
    if (settings().mMode == Scheduler::AutoUpdateManual || !(tAtStart || schedule::runsByDate(settings()))) {
        return;
    }
    const auto tSeconds = mParts.mUpdates.resumeSeconds();
    if (!tSeconds) {
        mParts.mApp.write(LogLevel::Warning, u"%1 updates in a row were interrupted. The next one waits for "
                                             "the schedule."_s.arg(mParts.mUpdates.lastRun().mCutShort));
        return;
    }
    mParts.mApp.write(LogLevel::Notice, u"The interrupted update is retried in %1 seconds."_s.arg(*tSeconds));
    if (tAtStart) {
        QTimer::singleShot(std::chrono::seconds(*tSeconds), &mTimer, &ScheduleTimer::userLoggedIn);
    } else {
        mTimer.retryIn(*tSeconds);
    }
}

QDateTime ScheduleControl::nextCheck() const
{
    return schedule::runsByDate(settings()) ? settings().mNextCheck : QDateTime();
}

bool ScheduleControl::change(const ScheduleSettings& pWanted, bool pSave)
{
    const ScheduleSettings tNew = schedule::afterChange(settings(), pWanted, mClock.now());
    if (pSave && !mParts.mSettings.setSchedule(tNew)) {
        return false;
    }
    mSaved = pSave;
    mRetries = 0;
    mTimer.start(tNew);
    Q_EMIT changed();
    return true;
}

void ScheduleControl::onVariablesChanged()
{
    mTimer.setJitter(static_cast<int>(mParts.mVariables.number(u"schedule.jitter"_s)));
    mParts.mRuns.onVariablesChanged();
}

void ScheduleControl::onMoved(const ScheduleSettings& pSettings)
{
    if (mSaved && !mParts.mSettings.setSchedule(pSettings)) {
        (void)mParts.mStore.failure(u"The next date of the schedule"_s); // it is in the log
    }
    Q_EMIT changed();
}

void ScheduleControl::onDue()
{
    if (settings().mMode == Scheduler::AutoUpdateNotification) {
        Q_EMIT checkIsDue();
        return;
    }
    mParts.mRuns.begin();
}

// With a mode that installs nothing by itself, what is prepared waits on.
void ScheduleControl::onWaitEnded()
{
    if (settings().mMode == Scheduler::AutoUpdateAutomatic) {
        mParts.mRuns.begin();
    } else {
        mParts.mRuns.putOff();
    }
}

// A machine that has just woken up may not have a network yet, and its next check may be weeks away.
void ScheduleControl::onRunEnded(const RunRecord& pRecord, bool pManual)
{
    mParts.mRuns.onRunEnded(pRecord);
    if (pManual) {
        return;
    }
    if (pRecord.mCode != ResultUnreachable || mRetries >= sMaxRetries) {
        mRetries = 0;
        return;
    }
    mTimer.retryIn(sRetrySeconds << mRetries);
    ++mRetries;
}

} // namespace tarn::vkservice::control

#pragma once

#include "values/ScheduleSettings.h"

#include <QtCore/QByteArray>
#include <QtCore/QDateTime>
#include <QtCore/QObject>

namespace tarn::vkservice::schedule {

class Clock;

// Signals when a check is due. Owns the active schedule and advances it; the check itself is done elsewhere.
class ScheduleTimer : public QObject
{
    Q_OBJECT

public:
    // pMachine identifies this machine, for the jitter.
    ScheduleTimer(Clock& pClock, const QByteArray& pMachine, QObject* pParent = nullptr);

    const ScheduleSettings& settings() const { return mSettings; }
    // Activates a schedule unchanged. A check that was missed, once or several times, is signalled once.
    void start(const ScheduleSettings& pSettings);
    // A paused schedule can still be read and changed, but does not start checks.
    void pause() { mPaused = true; }
    void setJitter(int pSeconds);
    // Adds one check after this delay, in addition to those of the schedule. Does nothing if the schedule
    // does not run by date.
    void retryIn(int pSeconds);
    // A user has started a session. With the login bit this triggers a check, at most once an hour.
    void userLoggedIn();

Q_SIGNALS:
    // The schedule was advanced; emitted before due().
    void moved(const tarn::vkservice::ScheduleSettings& pSettings);
    // A check is due.
    void due();

private:
    void evaluate();
    bool retryIsDue(const QDateTime& pNow);
    void wake(const QDateTime& pNow);
    QDateTime dueTime(const QDateTime& pNow);

    Clock& mClock;
    QByteArray mMachine;
    ScheduleSettings mSettings;
    int mJitter = 0;
    QDateTime mMissedUntil; // when a missed check is caught up on
    QDateTime mRetryAt;
    QDateTime mLastLoginCheck;
    bool mPaused = false;
};

} // namespace tarn::vkservice::schedule

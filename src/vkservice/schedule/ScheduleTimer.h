#pragma once

#include "values/ScheduleSettings.h"

#include <QtCore/QByteArray>
#include <QtCore/QDateTime>
#include <QtCore/QObject>

namespace tarn::vkservice::schedule {

class Clock;

// Lets the schedule come round. It holds the schedule in force and moves it on; what it does not do is the
// check itself.
class ScheduleTimer : public QObject
{
    Q_OBJECT

public:
    // pMachine tells this machine from others, for the jitter.
    ScheduleTimer(Clock& pClock, const QByteArray& pMachine, QObject* pParent = nullptr);

    const ScheduleSettings& settings() const { return mSettings; }
    // Puts a schedule in force as it is. A check whose date went by meanwhile, however often, comes once.
    void start(const ScheduleSettings& pSettings);
    // A schedule that is paused is kept and changed, but never comes round.
    void pause() { mPaused = true; }
    void setJitter(int pSeconds);
    // One more check after this while, beside those of the schedule; none if the schedule does not run by
    // date.
    void retryIn(int pSeconds);
    // A user has begun a session. With the login bit that is a check, but not more often than once in an
    // hour.
    void userLoggedIn();

Q_SIGNALS:
    // The schedule has been moved on, before due().
    void moved(const tarn::vkservice::ScheduleSettings& pSettings);
    // It is time for a check.
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
    QDateTime mMissedUntil; // when a check that was missed is made up for
    QDateTime mRetryAt;
    QDateTime mLastLoginCheck;
    bool mPaused = false;
};

} // namespace tarn::vkservice::schedule

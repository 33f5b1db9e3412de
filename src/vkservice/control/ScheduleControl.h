#pragma once

#include "internal/Failure.h"
#include "schedule/LoginWatch.h"
#include "schedule/ScheduleTimer.h"
#include "schedule/SystemClock.h"

#include <QtCore/QDateTime>
#include <QtCore/QObject>
#include <QtCore/QString>

namespace tarn::vkservice {
struct RunRecord;
}
namespace tarn::vkservice::store {
class ConfigVariables;
class Settings;
} // namespace tarn::vkservice::store
namespace tarn::vkservice::process {
class ServiceApplication;
}

namespace tarn::vkservice::control {

class ScheduledRuns;
class StoreCare;
class UpdateControl;

// The schedule and the checks that it starts: at their time, at logins, and as retries.
class ScheduleControl : public QObject
{
    Q_OBJECT

public:
    struct Parts
    {
        store::Settings& mSettings;
        const store::ConfigVariables& mVariables;
        UpdateControl& mUpdates;
        ScheduledRuns& mRuns;
        StoreCare& mStore;
        process::ServiceApplication& mApp;
    };

    explicit ScheduleControl(const Parts& pParts);

    // Activates the stored schedule. A worker has no schedule. A failure if the store cannot be read.
    Failure start(bool pWorker);
    // From here on no check starts automatically.
    void pause();

    const ScheduleSettings& settings() const { return mTimer.settings(); }
    // Invalid if no check is scheduled by date.
    QDateTime nextCheck() const;
    // pSave false: the stored schedule is unchanged and applies again after a restart. False if the store
    // fails.
    bool change(const ScheduleSettings& pWanted, bool pSave);

    void onVariablesChanged();
    void onRunEnded(const RunRecord& pRecord, bool pManual);

Q_SIGNALS:
    // A check is due, and users decide on it.
    void checkIsDue();
    // The settings or the next date.
    void changed();

private:
    void onDue();
    void onWaitEnded();
    void onMoved(const ScheduleSettings& pSettings);
    void resumeRun();

    Parts mParts;
    schedule::SystemClock mClock;
    schedule::ScheduleTimer mTimer;
    schedule::LoginWatch mLogins;
    bool mSaved = true; // the active schedule is the stored one
    int mRetries = 0;
};

} // namespace tarn::vkservice::control

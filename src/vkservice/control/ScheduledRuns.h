#pragma once

#include "internal/Failure.h"
#include "machine/MachineQuery.h"
#include "schedule/SystemClock.h"
#include "schedule/WindowTimer.h"
#include "values/Waiting.h"

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

class StoreCare;
class UpdateControl;

// The runs that the schedule starts, and what becomes of those that have to wait: prepared packages are
// installed by another run in the next window. That something waits survives a restart.
class ScheduledRuns : public QObject
{
    Q_OBJECT

public:
    struct Parts
    {
        store::Settings& mSettings;
        const store::ConfigVariables& mVariables;
        UpdateControl& mUpdates;
        StoreCare& mStore;
        process::ServiceApplication& mApp;
    };

    explicit ScheduledRuns(const Parts& pParts);

    // Goes on with what waits from before. A worker starts nothing.
    void start(bool pWorker);
    // From here on nothing starts by itself.
    void stop();
    // Starts a run, unless the machine is in a state that defers it.
    void begin();
    // Nothing may be started by itself just now.
    void putOff();
    void onVariablesChanged();
    void onRunEnded(const RunRecord& pRecord);
    // To be called about once a minute.
    void tick();

Q_SIGNALS:
    // A run that waited may begin.
    void due();
    // Emitted once: an update has waited for schedule.windowDeadline.
    void waitsTooLong(const QString& pText, const QString& pDetails);

private:
    void trigger();
    void onMachineState(const machine::MachineState& pState);
    bool hasWindows() const;
    void setWaiting(const Waiting& pWaiting);

    Parts mParts;
    schedule::SystemClock mClock;
    schedule::WindowTimer mTimer;
    machine::MachineQuery mMachine;
    Waiting mWaiting;
    QString mWindowText;
    bool mIsActive = false;
};

} // namespace tarn::vkservice::control

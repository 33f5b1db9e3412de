#pragma once

#include <QtCore/QObject>

#include <sys/types.h>

namespace tarn::vkservice::ipc {
class SocketServer;
}
namespace tarn::vkservice::process {
class ServiceApplication;
}

namespace tarn::vkservice::control {

class MailControl;
class ScheduleControl;
class UpdateControl;
class VerifyControl;

// Decides how long the service runs: until it is asked to stop or, for a worker, until no client needs it.
class Lifetime : public QObject
{
    Q_OBJECT

public:
    struct Parts
    {
        ipc::SocketServer& mSockets;
        ScheduleControl& mSchedule;
        UpdateControl& mUpdates;
        VerifyControl& mVerifications;
        MailControl& mMail;
        process::ServiceApplication& mApp;
    };

    Lifetime(bool pWorker, const Parts& pParts);

    bool isWorker() const { return mWorker; }
    bool isEnding() const { return mEnding; }
    // Starts an orderly shutdown: notifies the monitors, ends a run at its next safe point and a verification
    // at once, then emits ended().
    void quit();
    // The same for a worker that pAsker started and no longer needs. Other clients may have connected
    // meanwhile: the worker accepts no new ones and waits a few seconds for those that are connected.
    void leave(pid_t pAsker);

Q_SIGNALS:
    void ended();

private:
    void finishIfIdle();
    void finish();

    Parts mParts;
    bool mWorker;
    bool mEnding = false;
    bool mFinished = false;
};

} // namespace tarn::vkservice::control

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

// How long the service lives: until it is told to end, or until nobody needs this worker any more.
class Lifetime : public QObject
{
    Q_OBJECT

public:
    struct Parts
    {
        ipc::SocketServer& mSockets;
        ScheduleControl& mSchedule;
        UpdateControl& mUpdates;
        MailControl& mMail;
        process::ServiceApplication& mApp;
    };

    Lifetime(bool pWorker, const Parts& pParts);

    bool isWorker() const { return mWorker; }
    bool isEnding() const { return mEnding; }
    // Begins the orderly end: tells the monitors, ends a run at its next safe point, then ended() comes.
    void quit();
    // The same for a worker that pAsker has started and needs no longer. Others may have found it meanwhile:
    // it takes no more of them, and waits a few seconds for those that are there.
    void leave(pid_t pAsker);

Q_SIGNALS:
    void ended();

private:
    void onStatusChanged();
    void finish();

    Parts mParts;
    bool mWorker;
    bool mEnding = false;
    bool mFinished = false;
};

} // namespace tarn::vkservice::control

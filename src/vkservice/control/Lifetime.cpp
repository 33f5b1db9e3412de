#include "control/Lifetime.h"

#include "control/MailControl.h"
#include "control/ScheduleControl.h"
#include "control/UpdateControl.h"
#include "control/VerifyControl.h"
#include "internal/Methods.h"
#include "ipc/SocketServer.h"
#include "process/ServiceApplication.h"

#include <QtCore/QTimer>

using namespace Qt::StringLiterals;

namespace tarn::vkservice::control {

namespace {

constexpr int sLastClientsMs = 3000; // the next worker waits longer for the lock of the state directory
constexpr int sLastAnswersMs = 1000;
constexpr int sLastMailMs = 5000;

} // namespace

Lifetime::Lifetime(bool pWorker, const Parts& pParts) : mParts(pParts), mWorker(pWorker)
{
    connect(&mParts.mUpdates, &UpdateControl::statusChanged, this, &Lifetime::finishIfIdle);
    connect(&mParts.mVerifications, &VerifyControl::idle, this, &Lifetime::finishIfIdle);
}

void Lifetime::finishIfIdle()
{
    if (mEnding && !mParts.mUpdates.isActive() && !mParts.mVerifications.isReading()) {
        finish();
    }
}

void Lifetime::quit()
{
    if (mEnding) {
        return;
    }
    mEnding = true;
    mParts.mApp.write(process::LogLevel::Notice, u"The service is about to quit."_s);
    mParts.mSchedule.pause();
    mParts.mSockets.broadcast(vkcore::protocol::method::sQuitRequestReceived, {});
    mParts.mVerifications.shutDown();
    mParts.mUpdates.stop();
    finishIfIdle();
}

void Lifetime::leave(pid_t pAsker)
{
    mParts.mSockets.stopListening();
    const auto tLook = [this, pAsker] {
        if (!mParts.mSockets.hasPeerBeside(pAsker)) {
            quit();
        }
    };
    connect(&mParts.mSockets, &ipc::SocketServer::connectionClosed, this, tLook);
    QTimer::singleShot(sLastClientsMs, this, &Lifetime::quit);
    tLook();
}

// Queued through the event loop, so that answers in progress are sent first.
void Lifetime::finish()
{
    if (mFinished) {
        return;
    }
    mFinished = true;
    QMetaObject::invokeMethod(
        this,
        [this] {
            mParts.mSockets.closeAll(sLastAnswersMs);
            mParts.mMail.finish(sLastMailMs);
            Q_EMIT ended();
        },
        Qt::QueuedConnection);
}

} // namespace tarn::vkservice::control

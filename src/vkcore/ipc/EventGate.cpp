#include "ipc/EventGate.h"

#include <QtCore/QCoreApplication>
#include <QtCore/QEvent>

#include <utility>

namespace tarn::vkcore {

namespace {

int sBlockingCalls = 0;

QList<EventQueue*>& waitingQueues()
{
    static QList<EventQueue*> sQueues;
    return sQueues;
}

} // namespace

BlockingCall::BlockingCall()
{
    ++sBlockingCalls;
}

BlockingCall::~BlockingCall()
{
    if (--sBlockingCalls > 0 || waitingQueues().isEmpty()) {
        return;
    }
    for (EventQueue* tQueue : std::exchange(waitingQueues(), {})) {
        tQueue->schedule();
    }
}

EventQueue::~EventQueue()
{
    waitingQueues().removeOne(this);
}

void EventQueue::add(qsizetype pSize, const Event& pEvent)
{
    mEvents.append({pSize, pEvent});
    mHeldBytes += pSize;
    schedule();
}

void EventQueue::forgetEndedRuns()
{
    mEvents.removeIf([this](const Held& pHeld) {
        mHeldBytes -= pHeld.mEvent.mEndsRun ? pHeld.mSize : 0;
        return pHeld.mEvent.mEndsRun;
    });
}

void EventQueue::clear()
{
    mEvents.clear();
    mHeldBytes = 0;
}

void EventQueue::schedule()
{
    if (sBlockingCalls > 0) {
        if (!waitingQueues().contains(this)) {
            waitingQueues().append(this);
        }
    } else if (!mPosted) {
        mPosted = true;
        QCoreApplication::postEvent(this, new QEvent(QEvent::User));
    }
}

bool EventQueue::event(QEvent* pEvent)
{
    if (pEvent->type() != QEvent::User) {
        return QObject::event(pEvent);
    }
    mPosted = false;
    if (sBlockingCalls == 0 && !mEvents.isEmpty()) {
        deliverNext();
    } else if (!mEvents.isEmpty()) {
        schedule();
    }
    return true;
}

// A receiver may begin a blocking call, run its own event loop, or delete the queue. So the next event is
// scheduled before this one is delivered, and nothing is accessed afterwards.
void EventQueue::deliverNext()
{
    const Held tHeld = mEvents.takeFirst();
    mHeldBytes -= tHeld.mSize;
    if (!mEvents.isEmpty()) {
        schedule();
    }
    tHeld.mEvent.mDeliver();
}

} // namespace tarn::vkcore

#include "ipc/EventGate.h"

#include <QtCore/QCoreApplication>
#include <QtCore/QEvent>
#include <QtCore/QPointer>

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

void EventQueue::add(qsizetype pSize, const std::function<void()>& pDeliver)
{
    mEvents.append({pSize, pDeliver});
    mHeldBytes += pSize;
    schedule();
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
    deliver();
    return true;
}

// A receiver may begin a blocking call, run an event loop of its own in which the rest is delivered, or
// delete the queue.
void EventQueue::deliver()
{
    const QPointer<EventQueue> tAlive(this);
    while (tAlive && !mEvents.isEmpty() && sBlockingCalls == 0) {
        const Event tEvent = mEvents.takeFirst();
        mHeldBytes -= tEvent.mSize;
        tEvent.mDeliver();
    }
    if (tAlive && !mEvents.isEmpty()) {
        schedule();
    }
}

} // namespace tarn::vkcore

#pragma once

#include <QtCore/QList>
#include <QtCore/QObject>

#include <functional>

namespace tarn::vkcore {

// Exists during a blocking call. While there is any in the process, all event queues are paused. When the
// last one ends they continue, but only from the event loop.
class BlockingCall
{
public:
    BlockingCall();
    ~BlockingCall();
    BlockingCall(const BlockingCall&) = delete;
    BlockingCall& operator=(const BlockingCall&) = delete;
};

// An event of the service.
struct Event
{
    std::function<void()> mDeliver; // empty: not needed
    bool mEndsRun = false;          // it reports that no update is running
};

// The pending events of one connection, in order.
class EventQueue : public QObject
{
public:
    EventQueue() = default;
    ~EventQueue() override;

    // pSize: the approximate size of the event's texts in bytes.
    void add(qsizetype pSize, const Event& pEvent);
    // Drops the events that end a run.
    void forgetEndedRuns();
    void clear();
    qsizetype heldBytes() const { return mHeldBytes; }

private:
    friend class BlockingCall;

    struct Held
    {
        qsizetype mSize;
        Event mEvent;
    };

    bool event(QEvent* pEvent) override;
    void schedule();
    void deliverNext();

    QList<Held> mEvents;
    qsizetype mHeldBytes = 0;
    bool mPosted = false;
};

} // namespace tarn::vkcore

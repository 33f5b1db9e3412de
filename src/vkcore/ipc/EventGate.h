#pragma once

#include <QtCore/QList>
#include <QtCore/QObject>

#include <functional>

namespace tarn::vkcore {

// Alive while a blocking call is under way. While there is any in the process, all event queues hold back
// what they have; when the last one ends they go on, but only once control is back in the event loop.
class BlockingCall
{
public:
    BlockingCall();
    ~BlockingCall();
    BlockingCall(const BlockingCall&) = delete;
    BlockingCall& operator=(const BlockingCall&) = delete;
};

// Something that the service has told, as the receiver is told of it.
struct Event
{
    std::function<void()> mDeliver; // empty: nobody needs it
    bool mEndsRun = false;          // it says that no update is under way any more
};

// The events of one connection on their way to their receivers, in order.
class EventQueue : public QObject
{
public:
    EventQueue() = default;
    ~EventQueue() override;

    // pSize: about how many bytes of text the event holds on to.
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

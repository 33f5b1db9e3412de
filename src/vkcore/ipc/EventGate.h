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

// The events of one connection on their way to their receivers, in order.
class EventQueue : public QObject
{
public:
    EventQueue() = default;
    ~EventQueue() override;

    // pSize: about how many bytes of text the event holds on to.
    void add(qsizetype pSize, const std::function<void()>& pDeliver);
    void clear();
    qsizetype heldBytes() const { return mHeldBytes; }

private:
    friend class BlockingCall;

    struct Event
    {
        qsizetype mSize;
        std::function<void()> mDeliver;
    };

    bool event(QEvent* pEvent) override;
    void schedule();
    void deliver();

    QList<Event> mEvents;
    qsizetype mHeldBytes = 0;
    bool mPosted = false;
};

} // namespace tarn::vkcore

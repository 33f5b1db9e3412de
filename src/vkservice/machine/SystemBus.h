#pragma once

#include <QtCore/QDeadlineTimer>

#include <memory>

struct sd_bus;
struct sd_bus_message;

namespace tarn::vkservice::machine {

// A connection to the system bus for a few calls. All of them together end at a deadline, also if the bus or
// the other service hangs. Blocks; for one thread.
class SystemBus
{
public:
    explicit SystemBus(const QDeadlineTimer& pDeadline);

    // False if there is no bus.
    bool isOpen() const { return mBus != nullptr; }

    struct MessageEnd
    {
        void operator()(sd_bus_message* pMessage) const;
    };
    using Message = std::unique_ptr<sd_bus_message, MessageEnd>;
    struct Object
    {
        const char* mService;
        const char* mPath;
        const char* mInterface;
    };

    Message newCall(const Object& pObject, const char* pMethod) const;
    // The answer, null for none or an error. Starts no service.
    Message call(Message pMessage) const;
    // The value of a property: the answer stands at it if it has this type, else it is null.
    Message property(const Object& pObject, const char* pName, const char* pType) const;

private:
    struct BusEnd
    {
        void operator()(sd_bus* pBus) const;
    };

    bool waitUntilReady() const;
    quint64 microsecondsLeft() const;

    QDeadlineTimer mDeadline;
    std::unique_ptr<sd_bus, BusEnd> mBus;
};

} // namespace tarn::vkservice::machine

#include "machine/SystemBus.h"

#include <systemd/sd-bus.h>

#include <algorithm>

namespace tarn::vkservice::machine {

// What was not sent yet is of no interest: waiting for it could take forever.
void SystemBus::BusEnd::operator()(sd_bus* pBus) const
{
    sd_bus_close_unref(pBus);
}

void SystemBus::MessageEnd::operator()(sd_bus_message* pMessage) const
{
    sd_bus_message_unref(pMessage);
}

SystemBus::SystemBus(const QDeadlineTimer& pDeadline) : mDeadline(pDeadline)
{
    sd_bus* tBus = nullptr;
    if (sd_bus_open_system(&tBus) >= 0) {
        mBus.reset(tBus);
        if (!waitUntilReady()) {
            mBus.reset();
        }
    }
}

quint64 SystemBus::microsecondsLeft() const
{
    return static_cast<quint64>(std::max<qint64>(0, mDeadline.remainingTime())) * 1000;
}

// A call would wait for a hanging bus with the library's own time limit, which is long.
bool SystemBus::waitUntilReady() const
{
    while (!mDeadline.hasExpired()) {
        const int tReady = sd_bus_is_ready(mBus.get());
        if (tReady != 0) {
            return tReady > 0;
        }
        const int tDone = sd_bus_process(mBus.get(), nullptr);
        if (tDone < 0 || (tDone == 0 && sd_bus_wait(mBus.get(), microsecondsLeft()) < 0)) {
            return false;
        }
    }
    return false;
}

SystemBus::Message SystemBus::newCall(const Object& pObject, const char* pMethod) const
{
    sd_bus_message* tMessage = nullptr;
    if (!isOpen() || sd_bus_message_new_method_call(mBus.get(), &tMessage, pObject.mService, pObject.mPath,
                                                    pObject.mInterface, pMethod) < 0) {
        return nullptr;
    }
    Message tCall(tMessage);
    return sd_bus_message_set_auto_start(tMessage, 0) < 0 ? nullptr : std::move(tCall);
}

SystemBus::Message SystemBus::call(Message pMessage) const
{
    const quint64 tLeft = microsecondsLeft();
    sd_bus_message* tReply = nullptr;
    // No time left would select the library's own limit.
    if (!pMessage || tLeft == 0 || sd_bus_call(mBus.get(), pMessage.get(), tLeft, nullptr, &tReply) < 0) {
        return nullptr;
    }
    return Message(tReply);
}

SystemBus::Message SystemBus::property(const Object& pObject, const char* pName, const char* pType) const
{
    const Object tProperties{pObject.mService, pObject.mPath, "org.freedesktop.DBus.Properties"};
    Message tCall = newCall(tProperties, "Get");
    if (!tCall || sd_bus_message_append(tCall.get(), "ss", pObject.mInterface, pName) < 0) {
        return nullptr;
    }
    Message tReply = call(std::move(tCall));
    return tReply && sd_bus_message_enter_container(tReply.get(), 'v', pType) > 0 ? std::move(tReply)
                                                                                  : nullptr;
}

} // namespace tarn::vkservice::machine

#include "machine/MachineState.h"

#include "machine/SystemBus.h"

#include <systemd/sd-bus.h>

namespace tarn::vkservice::machine {

namespace {

// Of NetworkManager's property.
constexpr quint32 sMetered = 1;
constexpr quint32 sProbablyMetered = 3;

bool isMetered(const SystemBus& pBus)
{
    const SystemBus::Message tReply =
        pBus.property({"org.freedesktop.NetworkManager", "/org/freedesktop/NetworkManager",
                       "org.freedesktop.NetworkManager"},
                      "Metered", "u");
    quint32 tMetered = 0;
    return tReply && sd_bus_message_read(tReply.get(), "u", &tMetered) > 0 &&
           (tMetered == sMetered || tMetered == sProbablyMetered);
}

bool isOnBattery(const SystemBus& pBus)
{
    const SystemBus::Message tReply = pBus.property(
        {"org.freedesktop.UPower", "/org/freedesktop/UPower", "org.freedesktop.UPower"}, "OnBattery", "b");
    int tOnBattery = 0;
    return tReply && sd_bus_message_read(tReply.get(), "b", &tOnBattery) > 0 && tOnBattery != 0;
}

} // namespace

// A service that hangs must not hide what the other one says.
MachineState readMachineState(const QDeadlineTimer& pDeadline)
{
    const QDeadlineTimer tHalf(pDeadline.remainingTime() / 2);
    MachineState tState;
    {
        const SystemBus tBus(tHalf);
        tState.mIsMetered = isMetered(tBus);
    }
    const SystemBus tBus(pDeadline);
    tState.mIsOnBattery = isOnBattery(tBus);
    return tState;
}

} // namespace tarn::vkservice::machine

#pragma once

#include <QtCore/QDeadlineTimer>

namespace tarn::vkservice::machine {

// What NetworkManager and UPower say. What is not known counts as false.
struct MachineState
{
    bool mIsMetered = false; // the network connection costs by the byte, surely or probably
    bool mIsOnBattery = false;

    bool operator==(const MachineState&) const = default;
};

// Blocks, at most until the deadline.
MachineState readMachineState(const QDeadlineTimer& pDeadline);

} // namespace tarn::vkservice::machine

#pragma once

#include "machine/MachineState.h"

#include <QtCore/QObject>

#include <thread>

namespace tarn::vkservice::machine {

// Reads the state of the machine on a thread of its own, so that a bus that hangs holds up nobody.
class MachineQuery : public QObject
{
    Q_OBJECT

public:
    static constexpr int sMostMs = 4000;

    using QObject::QObject;
    // Waits for the thread.
    ~MachineQuery() override;

    // answered() comes once for all calls until then.
    void ask();

Q_SIGNALS:
    void answered(const tarn::vkservice::machine::MachineState& pState);

private:
    void end(const MachineState& pState);

    std::thread mThread;
};

} // namespace tarn::vkservice::machine

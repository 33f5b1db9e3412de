#include "machine/MachineQuery.h"

#include <QtCore/QMetaObject>

namespace tarn::vkservice::machine {

MachineQuery::~MachineQuery()
{
    if (mThread.joinable()) {
        mThread.join();
    }
}

void MachineQuery::ask()
{
    if (mThread.joinable()) {
        return;
    }
    mThread = std::thread([this] {
        const MachineState tState = readMachineState(QDeadlineTimer(sMostMs));
        QMetaObject::invokeMethod(
            this, [this, tState] { end(tState); }, Qt::QueuedConnection);
    });
}

void MachineQuery::end(const MachineState& pState)
{
    mThread.join();
    Q_EMIT answered(pState);
}

} // namespace tarn::vkservice::machine

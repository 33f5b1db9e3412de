#pragma once

#include <QtCore/QByteArray>

namespace tarn::vkservice::control {

// Tells this machine from others, to spread what they all do.
QByteArray machineId();
// The same, made so that the id itself can't be learned from it: for places in phases.
QByteArray phaseSeed();

} // namespace tarn::vkservice::control

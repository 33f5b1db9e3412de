#pragma once

#include <QtCore/QByteArray>

namespace tarn::vkservice::control {

// Tells this machine from others, to spread what they all do.
QByteArray machineId();

} // namespace tarn::vkservice::control

#pragma once

#include <QtCore/QString>

namespace tarn::vkservice::store {
class ConfigVariables;
}

namespace tarn::vkservice::control {

// The configuration variables that the service reads, with their rules and defaults.
void addKnownVariables(store::ConfigVariables& pVariables, const QString& pConfigDir);

} // namespace tarn::vkservice::control

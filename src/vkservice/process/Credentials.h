#pragma once

#include "internal/Failure.h"

#include <QtCore/QString>

#include <optional>

namespace tarn::vkservice::process {

// The secret with this name that systemd has passed to the service (LoadCredential=, SetCredential=), without
// a line end. A null text if there is none.
Result<QString> credential(const QString& pName);

} // namespace tarn::vkservice::process

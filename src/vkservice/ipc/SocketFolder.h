#pragma once

#include "internal/Failure.h"

#include <QtCore/QString>

namespace tarn::vkservice::ipc {

// Creates the folder of the machine's socket, mode 0755, if it is missing. A failure if
// that fails or if a user who may not run the machine's service could write to the folder.
Failure makeSocketFolder(const QString& pFolder);

} // namespace tarn::vkservice::ipc

#pragma once

#include <QtCore/QString>

namespace tarn::vkservice::process {

// The listening socket of this path that systemd has opened for the service, -1 if there is none. Others
// that it handed over are closed. The caller owns the descriptor.
int inheritedSocket(const QString& pPath);

} // namespace tarn::vkservice::process

#pragma once

#include "internal/Failure.h"

#include <QtCore/QByteArray>
#include <QtCore/QString>

namespace tarn::vkpublish {

// Writes what --output names. A device, a pipe, a folder and a private key are not replaced.
Failure writeOutputFile(const QString& pPath, const QByteArray& pBytes);

} // namespace tarn::vkpublish

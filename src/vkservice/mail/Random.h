#pragma once

#include <QtCore/QByteArray>

namespace tarn::vkservice::mail {

// pCount bytes from the system's random generator, suitable for secrets.
QByteArray randomBytes(int pCount);

} // namespace tarn::vkservice::mail

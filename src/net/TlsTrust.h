#pragma once

#include <QtCore/QString>

#include <curl/curl.h>

namespace tarn::net {

// Restricts a transfer to TLS 1.2 or later and to peers with a verified certificate and name: by the
// certificates in pCaFile only, or by the system's if it is empty. False if libcurl can't; then the transfer
// must not start.
[[nodiscard]] bool setTlsTrust(CURL* pHandle, const QString& pCaFile);

} // namespace tarn::net

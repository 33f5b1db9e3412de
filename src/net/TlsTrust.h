#pragma once

#include <QtCore/QString>

#include <curl/curl.h>

namespace tarn::net {

// Has a transfer take TLS 1.2 and later alone, and no peer whose certificate and name are not verified:
// against the certificates of pCaFile and no others, or where it is empty against those of the system. False
// if libcurl can't; then the transfer is not to be begun.
[[nodiscard]] bool setTlsTrust(CURL* pHandle, const QString& pCaFile);

} // namespace tarn::net

#pragma once

#include "HttpClient.h"

#include "tuf/TargetFile.h"

#include <QtCore/QString>

namespace tarn::tuf {

// Puts a target into pFolder, as one file named after its percent-encoded path, or where that is too long for
// a file's name "sha256:" and the path's hash. One that is there already with the right length and hashes is
// not fetched; a wrong one is replaced as a whole, and only by a right one.
Failure downloadTarget(HttpClient& pClient, const QString& pBaseUrl, const TargetFile& pTarget,
                       const QString& pFolder);

// A base URL and an encoded path below it.
QString joinUrl(const QString& pBaseUrl, const QString& pPath);

} // namespace tarn::tuf

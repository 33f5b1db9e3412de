#pragma once

#include "HttpClient.h"

#include "tuf/TargetFile.h"

#include <QtCore/QString>

namespace tarn::tuf {

// Stores a target in pFolder, in a file named by its percent-encoded path, or if that is too long, by
// "sha256:" and the path's hash. An existing file with the right length and hashes is not fetched; a wrong
// one is replaced atomically, and only by a correct one.
Failure downloadTarget(HttpClient& pClient, const QString& pBaseUrl, const TargetFile& pTarget,
                       const QString& pFolder);

// A base URL and an encoded path below it.
QString joinUrl(const QString& pBaseUrl, const QString& pPath);

} // namespace tarn::tuf

#pragma once

#include "tuf/Hash.h"

#include <QtCore/QByteArray>
#include <QtCore/QString>

namespace tarn::tuf {

// A role's name as part of a file name or of a URL: all but A-Z a-z 0-9 - . _ ~ percent-encoded.
QString encodeName(const QString& pName);

// A target's path below the targets folder, percent-encoded part by part. With pHashPrefix the last part is
// prefixed with the file's hash and a dot. The parts "." and ".." are encoded, so that no URL library
// resolves them.
QString targetFetchPath(const QString& pPath, const HashList& pHashes, bool pHashPrefix);

// Whether the name of a delegated role can be used: not empty, not one of the top-level roles, and short
// enough to be part of a file name.
bool isDelegatedRoleName(const QString& pName);

} // namespace tarn::tuf

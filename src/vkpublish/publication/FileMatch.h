#pragma once

#include "internal/Failure.h"
#include "tuf/Hash.h"

#include <QtCore/QString>

namespace tarn::vkpublish {

// A failure if a file does not have this length and these hashes, or cannot be read.
Failure fileMatches(const QString& pPath, qint64 pLength, const tuf::HashList& pHashes);

} // namespace tarn::vkpublish

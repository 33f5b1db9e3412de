#pragma once

#include "internal/Failure.h"
#include "tuf/Hash.h"

#include <QtCore/QString>

namespace tarn::vkpublish {

// A failure if a file has not this length and these hashes, or can't be read.
Failure fileMatches(const QString& pPath, qint64 pLength, const tuf::HashList& pHashes);

} // namespace tarn::vkpublish

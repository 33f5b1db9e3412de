#pragma once

#include "tuf/Hash.h"

#include <QtCore/QString>

namespace tarn::vkpublish {

// Whether a file has this length and these hashes; *pReason says what it is that differs, or why it can't be
// read.
bool fileMatches(const QString& pPath, qint64 pLength, const tuf::HashList& pHashes, QString* pReason);

} // namespace tarn::vkpublish

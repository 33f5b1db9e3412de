#pragma once

#include <QtCore/QString>

namespace tarn::tuf {

// Whether a target's path matches a delegation's pattern: '*' matches any number of characters and '?' one,
// but neither a '/'.
bool matchesPattern(const QString& pPath, const QString& pPattern);

} // namespace tarn::tuf

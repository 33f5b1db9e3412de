#pragma once

#include <QtCore/QString>

namespace tarn::tuf {

// Whether a target's path fits a delegation's pattern: '*' stands for any number of characters and '?' for
// one, neither for a '/'.
bool matchesPattern(const QString& pPath, const QString& pPattern);

} // namespace tarn::tuf

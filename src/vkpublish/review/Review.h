// What a root or a list of packages changes, in plain words, for a person who is to sign it.
#pragma once

#include "review/Payload.h"

#include <QtCore/QStringList>

#include <optional>

namespace tarn::vkpublish {

// Lines for a terminal, each bounded and without control characters. pBefore: what to compare with, of the
// same role; without it everything is new. pWhence: what that is, such as "published".
QStringList review(const Payload& pNew, const std::optional<Payload>& pBefore, const QString& pWhence);

} // namespace tarn::vkpublish

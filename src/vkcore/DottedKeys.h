#pragma once

#include <string_view>

namespace tarn::vkcore {

inline constexpr int sMaxKeyParts = 32;

// Whether a key of a TOML file has more than sMaxKeyParts parts. Each part is a nested table, for which
// toml++ needs stack, so this checks the bytes before parsing. The result is meaningless after the first
// syntax error of a file.
bool hasDeepKey(std::string_view pToml);

} // namespace tarn::vkcore

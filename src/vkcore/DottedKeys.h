#pragma once

#include <string_view>

namespace tarn::vkcore {

inline constexpr int sMaxKeyParts = 32;

// Has a key of a TOML file more than sMaxKeyParts parts? Each part is a table in a table, and toml++ needs
// stack for every one of them, so this looks at the bytes before the parser does. Behind the first fault of a
// file the answer means nothing.
bool hasDeepKey(std::string_view pToml);

} // namespace tarn::vkcore

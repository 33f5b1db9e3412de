#pragma once

#include "keys/KeyFolder.h"

namespace tarn::vkpublish {

// A new key for an open folder. The keys that are there come first: it gets their passphrase.
Result<KeyFile> newKey(const KeyOrder& pOrder, const KeyFolder& pKeys);

} // namespace tarn::vkpublish

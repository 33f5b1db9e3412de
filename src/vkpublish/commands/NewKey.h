#pragma once

#include "keys/KeyFolder.h"

namespace tarn::vkpublish {

// A new key for an open folder. It gets the passphrase of the keys that are there, one of which is opened.
Result<KeyFile> newKey(const KeyOrder& pOrder, const KeyFolder& pKeys);

} // namespace tarn::vkpublish

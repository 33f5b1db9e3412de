#pragma once

#include "tuf/Metadata.h"

namespace tarn::tuf {

// How many keys of a role have signed. A key counts once, even if listed under several ids; signatures of
// other keys are ignored.
qsizetype countSigners(const Signed& pSigned, const RoleKeys& pRoleKeys, const KeyMap& pKeys);

// Whether these are enough.
Failure verifyThreshold(const QString& pRole, const Signed& pSigned, const RoleKeys& pRoleKeys,
                        const KeyMap& pKeys);

} // namespace tarn::tuf

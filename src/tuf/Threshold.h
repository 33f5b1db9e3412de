#pragma once

#include "tuf/Metadata.h"

namespace tarn::tuf {

// Whether enough keys of a role have signed. A key counts once, even if listed under several ids; signatures
// of other keys are ignored.
Failure verifyThreshold(const QString& pRole, const Signed& pSigned, const RoleKeys& pRoleKeys,
                        const KeyMap& pKeys);

} // namespace tarn::tuf

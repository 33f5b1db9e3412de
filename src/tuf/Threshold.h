#pragma once

#include "tuf/Metadata.h"

namespace tarn::tuf {

// Whether enough keys of a role signed. A key counts once, under however many ids it is listed; signatures of
// keys that aren't the role's are passed over.
Failure verifyThreshold(const QString& pRole, const Signed& pSigned, const RoleKeys& pRoleKeys,
                        const KeyMap& pKeys);

} // namespace tarn::tuf

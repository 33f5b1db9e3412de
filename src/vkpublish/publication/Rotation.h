#pragma once

#include "publication/Publication.h"

namespace tarn::vkpublish {

// Replaces the key of a role and publishes. The order of the steps ensures that clients accept the repository
// at every moment, whichever root they have: as long as a copy of the previous state may count as the newest,
// the role's old key signs in addition to the new one. *pOldUntil: when that ends. The key folder must be
// open.
Failure rotateKey(KeyFolder* pKeys, Publication* pPublication, const QString& pRole, const KeyFile& pNew,
                  const PublicationTimes& pTimes, const QDateTime& pRootExpires, QDateTime* pOldUntil);

} // namespace tarn::vkpublish

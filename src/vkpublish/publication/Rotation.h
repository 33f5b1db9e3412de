#pragma once

#include "publication/Publication.h"

namespace tarn::vkpublish {

// Replaces the only key of a role and publishes. If the new root lacks signatures of keys elsewhere, it stays
// as a draft, and the rest is published. The order of the steps ensures that clients accept the repository at
// every moment, whichever root they have: as long as a copy of the previous state may count as the newest,
// the role's old key signs in addition to the new one. *pOldUntil: when that ends. The key folder must be
// open.
Failure rotateKey(KeyFolder* pKeys, Publication* pPublication, const QString& pRole, const KeyFile& pNew,
                  const PublicationTimes& pTimes, const QDateTime& pRootExpires, QDateTime* pOldUntil);

} // namespace tarn::vkpublish

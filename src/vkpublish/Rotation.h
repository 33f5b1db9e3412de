#pragma once

#include "Publication.h"

namespace tarn::vkpublish {

// Gives a role a new key and publishes, in such an order that clients accept the repository at every moment
// of it, whichever root they know: for as long as a copy of the state before may count as the newest, the
// role's old key signs beside the new one. *pOldUntil: when that ends. The key folder must be open.
Failure rotateKey(KeyFolder* pKeys, Publication* pPublication, const QString& pRole, const QString& pKeyType,
                  const PublicationTimes& pTimes, const QDateTime& pRootExpires, QDateTime* pOldUntil);

} // namespace tarn::vkpublish

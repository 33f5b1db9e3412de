#pragma once

#include <QtCore/QByteArrayView>

namespace tarn::vkpublish {

// False if the two have hardly any run of 16 bytes in common, as two versions of random, encrypted or newly
// packed bytes: no patch would be smaller than pMade. Takes a hundredth of the time of looking for a patch.
bool areRelated(QByteArrayView pBase, QByteArrayView pMade);

} // namespace tarn::vkpublish

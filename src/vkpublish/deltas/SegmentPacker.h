#pragma once

#include "trees/Delta.h"

#include <QtCore/QByteArray>
#include <QtCore/QByteArrayView>

namespace tarn::vkpublish {

struct PackedSegment
{
    trees::PatchMethod mMethod = trees::PatchMethod::Plain;
    QByteArray mBytes;
};

// What makes pMade out of pBase, by the method that takes the fewest bytes; the same bytes from the same
// input. Without bytes if there is no memory for it: it takes some 30 MiB.
PackedSegment packSegment(QByteArrayView pBase, QByteArrayView pMade);

} // namespace tarn::vkpublish

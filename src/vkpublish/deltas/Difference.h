#pragma once

#include <QtCore/QByteArray>
#include <QtCore/QByteArrayView>

namespace tarn::vkpublish {

// The three streams of a bsdiff patch, see trees/Delta.h.
struct Difference
{
    QByteArray mControl;
    QByteArray mDifference;
    QByteArray mExtra;
};

// How to make pNew out of pBase. Finds long stretches that are alike though not the same, as compiled code is
// whose addresses have moved.
Difference difference(QByteArrayView pBase, QByteArrayView pNew);

} // namespace tarn::vkpublish

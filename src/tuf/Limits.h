#pragma once

#include <QtCore/QtGlobal>

namespace tarn::tuf {

// What a repository may ask of this machine.
struct Limits
{
    int mMaxRootRotations = 256;
    int mMaxDelegations = 32;
    qint64 mRootLength = 512 * 1024; // bytes, as are the others
    qint64 mTimestampLength = 16 * 1024;
    qint64 mSnapshotLength = 2 * 1024 * 1024;
    qint64 mTargetsLength = 16 * 1024 * 1024;
};

} // namespace tarn::tuf

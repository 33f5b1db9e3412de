#include "trees/FrameTable.h"

#include <algorithm>

namespace tarn::trees {

bool FrameTable::append(const Frame& pFrame)
{
    mPackedStarts.push_back(mPackedEnd);
    mUnpackedStarts.push_back(mUnpackedEnd);
    mFrames.push_back(pFrame);
    return pFrame.mUnpacked > 0 && pFrame.mPacked > 0 &&
           !__builtin_add_overflow(mPackedEnd, pFrame.mPacked, &mPackedEnd) &&
           !__builtin_add_overflow(mUnpackedEnd, pFrame.mUnpacked, &mUnpackedEnd);
}

ByteRange FrameTable::packed(qsizetype pFrame) const
{
    return {mPackedStarts[static_cast<size_t>(pFrame)], at(pFrame).mPacked};
}

ByteRange FrameTable::unpacked(qsizetype pFrame) const
{
    return {mUnpackedStarts[static_cast<size_t>(pFrame)], at(pFrame).mUnpacked};
}

qsizetype FrameTable::frameAt(qint64 pUnpacked) const
{
    return std::upper_bound(mUnpackedStarts.begin(), mUnpackedStarts.end(), pUnpacked) -
           mUnpackedStarts.begin() - 1;
}

} // namespace tarn::trees

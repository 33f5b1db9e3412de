#pragma once

#include <QtCore/QtGlobal>

namespace tarn::vkpublish {

// Says where the frames of a tar stream end. Small entries share a frame, which ends before the entry that
// makes it too long. A longer entry has frames of its own, of about the same length.
class FrameCutter
{
public:
    // pFrameSize: the most bytes that a frame holds unpacked.
    explicit FrameCutter(qint64 pFrameSize) : mFrameSize(pFrameSize) {}

    // An entry of so many bytes follows. True: the open frame ends before it.
    bool begin(qint64 pLength)
    {
        const bool tIsLong = pLength > mFrameSize;
        const bool tEnds = mUsed > 0 && (tIsLong || mIsOwn || mUsed + pLength > mFrameSize);
        mUsed = tEnds ? 0 : mUsed;
        mIsOwn = tIsLong;
        const qint64 tParts = (pLength + mFrameSize - 1) / mFrameSize;
        mLimit = tIsLong ? (pLength + tParts - 1) / tParts : mFrameSize;
        return tEnds;
    }
    // How many of the bytes that follow are in the open frame.
    qint64 room() const { return mLimit - mUsed; }
    // So many bytes follow, at most room(). True: the frame ends after them.
    bool advance(qint64 pBytes)
    {
        mUsed += pBytes;
        const bool tEnds = mUsed == mLimit;
        mUsed = tEnds ? 0 : mUsed;
        return tEnds;
    }

private:
    qint64 mFrameSize;
    qint64 mLimit = 0; // bytes at which the open frame ends
    qint64 mUsed = 0;
    bool mIsOwn = false; // the open frame is that of a long entry
};

} // namespace tarn::vkpublish

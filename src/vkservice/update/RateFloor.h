#pragma once

#include <QtCore/QtGlobal>

#include <algorithm>
#include <chrono>

namespace tarn::vkservice::update {

// The lowest rate that a server must reach, over all files: an average in each period. Data around the files
// (headers, pages of redirects) does not count, so that it cannot keep a transfer alive forever.
class RateFloor
{
public:
    using Clock = std::chrono::steady_clock;

    // pBytesPerSecond 0: no limit.
    RateFloor(qint64 pBytesPerSecond, std::chrono::seconds pPeriod)
        : mNeeded(pBytesPerSecond * pPeriod.count()), mPeriod(pPeriod)
    {
    }

    // Adds a time span in which this machine was ready to receive. pBytesSoFar: the total that the server has
    // sent. False if a period is over and the server sent too little in it.
    bool isKept(Clock::duration pTime, qint64 pBytesSoFar)
    {
        // A longer span means that this process was suspended.
        constexpr Clock::duration sLongest = std::chrono::seconds(2);
        mTime += std::clamp(pTime, Clock::duration::zero(), sLongest);
        if (mTime < mPeriod) {
            return true;
        }
        const bool tKept = pBytesSoFar - mBytesBefore >= mNeeded;
        mTime = Clock::duration::zero();
        mBytesBefore = pBytesSoFar;
        return tKept;
    }

private:
    qint64 mNeeded; // bytes in a period
    Clock::duration mPeriod;
    Clock::duration mTime{0};
    qint64 mBytesBefore = 0;
};

} // namespace tarn::vkservice::update

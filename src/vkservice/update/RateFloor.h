#pragma once

#include <QtCore/QtGlobal>

#include <algorithm>
#include <chrono>

namespace tarn::vkservice::update {

// The least that a server has to give, all files together: an average in each period. What comes beside the
// files (headers, pages of redirects) does not count, so that nothing of it can go on for ever.
class RateFloor
{
public:
    using Clock = std::chrono::steady_clock;

    // pBytesPerSecond 0: a server may be as slow as it likes.
    RateFloor(qint64 pBytesPerSecond, std::chrono::seconds pPeriod)
        : mNeeded(pBytesPerSecond * pPeriod.count()), mPeriod(pPeriod)
    {
    }

    // A stretch of time in which this machine was ready to take bytes, and how many the server has given so
    // far, since the beginning. False if a period is over and it gave too little in it.
    bool isKept(Clock::duration pTime, qint64 pBytesSoFar)
    {
        // A longer stretch is one in which this process stood still.
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

#pragma once

#include <QtCore/QtGlobal>

#include <algorithm>
#include <chrono>

namespace tarn::vkservice::update {

// The bandwidth that all files of a server share. Each amount received delays the next one; unused time is
// not saved up.
class RateLimit
{
public:
    using Clock = std::chrono::steady_clock;

    explicit RateLimit(qint64 pBytesPerSecond) : mBytesPerSecond(pBytesPerSecond) {}

    bool isFree(Clock::time_point pNow) const { return mBytesPerSecond <= 0 || pNow >= mNext; }
    Clock::time_point next() const { return mNext; }
    // The total number of bytes received.
    qint64 taken() const { return mTaken; }
    void take(qint64 pBytes, Clock::time_point pNow)
    {
        mTaken += pBytes;
        if (mBytesPerSecond > 0) {
            mNext = std::max(mNext, pNow) + std::chrono::microseconds(pBytes * 1000000 / mBytesPerSecond);
        }
    }

private:
    qint64 mBytesPerSecond; // 0: no limit
    Clock::time_point mNext;
    qint64 mTaken = 0;
};

} // namespace tarn::vkservice::update

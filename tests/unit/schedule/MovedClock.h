#pragma once

#include "Test.h"

#include "schedule/Clock.h"

#include <algorithm>

inline QDateTime date(const char* pText)
{
    return QDateTime::fromString(q(pText), Qt::ISODate);
}

// A clock that only the test moves, in the middle of a second like real clocks.
class MovedClock : public tarn::vkservice::schedule::Clock
{
public:
    explicit MovedClock(const QDateTime& pNow) : mNow(pNow) {}

    void wakeAt(const QDateTime& pWhen) override { mWake = pWhen; }

    // Time passes, with every wake-up.
    void runUntil(const QDateTime& pWhen)
    {
        while (mWake.isValid() && mWake <= pWhen) {
            mNow = std::max(mNow, mWake);
            mWake = {};
            Q_EMIT woke();
        }
        mNow = pWhen;
    }
    // The clock is set, or the machine slept: only one wake-up at the end.
    void jumpTo(const QDateTime& pWhen)
    {
        mNow = pWhen;
        mWake = {};
        Q_EMIT woke();
    }

    QDateTime mNow;
    QDateTime mWake;

private:
    QDateTime moment() const override { return mNow.addMSecs(789); }
};

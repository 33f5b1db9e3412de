#pragma once

#include "values/Opening.h"

#include <functional>

namespace tarn::vkservice::update {

// The opening at a time, else the next one. May be called from any thread.
using OpeningAt = std::function<Opening(const QDateTime& pNow)>;

// When a run may switch to what it has prepared. It begins no switch in the last minutes of an opening, so
// that the switch ends inside of it.
class SwitchTime
{
public:
    static constexpr int sLastSeconds = 5 * 60;

    // No function: at any time.
    explicit SwitchTime(const OpeningAt& pOpeningAt) : mOpeningAt(pOpeningAt) {}

    bool isNow(const QDateTime& pNow) const { return !mOpeningAt || secondsLeft(pNow) > 0; }
    // How long a run may wait before it begins to switch, at most pMost.
    int boundedWait(const QDateTime& pNow, int pMost) const;
    // The begin of the next opening.
    QDateTime next(const QDateTime& pNow) const;

private:
    qint64 secondsLeft(const QDateTime& pNow) const;

    OpeningAt mOpeningAt;
};

} // namespace tarn::vkservice::update

#include "update/SwitchTime.h"

#include <algorithm>

namespace tarn::vkservice::update {

// Not positive outside of an opening.
qint64 SwitchTime::secondsLeft(const QDateTime& pNow) const
{
    const Opening tOpening = mOpeningAt(pNow);
    return tOpening.isOpen(pNow) ? pNow.secsTo(tOpening.mUntil) - sLastSeconds : 0;
}

int SwitchTime::boundedWait(const QDateTime& pNow, int pMost) const
{
    return mOpeningAt ? static_cast<int>(std::clamp<qint64>(secondsLeft(pNow), 0, pMost)) : pMost;
}

QDateTime SwitchTime::next(const QDateTime& pNow) const
{
    const Opening tOpening = mOpeningAt ? mOpeningAt(pNow) : Opening{pNow, pNow};
    return tOpening.isOpen(pNow) ? mOpeningAt(tOpening.mUntil).mFrom : tOpening.mFrom;
}

} // namespace tarn::vkservice::update

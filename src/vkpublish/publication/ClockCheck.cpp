#include "publication/ClockCheck.h"

#include "record/Record.h"

using namespace Qt::StringLiterals;

namespace tarn::vkpublish {

namespace {

constexpr int sMostDaysBehind = 1;
constexpr int sMostDaysAhead = 180; // nobody publishes that rarely: machines refuse the state before

} // namespace

Failure checkClock(const Record& pRecord, const QDateTime& pClock)
{
    const QDateTime& tLast = pRecord.mSignedAt;
    if (!tLast.isValid() ||
        (pClock >= tLast.addDays(-sMostDaysBehind) && pClock <= tLast.addDays(sMostDaysAhead))) {
        return {};
    }
    return Failure::content(
        u"By this machine's clock it is %1, and by the record the last publication was on %2: set the clock, "
        "or say with --trust-clock of publish or refresh that it is right"_s.arg(
            pClock.toUTC().toString(Qt::ISODate), tLast.toUTC().toString(Qt::ISODate)));
}

} // namespace tarn::vkpublish

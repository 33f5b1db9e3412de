#include <vkcore/Scheduler.h>

#include <algorithm>

namespace tarn::vkcore {

namespace {

// How many periods fit between two dates, off by at most two: local days and months differ in length.
qint64 periodsBetween(const QDateTime& pFrom, const QDateTime& pTo, int pCount, Scheduler::PeriodUnit pUnit)
{
    switch (pUnit) {
    case Scheduler::PeriodHour:
        return pFrom.secsTo(pTo) / (qint64{3600} * pCount);
    case Scheduler::PeriodDay:
        return pFrom.secsTo(pTo) / (qint64{86400} * pCount);
    case Scheduler::PeriodWeek:
        return pFrom.secsTo(pTo) / (qint64{7 * 86400} * pCount);
    case Scheduler::PeriodMonth:
        break;
    }
    const QDate tFrom = pFrom.date();
    const QDate tTo = pTo.date();
    return ((qint64{tTo.year()} - tFrom.year()) * 12 + tTo.month() - tFrom.month()) / pCount;
}

// The last year of a date in the protocol.
constexpr int sLastYear = 9999;
constexpr qint64 sLastYearDays = qint64{sLastYear} * 366;

// Invalid after the last year.
QDateTime advanced(const QDateTime& pDate, qint64 pSteps, Scheduler::PeriodUnit pUnit)
{
    QDateTime tDate;
    if (pUnit == Scheduler::PeriodHour) {
        tDate = pSteps > sLastYearDays * 24 ? tDate : pDate.addSecs(pSteps * 3600);
    } else if (pUnit == Scheduler::PeriodDay) {
        tDate = pSteps > sLastYearDays ? tDate : pDate.addDays(pSteps);
    } else if (pUnit == Scheduler::PeriodWeek) {
        tDate = pSteps > sLastYearDays / 7 ? tDate : pDate.addDays(pSteps * 7);
    } else {
        tDate = pSteps > sLastYear * 12 ? tDate : pDate.addMonths(static_cast<int>(pSteps));
    }
    return tDate.date().year() > sLastYear ? QDateTime() : tDate;
}

} // namespace

QDateTime Scheduler::nextValidUpdateTime(const QDateTime& pDate, int pCount, PeriodUnit pUnit,
                                         const QDateTime& pNow, int pLeadSeconds)
{
    const QDateTime tNow = pNow.isValid() ? pNow : QDateTime::currentDateTime();
    const QDateTime tEarliest = tNow.addSecs(pLeadSeconds);
    if (pCount <= 0 || !pDate.isValid()) {
        return tEarliest;
    }
    if (pDate >= tEarliest) {
        return pDate;
    }
    // The estimate may be off by two, so the last steps are searched. Each is counted from pDate, because a
    // step from a shortened month or a skipped hour would keep its error.
    qint64 tPeriods = std::max<qint64>(0, periodsBetween(pDate, tEarliest, pCount, pUnit) - 2);
    QDateTime tResult = advanced(pDate, tPeriods * pCount, pUnit);
    while (tResult.isValid() && tResult < tEarliest) {
        tResult = advanced(pDate, ++tPeriods * pCount, pUnit);
    }
    return tResult.isValid() ? tResult
                             : std::max(tEarliest, QDateTime(QDate(sLastYear, 12, 31), pDate.time()));
}

} // namespace tarn::vkcore

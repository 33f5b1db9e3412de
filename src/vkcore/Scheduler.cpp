#include <vkcore/Scheduler.h>

#include <algorithm>

namespace tarn::vkcore {

namespace {

constexpr qint64 secondsOf(Scheduler::PeriodUnit pUnit)
{
    switch (pUnit) {
    case Scheduler::PeriodHour:
        return 3600;
    case Scheduler::PeriodDay:
        return 86400;
    case Scheduler::PeriodWeek:
        return 7 * 86400;
    case Scheduler::PeriodMonth:
        break;
    }
    return 28 * 86400; // the shortest month
}

QDateTime advanced(const QDateTime& pDate, qint64 pPeriods, int pCount, Scheduler::PeriodUnit pUnit)
{
    const qint64 tSteps = pPeriods * pCount;
    switch (pUnit) {
    case Scheduler::PeriodHour:
        return pDate.addSecs(tSteps * 3600);
    case Scheduler::PeriodDay:
        return pDate.addDays(tSteps);
    case Scheduler::PeriodWeek:
        return pDate.addDays(tSteps * 7);
    case Scheduler::PeriodMonth:
        break;
    }
    return pDate.addMonths(static_cast<int>(tSteps));
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
    // Days and months do not all have the same length, so a division only says about where the date lies.
    // Months are estimated from the calendar, the others from their seconds; the last steps are walked.
    qint64 tPeriods = 0;
    if (pUnit == PeriodMonth) {
        const QDate tFrom = pDate.date();
        const QDate tTo = tEarliest.date();
        const qint64 tMonths = (tTo.year() - tFrom.year()) * 12LL + tTo.month() - tFrom.month();
        tPeriods = tMonths / pCount;
    } else {
        tPeriods = pDate.secsTo(tEarliest) / (secondsOf(pUnit) * pCount);
    }
    tPeriods = std::max<qint64>(0, tPeriods - 1);
    QDateTime tResult = advanced(pDate, tPeriods, pCount, pUnit);
    while (tResult.isValid() && tResult < tEarliest) {
        tResult = advanced(pDate, ++tPeriods, pCount, pUnit);
    }
    return tResult.isValid() ? tResult : tEarliest;
}

} // namespace tarn::vkcore

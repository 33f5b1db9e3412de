#include "schedule/ScheduleRules.h"

#include <QtCore/QCryptographicHash>
#include <QtCore/QtEndian>

namespace tarn::vkservice::schedule {

using vkcore::Scheduler;

namespace {

constexpr int sLastYear = 9999;            // what a date on the socket can say
constexpr qint64 sToleranceSeconds = 7200; // an hour that comes twice, and some

// pPeriods may be negative. Invalid where the calendar ends.
QDateTime shifted(const QDateTime& pDate, int pPeriods, const ScheduleSettings& pSchedule)
{
    const qint64 tSteps = qint64(pPeriods) * pSchedule.mPeriodCount;
    switch (pSchedule.mUnit) {
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

QDateTime bounded(const QDateTime& pDate)
{
    return pDate.isValid() && pDate.date().year() <= sLastYear
               ? pDate
               : QDateTime(QDate(sLastYear, 12, 31), QTime(0, 0));
}

QDateTime nextFrom(const QDateTime& pDate, const ScheduleSettings& pSchedule, const QDateTime& pNow,
                   int pLead)
{
    return bounded(
        Scheduler::nextValidUpdateTime(pDate, pSchedule.mPeriodCount, pSchedule.mUnit, pNow, pLead));
}

bool samePeriod(const ScheduleSettings& pOne, const ScheduleSettings& pOther)
{
    return pOne.mPeriodCount == pOther.mPeriodCount && pOne.mUnit == pOther.mUnit;
}

// The date from which a new period counts: where the old one began.
QDateTime beginOfPeriod(const ScheduleSettings& pOld)
{
    if (!pOld.mNextCheck.isValid() || pOld.mPeriodCount <= 0) {
        return {};
    }
    return shifted(pOld.mNextCheck, -1, pOld);
}

} // namespace

bool runsByDate(const ScheduleSettings& pSchedule)
{
    return pSchedule.mMode != Scheduler::AutoUpdateManual && !pSchedule.atLogin();
}

ScheduleSettings afterChange(const ScheduleSettings& pOld, const ScheduleSettings& pWanted,
                             const QDateTime& pNow)
{
    ScheduleSettings tNew = pWanted;
    const bool tDateChanged = pWanted.mNextCheck != pOld.mNextCheck && pWanted.mNextCheck.isValid();
    tNew.mNextCheckChosen = tDateChanged || (pOld.mNextCheckChosen && pWanted.mNextCheck.isValid());
    const QDateTime tBegin = beginOfPeriod(pOld);
    if (!tDateChanged && !samePeriod(pOld, pWanted) && tBegin.isValid()) {
        const QDateTime tFirst = shifted(tBegin, 1, pWanted);
        tNew.mNextCheck = tFirst.isValid() ? nextFrom(tFirst, pWanted, pNow, 0) : bounded(tFirst);
        tNew.mNextCheckChosen = false;
    }
    if (!runsByDate(tNew)) {
        return tNew;
    }
    if (!tNew.mNextCheck.isValid() || tNew.mNextCheck < pNow) {
        tNew.mNextCheck = nextFrom(tNew.mNextCheck, tNew, pNow, sLeadSeconds);
    }
    return tNew;
}

ScheduleSettings afterCheck(const ScheduleSettings& pSchedule, const QDateTime& pNow)
{
    ScheduleSettings tNext = pSchedule;
    // A second ahead at least: the date that has just come must not come again.
    tNext.mNextCheck =
        nextFrom(pSchedule.mNextCheck, pSchedule, pNow, pSchedule.mPeriodCount > 0 ? 1 : sLeadSeconds);
    tNext.mNextCheckChosen = false;
    return tNext;
}

ScheduleSettings afterClockChange(const ScheduleSettings& pSchedule, const QDateTime& pNow)
{
    if (pSchedule.mNextCheckChosen || !pSchedule.mNextCheck.isValid()) {
        return pSchedule;
    }
    const QDateTime tLatest =
        pSchedule.mPeriodCount > 0 ? shifted(pNow, 1, pSchedule) : pNow.addSecs(sLeadSeconds);
    if (!tLatest.isValid() || pSchedule.mNextCheck <= tLatest.addSecs(sToleranceSeconds)) {
        return pSchedule;
    }
    ScheduleSettings tBack = pSchedule;
    tBack.mNextCheck = bounded(QDateTime(tLatest.date(), pSchedule.mNextCheck.time()));
    if (tBack.mNextCheck <= pNow) {
        tBack.mNextCheck = tLatest;
    }
    return tBack;
}

int jitterOffset(const QDateTime& pNextCheck, int pJitterSeconds, const QByteArray& pMachine)
{
    if (pJitterSeconds <= 0) {
        return 0;
    }
    QCryptographicHash tHash(QCryptographicHash::Sha256);
    tHash.addData(pMachine);
    tHash.addData(pNextCheck.toString(Qt::ISODate).toUtf8());
    const auto tNumber = qFromBigEndian<quint32>(tHash.result().constData());
    return static_cast<int>(tNumber % (quint32(pJitterSeconds) + 1));
}

} // namespace tarn::vkservice::schedule

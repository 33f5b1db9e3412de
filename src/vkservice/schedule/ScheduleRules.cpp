#include "schedule/ScheduleRules.h"

#include <QtCore/QCryptographicHash>
#include <QtCore/QtEndian>

#include <algorithm>

namespace tarn::vkservice::schedule {

using vkcore::Scheduler;

namespace {

constexpr int sLastYear = 9999; // the last year that a date on the socket can have
constexpr int sVerifySpreadSeconds = 24 * 3600;
constexpr int sMissedVerifySpreadSeconds = 600;
constexpr qint64 sToleranceSeconds = 7200; // covers an hour that occurs twice, with a margin

// True for a period beyond the largest possible date. Qt adds months in a loop over the years, so it must not
// be called with such a period.
bool isEndless(const Period& pPeriod)
{
    constexpr qint64 sHours[] = {1, 24, 7 * 24, 28 * 24};
    return pPeriod.mCount * sHours[pPeriod.mUnit] > qint64(sLastYear) * 366 * 24;
}

// pPeriods may be negative. Invalid if the result is outside the calendar.
QDateTime shifted(const QDateTime& pDate, int pPeriods, const Period& pPeriod)
{
    if (isEndless(pPeriod)) {
        return {};
    }
    const qint64 tSteps = qint64(pPeriods) * pPeriod.mCount;
    switch (pPeriod.mUnit) {
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

QDateTime nextFrom(const QDateTime& pAnchor, const Period& pPeriod, const QDateTime& pNow)
{
    if (isEndless(pPeriod)) {
        return pAnchor > pNow ? pAnchor : bounded({});
    }
    return bounded(Scheduler::nextValidUpdateTime(pAnchor, pPeriod.mCount, pPeriod.mUnit, pNow, 1));
}

QDateTime anchorOf(const ScheduleSettings& pSchedule)
{
    return pSchedule.mAnchor.isValid() ? pSchedule.mAnchor : pSchedule.mNextCheck;
}

// The date from which a new period counts: the start of the old one, or now if that is not known.
QDateTime beginOfPeriod(const ScheduleSettings& pOld, const QDateTime& pNow)
{
    const QDateTime tBegin = shifted(pOld.mNextCheck, -1, pOld.period());
    return tBegin.isValid() ? tBegin : pNow;
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
    const bool tNamed = pWanted.mNextCheck.isValid() && pWanted.mNextCheck != pOld.mNextCheck;
    tNew.mNextCheckChosen = pWanted.mNextCheck.isValid() && (tNamed || pOld.mNextCheckChosen);
    tNew.mAnchor = tNamed ? pWanted.mNextCheck : pOld.mAnchor;
    if (!tNew.mNextCheckChosen && pOld.period() != pWanted.period() && tNew.mNextCheck.isValid()) {
        tNew.mAnchor = beginOfPeriod(pOld, pNow);
        tNew.mNextCheck = nextFrom(tNew.mAnchor, tNew.period(), pNow);
    }
    if (!runsByDate(tNew)) {
        return tNew;
    }
    if (!tNew.mNextCheck.isValid()) {
        tNew.mNextCheck = pNow.addSecs(sLeadSeconds);
        tNew.mAnchor = tNew.mNextCheck;
    } else if (tNew.mNextCheck < pNow) {
        tNew.mNextCheck = nextFrom(anchorOf(tNew), tNew.period(), pNow);
    }
    return tNew;
}

ScheduleSettings afterCheck(const ScheduleSettings& pSchedule, const QDateTime& pNow)
{
    ScheduleSettings tNext = pSchedule;
    tNext.mAnchor = anchorOf(pSchedule);
    tNext.mNextCheck = nextFrom(tNext.mAnchor, pSchedule.period(), pNow);
    tNext.mNextCheckChosen = false;
    return tNext;
}

ScheduleSettings afterClockChange(const ScheduleSettings& pSchedule, const QDateTime& pNow)
{
    if (pSchedule.mNextCheckChosen || !pSchedule.mNextCheck.isValid()) {
        return pSchedule;
    }
    const QDateTime tLatest = shifted(pNow, 1, pSchedule.period());
    if (!tLatest.isValid() || pSchedule.mNextCheck <= tLatest.addSecs(sToleranceSeconds)) {
        return pSchedule;
    }
    ScheduleSettings tBack = pSchedule;
    tBack.mNextCheck = bounded(QDateTime(tLatest.date(), anchorOf(pSchedule).time()));
    if (tBack.mNextCheck <= pNow) {
        tBack.mNextCheck = tLatest;
    }
    tBack.mAnchor = tBack.mNextCheck;
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

QDateTime verificationDue(const QDateTime& pSince, int pDays, const QDateTime& pNotBefore,
                          const QByteArray& pMachine)
{
    const QDateTime tDate = pSince.addDays(pDays);
    return std::max(tDate.addSecs(jitterOffset(tDate, sVerifySpreadSeconds, pMachine)),
                    pNotBefore.addSecs(jitterOffset(tDate, sMissedVerifySpreadSeconds, pMachine)));
}

} // namespace tarn::vkservice::schedule

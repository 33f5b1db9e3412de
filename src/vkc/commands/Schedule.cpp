#include "vkc_Application.h"

#include "cmdline/OptionIndex.h"
#include "cmdline/WholeMatch.h"

#include <QtCore/QLocale>

using namespace Qt::StringLiterals;

namespace tarn::vkc {

using vkcore::Scheduler;

static constexpr int sLoginFlag = 1; // the check happens at the user's login, not after a period

namespace {

// The schedule as it is sent: always all of it.
struct Schedule
{
    Scheduler::AutoUpdateMode mMode = Scheduler::AutoUpdateManual;
    int mFlags = 0;
    QDateTime mNextCheck;
    int mPeriodCount = 0;
    Scheduler::PeriodUnit mUnit = Scheduler::PeriodHour;
    QString mExtra;
};

} // namespace

static bool fetch(vkcore::IPCClient* pClient, Schedule* pSchedule)
{
    return pClient->getScheduleParameters(&pSchedule->mMode, &pSchedule->mFlags, &pSchedule->mNextCheck,
                                          &pSchedule->mPeriodCount, &pSchedule->mUnit, &pSchedule->mExtra);
}

static QString modeText(Scheduler::AutoUpdateMode pMode)
{
    switch (pMode) {
    case Scheduler::AutoUpdateManual:
        return VKCApplication::tr("Manual updates");
    case Scheduler::AutoUpdateNotification:
        return VKCApplication::tr("Update notification");
    case Scheduler::AutoUpdateAutomatic:
        return VKCApplication::tr("Automatic updates");
    }
    return QString();
}

static QString periodText(const Schedule& pSchedule)
{
    if ((pSchedule.mFlags & sLoginFlag) != 0) {
        return VKCApplication::tr("On user login");
    }
    switch (pSchedule.mUnit) {
    case Scheduler::PeriodHour:
        return VKCApplication::tr("%n hour(s)", nullptr, pSchedule.mPeriodCount);
    case Scheduler::PeriodDay:
        return VKCApplication::tr("%n day(s)", nullptr, pSchedule.mPeriodCount);
    case Scheduler::PeriodWeek:
        return VKCApplication::tr("%n week(s)", nullptr, pSchedule.mPeriodCount);
    case Scheduler::PeriodMonth:
        return VKCApplication::tr("%n month(s)", nullptr, pSchedule.mPeriodCount);
    }
    return QString();
}

int VKCApplication::cmdShowScheduleSettings()
{
    if (!connectToServer(true)) {
        return 1;
    }
    Schedule tSchedule;
    if (!fetch(mClient, &tSchedule)) {
        return fail(tr("Failed to get current schedule parameters."));
    }
    printLine(tr("Automatic installation mode: %1").arg(modeText(tSchedule.mMode)));
    if (tSchedule.mMode == Scheduler::AutoUpdateManual) {
        return 0;
    }
    printLine(tr("Update period: %1").arg(periodText(tSchedule)));
    if ((tSchedule.mFlags & sLoginFlag) == 0) {
        printLine(tr("Next scheduled check: %1").arg(dateTimeText(tSchedule.mNextCheck)));
    }
    return 0;
}

// All checks come before the only call that writes, so a refused command has changed nothing.
int VKCApplication::cmdUpdateScheduleSettings()
{
    if (noOwnOptions()) {
        return 0;
    }
    if (!connectForChange()) {
        return 1;
    }
    Schedule tSchedule;
    if (!fetch(mClient, &tSchedule)) {
        return fail(tr("Failed to get current schedule parameters."));
    }
    // The check of an interval sees the new mode, the adjustment of a date the new interval.
    if (!readMode(&tSchedule.mMode) ||
        !readInterval(tSchedule.mMode, &tSchedule.mFlags, &tSchedule.mPeriodCount, &tSchedule.mUnit) ||
        !readNextUpdate(&tSchedule.mNextCheck, tSchedule.mPeriodCount, tSchedule.mUnit)) {
        return 1;
    }
    if (!mClient->setScheduleParameters(tSchedule.mMode, tSchedule.mFlags, tSchedule.mNextCheck,
                                        tSchedule.mPeriodCount, tSchedule.mUnit, tSchedule.mExtra, true)) {
        return fail(tr("Failed to update settings."));
    }
    printLine(tr("The changes were successfully applied."));
    return 0;
}

bool VKCApplication::readMode(Scheduler::AutoUpdateMode* pMode)
{
    if (!optPassed(OPT_MODE)) {
        return true;
    }
    const QString tWord = optArg(OPT_MODE, QString());
    if (tWord == u"manual"_s) {
        *pMode = Scheduler::AutoUpdateManual;
        return true;
    }
    if (tWord == u"automatic"_s) {
        *pMode = Scheduler::AutoUpdateAutomatic;
        return true;
    }
    if (tWord == u"notification"_s) {
        return printError(tr("Update notifications are not available on your operating system"));
    }
    return printError(tr("Invalid mode '%1'").arg(tWord));
}

bool VKCApplication::readInterval(Scheduler::AutoUpdateMode pMode, int* pFlags, int* pCount,
                                  Scheduler::PeriodUnit* pUnit)
{
    if (!optPassed(OPT_INTERVAL)) {
        return true;
    }
    const QString tTyped = optArg(OPT_INTERVAL, QString());
    const QRegularExpressionMatch tMatch = wholeMatch(u"^(?:([0-9]+)([hdwm])|login)$"_s, tTyped);
    if (!tMatch.hasMatch()) {
        return printError(tr("Invalid interval '%1'").arg(tTyped));
    }
    if (tTyped == u"login"_s) {
        if (pMode == Scheduler::AutoUpdateAutomatic) {
            return printError(tr("The interval 'login' only works in the notification mode."));
        }
        *pFlags |= sLoginFlag;
        return true;
    }
    *pFlags &= ~sLoginFlag;
    *pCount = tMatch.captured(1).toInt(); // 0 if it exceeds an int
    *pUnit = static_cast<Scheduler::PeriodUnit>(u"hdwm"_s.indexOf(tMatch.captured(2)));
    return true;
}

bool VKCApplication::readNextUpdate(QDateTime* pNextCheck, int pCount, Scheduler::PeriodUnit pUnit)
{
    if (!optPassed(OPT_NEXT_UPDATE)) {
        return true;
    }
    const QString tTyped = optArg(OPT_NEXT_UPDATE, QString());
    *pNextCheck = QLocale(QLocale::C).toDateTime(tTyped, u"yyyy-MM-dd hh:mm:ss"_s);
    if (!pNextCheck->isValid()) {
        return printError(tr("Invalid date for next update '%1'").arg(tTyped));
    }
    if (*pNextCheck < QDateTime::currentDateTime()) {
        *pNextCheck = Scheduler::nextValidUpdateTime(*pNextCheck, pCount, pUnit, QDateTime(), 600);
        printError(tr("NOTICE: the date '%1' is in the past and has been adjusted to '%2'")
                       .arg(tTyped, dateTimeText(*pNextCheck)));
    }
    return true;
}

} // namespace tarn::vkc

#include "vkc_Application.h"

#include "cmdline/OptionIndex.h"
#include "cmdline/WholeMatch.h"

#include <QtCore/QSysInfo>

using namespace Qt::StringLiterals;

namespace tarn::vkc {

using vkcore::MonitoringSettings;

int VKCApplication::cmdShowMonitoringSettings()
{
    if (!connectToServer(true)) {
        return 1;
    }
    MonitoringSettings tSettings;
    if (!mClient->getMonitoringSettings(&tSettings)) {
        return fail(tr("Failed to get monitoring settings"));
    }

    const QString tIndent = u"  "_s;
    const QString tLines[] = {
        tr("Send event e-mails: %1").arg(yesNo(tSettings.eventMailsEnabled())),
        tIndent + tr("When an update is performed: %1").arg(yesNo(tSettings.eventMailOnUpdate())),
        tIndent + tr("When an update is overdue: %1").arg(yesNo(tSettings.eventMailOnOverdue())),
        tIndent + tr("When manual intervention is necessary: %1")
                      .arg(yesNo(tSettings.eventMailOnManualIntervention())),
        QString(),
        tr("Send summarized status e-mail: %1").arg(yesNo(tSettings.summarizedMailsEnabled())),
        tIndent + tr("Only send on status changes: %1").arg(yesNo(tSettings.summarizedMailsOnChangeOnly())),
        tIndent + tr("Send interval: %n day(s)", nullptr, tSettings.summarizedMailPeriod()),
        QString(),
        tr("An update is considered overdue after %n day(s)", nullptr, tSettings.updateOverduePeriod()),
        QString(),
        tr("Computer name: %1").arg(tSettings.clientName()),
        QString(),
        u"Notification e-mail addresses:"_s,
    };
    for (const QString& tLine : tLines) {
        printLine(tLine);
    }
    for (const vkcore::MonitoringEmail& tEmail : tSettings.notificationEmailAddresses()) {
        const QString tState = tEmail.isVerified() ? tr("verified") : u"not verified"_s;
        printLine(u"  %1 (%2)"_s.arg(tEmail.mAddress, tState));
    }
    return 0;
}

int VKCApplication::cmdUpdateMonitoringSettings()
{
    if (noOwnOptions()) {
        return 0;
    }
    if (!connectForChange()) {
        return 1;
    }
    MonitoringSettings tSettings;
    if (!mClient->getMonitoringSettings(&tSettings)) {
        return fail(tr("Failed to get monitoring settings"));
    }
    if (!applyMonitoringOptions(&tSettings)) {
        return 1;
    }
    if (!mClient->setMonitoringSettings(tSettings)) {
        return fail(tr("Failed to update monitoring settings"));
    }
    printLine(tr("The changes were successfully applied."));
    return 0;
}

static bool readDays(const QString& pTyped, int* pDays)
{
    bool tOk = false;
    *pDays = pTyped.toInt(&tOk);
    return tOk && *pDays >= 1;
}

// Separated by commas. On failure *pInvalid is the first entry that is not an address.
static bool readAddresses(const QString& pTyped, QList<QString>* pAddresses, QString* pInvalid)
{
    const QRegularExpression tComma(u"\\s*,\\s*"_s);
    const QString tPattern = u"^[a-z0-9._%+-]+@[a-z0-9.-]+\\.[a-z]{2,}$"_s;
    *pAddresses = pTyped.split(tComma, Qt::SkipEmptyParts);
    for (const QString& tAddress : *pAddresses) {
        if (!wholeMatch(tPattern, tAddress, QRegularExpression::CaseInsensitiveOption).hasMatch()) {
            *pInvalid = tAddress;
            return false;
        }
    }
    return true;
}

bool VKCApplication::applyMonitoringOptions(MonitoringSettings* pSettings)
{
    static constexpr struct
    {
        unsigned long mOption;
        void (MonitoringSettings::*mSet)(bool);
    } sSwitches[] = {
        {OPT_EVENT_MAILS, &MonitoringSettings::setEventMailsEnabled},
        {OPT_SEND_ON_UPDATE, &MonitoringSettings::setEventMailOnUpdate},
        {OPT_SEND_ON_OVERDUE, &MonitoringSettings::setEventMailOnOverdue},
        {OPT_SEND_ON_MANUAL_INTERVENTION, &MonitoringSettings::setEventMailOnManualIntervention},
        {OPT_SEND_SUMMARY, &MonitoringSettings::setSummarizedMailsEnabled},
        {OPT_SUMMARY_ON_CHANGE, &MonitoringSettings::setSummarizedMailsOnChangeOnly},
    };
    for (const auto& tSwitch : sSwitches) {
        if (optPassed(tSwitch.mOption)) {
            (pSettings->*tSwitch.mSet)(optEnabled(tSwitch.mOption, false));
        }
    }

    int tDays = 0;
    if (optPassed(OPT_SUMMARY_INTERVAL)) {
        const QString tTyped = optArg(OPT_SUMMARY_INTERVAL, QString());
        if (!readDays(tTyped, &tDays)) {
            return printError(tr("Invalid summary interval '%1'").arg(tTyped));
        }
        pSettings->setSummarizedMailPeriod(tDays);
    }
    if (optPassed(OPT_OVERDUE_TOLERANCE)) {
        const QString tTyped = optArg(OPT_OVERDUE_TOLERANCE, QString());
        if (!readDays(tTyped, &tDays)) {
            return printError(tr("Invalid overdue tolerance '%1'").arg(tTyped));
        }
        pSettings->setUpdateOverduePeriod(tDays);
    }

    if (optPassed(OPT_COMPUTER_NAME)) {
        pSettings->setClientName(optArg(OPT_COMPUTER_NAME, QString()));
    } else if (pSettings->clientName().isEmpty()) {
        // Same as QHostInfo::localHostName(), but without the network module, whose libraries would make
        // every command start a third slower.
        pSettings->setClientName(QSysInfo::machineHostName());
    }

    if (optPassed(OPT_ADDRESSES)) {
        QList<QString> tAddresses;
        QString tInvalid;
        if (!readAddresses(optArg(OPT_ADDRESSES, QString()), &tAddresses, &tInvalid)) {
            return printError(tr("Invalid e-mail address '%1'").arg(tInvalid));
        }
        pSettings->setNotificationEmailAddresses(vkcore::MonitoringEmailList(tAddresses));
    }
    return true;
}

} // namespace tarn::vkc

#include "control/MailControl.h"
#include "internal/Methods.h"
#include "mail/Address.h"
#include "methods/Group.h"
#include "methods/Methods.h"
#include "store/Settings.h"

#include <QtCore/QJsonDocument>

using namespace Qt::StringLiterals;

namespace tarn::vkservice::methods {

using namespace vkcore;
using namespace vkcore::protocol;
using ipc::MethodTable;
using ipc::Reply;

namespace {

constexpr qsizetype sMaxBytes = 1024 * 1024;

Reply getMonitoring(const MonitoringParts& pParts)
{
    const auto tSettings = pParts.mSettings.monitoring();
    return tSettings ? Reply::result(toJson(*tSettings))
                     : storeFailure(pParts.mStore, u"The monitoring settings"_s);
}

// A null text if the settings are valid.
QString complaint(const MonitoringSettings& pSettings)
{
    if (pSettings.summarizedMailPeriod() < 1 || pSettings.updateOverduePeriod() < 1) {
        return u"A monitoring period must be at least one day."_s;
    }
    for (const MonitoringEmail& tEmail : pSettings.notificationEmailAddresses()) {
        if (!mail::isMailAddress(tEmail.mAddress)) {
            return u"Invalid e-mail address: %1"_s.arg(tEmail.mAddress.left(254));
        }
    }
    const auto tJson = QJsonDocument(toJson(pSettings)).toJson(QJsonDocument::Compact);
    return tJson.size() > sMaxBytes ? u"The monitoring settings are too long."_s : QString();
}

// Only the service knows which addresses are verified and when the last summary was sent.
Reply setMonitoring(const MonitoringParts& pParts, const MonitoringChange& pChange)
{
    MonitoringSettings tWanted = pChange.mSettings;
    const QString tComplaint = complaint(tWanted);
    if (!tComplaint.isNull()) {
        return Reply::refused(tComplaint);
    }
    const auto tOld = pParts.mSettings.monitoring();
    if (!tOld) {
        return storeFailure(pParts.mStore, u"The monitoring settings"_s);
    }
    tWanted.mLastSummary = tOld->mLastSummary;
    tWanted.setNotificationEmailAddresses(
        mail::keepVerified(tOld->notificationEmailAddresses(), tWanted.notificationEmailAddresses()));
    if (!pParts.mSettings.setMonitoring(tWanted)) {
        return storeFailure(pParts.mStore, u"The monitoring settings"_s);
    }
    pParts.mMail.onMonitoringChanged(tWanted);
    return Reply::done();
}

} // namespace

void addMonitoringMethods(MethodTable& pTable, const MonitoringParts& pParts)
{
    const Group tGroup(pTable, pParts);
    tGroup.add(method::sGetMonitoringSettings, &getMonitoring);
    tGroup.add(method::sSetMonitoringSettings, MethodTable::Kind::Change, &setMonitoring);
}

} // namespace tarn::vkservice::methods

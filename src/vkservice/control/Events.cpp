#include "control/Events.h"

#include "control/UpdateControl.h"
#include "control/VerifyControl.h"
#include "internal/Methods.h"
#include "internal/PlainText.h"
#include "ipc/SocketServer.h"
#include "process/ServiceApplication.h"

using namespace Qt::StringLiterals;

namespace tarn::vkservice::control {

using namespace vkcore;
using namespace vkcore::protocol;
using process::LogLevel;

Events::Events(ipc::SocketServer& pSockets, UpdateControl& pUpdates, VerifyControl& pVerifications,
               process::ServiceApplication& pApp)
    : mSockets(pSockets), mApp(pApp)
{
    connect(&pUpdates, &UpdateControl::statusChanged, this, [this](ServiceStatus pStatus) {
        mSockets.broadcast(method::sServiceStatusChanged, toJson(StatusChange{pStatus}));
    });
    connect(&pUpdates, &UpdateControl::activityChanged, this, [this](ServiceActivity pActivity) {
        mSockets.broadcast(method::sServiceActivityChanged, toJson(ActivityChange{pActivity}));
    });
    connect(&pUpdates, &UpdateControl::notification, this,
            [this](int pType, const QString& pText, const QString& pDetails) {
                mApp.write(pType == 1 ? LogLevel::Warning : LogLevel::Info, pText + u' ' + pDetails);
                mSockets.broadcast(method::sServiceNotificationReceived,
                                   toJson(Message{pType, present(pText), present(pDetails)}));
            });
    connect(&pUpdates, &UpdateControl::logged, this,
            [this](const QString& pLine) { mApp.write(LogLevel::Info, pLine); });
    connect(
        &pUpdates, &UpdateControl::error, this,
        [this](int pType, const QString& pText, const QString& pDetails) { error(pType, pText, pDetails); });
    connect(&pVerifications, &VerifyControl::changed, this, [this, &pVerifications] {
        mSockets.broadcast(method::sVerificationChanged, toJson(pVerifications.state()));
    });
    connect(&pVerifications, &VerifyControl::damageFound, this,
            [this](const QString& pText, const QString& pDetails, const QString& pPackage) {
                error(0, pText, pDetails, {process::message::sDamageFound, {{"VK_PACKAGE", pPackage}}});
            });
}

void Events::error(int pType, const QString& pText, const QString& pDetails,
                   const process::JournalEvent& pEvent)
{
    mApp.write(LogLevel::Error, pText + u' ' + pDetails, pEvent);
    mSockets.broadcast(method::sServiceErrorReceived,
                       toJson(Message{pType, present(pText), present(pDetails)}));
}

void Events::errorToKeep(const QString& pText, const QString& pDetails, const process::JournalEvent& pEvent)
{
    error(0, pText, pDetails, pEvent);
    if (!mSockets.hasMonitor()) {
        mKeptErrors.append({.mType = 0, .mText = present(pText), .mDetails = present(pDetails)});
    }
}

void Events::checkIsDue()
{
    mSockets.broadcast(method::sServiceNotificationReceived,
                       toJson(Message{4, u"It is time to look for updates."_s, u""_s}));
}

} // namespace tarn::vkservice::control

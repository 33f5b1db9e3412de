#include "control/Events.h"

#include "control/UpdateControl.h"
#include "ipc/SocketServer.h"
#include "process/ServiceApplication.h"

using namespace Qt::StringLiterals;

namespace tarn::vkservice::control {

using namespace vkcore;
using process::LogLevel;

namespace {

QJsonObject messageParams(int pType, const QString& pText, const QString& pDetails)
{
    return {{u"type"_s, pType},
            {u"text"_s, pText},
            {u"details"_s, pDetails.isNull() ? QString(QLatin1String("")) : pDetails}};
}

} // namespace

Events::Events(ipc::SocketServer& pSockets, UpdateControl& pUpdates, process::ServiceApplication& pApp)
    : mSockets(pSockets), mApp(pApp)
{
    connect(&pUpdates, &UpdateControl::statusChanged, this, [this](ServiceStatus pStatus) {
        mSockets.broadcast(u"serviceStatusChanged"_s, {{u"status"_s, int(pStatus)}});
    });
    connect(&pUpdates, &UpdateControl::activityChanged, this, [this](ServiceActivity pActivity) {
        mSockets.broadcast(u"serviceActivityChanged"_s, {{u"activity"_s, int(pActivity)}});
    });
    connect(&pUpdates, &UpdateControl::notification, this,
            [this](int pType, const QString& pText, const QString& pDetails) {
                mApp.write(pType == 1 ? LogLevel::Warning : LogLevel::Info, pText + u' ' + pDetails);
                mSockets.broadcast(u"serviceNotificationReceived"_s, messageParams(pType, pText, pDetails));
            });
    connect(&pUpdates, &UpdateControl::error, this, &Events::error);
}

void Events::error(int pType, const QString& pText, const QString& pDetails)
{
    mApp.write(LogLevel::Error, pText + u' ' + pDetails);
    mSockets.broadcast(u"serviceErrorReceived"_s, messageParams(pType, pText, pDetails));
}

void Events::errorToKeep(const QString& pText, const QString& pDetails)
{
    error(0, pText, pDetails);
    if (!mSockets.hasMonitor()) {
        mKeptErrors.append(messageParams(0, pText, pDetails));
    }
}

void Events::checkIsDue()
{
    mSockets.broadcast(u"serviceNotificationReceived"_s,
                       messageParams(4, u"It is time to look for updates."_s, {}));
}

} // namespace tarn::vkservice::control

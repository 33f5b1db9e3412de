#include "vkc_Application.h"

#include <algorithm>
#include <limits>

using namespace Qt::StringLiterals;

namespace tarn::vkc {

using vkcore::IPCClient;

bool VKCApplication::connectMonitor()
{
    if (mMonitorClient != nullptr) {
        mMonitorClient->deleteLater();
    }
    mMonitorClient = new IPCClient(this, nullptr);
    mLink.prepare(mMonitorClient);
    connect(mMonitorClient, &IPCClient::serviceStatusChanged, this,
            &VKCApplication::onMonitorServiceStatusChanged);
    connect(mMonitorClient, &IPCClient::serviceActivityChanged, this,
            &VKCApplication::onMonitorServiceActivityChanged);
    connect(mMonitorClient, &IPCClient::serviceNotificationReceived, this,
            &VKCApplication::onMonitorServiceNotificationReceived);
    connect(mMonitorClient, &IPCClient::serviceErrorReceived, this,
            &VKCApplication::onMonitorServiceErrorReceived);
    connect(mMonitorClient, &IPCClient::quitRequestReceived, this,
            &VKCApplication::onMonitorQuitRequestReceived);
    connect(mMonitorClient, &IPCClient::disconnected, this, &VKCApplication::onMonitorDisconnected);
    return mMonitorClient->enterMonitorMode();
}

void VKCApplication::onMonitorServiceStatusChanged(vkcore::ServiceStatus pStatus)
{
    const bool tEnded = pStatus == vkcore::StatusIdle || pStatus == vkcore::StatusSuppressed ||
                        pStatus == vkcore::StatusError;
    if (mEventLoop != nullptr && tEnded) {
        mEventLoop->exit(0);
    }
}

void VKCApplication::onMonitorServiceActivityChanged(vkcore::ServiceActivity pActivity)
{
    mServiceActivity = pActivity;
}

void VKCApplication::onMonitorServiceNotificationReceived(int pMsgType, const QString& pText,
                                                          const QString& pDetails)
{
    writeServiceMessage(pMsgType, pText, pDetails);
}

void VKCApplication::onMonitorServiceErrorReceived(int pMsgType, const QString& pText,
                                                   const QString& pDetails)
{
    writeServiceMessage(pMsgType, pText, pDetails);
}

void VKCApplication::writeServiceMessage(int pMsgType, const QString& pText, const QString& pDetails)
{
    clearCurrentLine();
    writeMsgType(pMsgType);
    printLine(pText);
    if (!pDetails.isEmpty()) {
        printLine(tr("Details:"));
        printLine(pDetails);
    }
    printLine(u"\n"_s);
}

void VKCApplication::onMonitorQuitRequestReceived()
{
    mQuitRequested = true;
    if (mEventLoop != nullptr) {
        mEventLoop->exit(0);
    }
}

void VKCApplication::onMonitorDisconnected()
{
    if (mMonitorClient != nullptr) {
        mMonitorClient->deleteLater();
        mMonitorClient = nullptr;
    }
    if (mEventLoop != nullptr) {
        mEventLoop->exit(0);
    }
}

QString VKCApplication::serviceStatusText()
{
    switch (mClient->getServiceStatus(nullptr)) {
    case vkcore::StatusIdle:
        return tr("Idle");
    case vkcore::StatusSuppressed:
        return tr("Updates are currently suppressed");
    case vkcore::StatusUpdating:
        return tr("Update is in progress");
    case vkcore::StatusAborting:
        return tr("Process is being aborted");
    case vkcore::StatusError:
        return tr("An error occurred during the last update");
    }
    return QString();
}

// Truncated, not rounded, and not limited to 100, only to the range of int.
static int percentage(long long pDone, long long pTotal)
{
    if (pTotal <= 0) {
        return 0;
    }
    const double tPercent = static_cast<double>(pDone) * (100.0 / static_cast<double>(pTotal));
    return static_cast<int>(
        std::clamp<double>(tPercent, std::numeric_limits<int>::min(), std::numeric_limits<int>::max()));
}

QString VKCApplication::serviceProgressText()
{
    vkcore::ServiceActivity tActivity = vkcore::ActivityNone;
    bool tCancelable = false;
    QString tText;
    long long tBytesDone = 0;
    long long tBytesTotal = 0;
    long long tDone = 0;
    long long tTotal = 0;
    int tPackage = 0;
    int tPackageCount = 0;
    int tFailedCount = 0;
    if (!mClient->getServiceProgress(&tActivity, &tCancelable, &tText, &tBytesDone, &tBytesTotal, &tDone,
                                     &tTotal, &tPackage, &tPackageCount, &tFailedCount)) {
        return QString();
    }

    const int tPercent = percentage(tDone, tTotal);
    switch (tActivity) {
    case vkcore::ActivityNone:
        break;
    case vkcore::ActivityDownloading:
        return tr("Downloading updates (%1% complete)").arg(tPercent);
    case vkcore::ActivityVerifying:
        return tr("Verifying updates (%1% complete)").arg(tPercent);
    case vkcore::ActivityWaitingForApps:
        return tr("Waiting for Tavo applications to be closed.");
    case vkcore::ActivityPreparing:
        return tr("Preparing installation (%1% complete)").arg(tPercent);
    case vkcore::ActivityInstalling:
        return tr("Installing updates (%1% complete)").arg(tPercent);
    case vkcore::ActivityRemovingObsolete:
        return tr("Removing obsolete files (%1% complete)").arg(tPercent);
    }
    return QString();
}

} // namespace tarn::vkc

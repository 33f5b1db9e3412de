#include "vkc_Application.h"

#include "cmdline/OptionIndex.h"

#include <QtCore/QLocale>

using namespace Qt::StringLiterals;

namespace tarn::vkc {

static int resultCode(int pResult)
{
    return pResult & 0xff;
}

int VKCApplication::cmdServiceStatus()
{
    if (!connectToServer(true)) {
        return 1;
    }
    vkcore::Scheduler::AutoUpdateMode tMode = vkcore::Scheduler::AutoUpdateManual;
    int tFlags = 0;
    QDateTime tNextCheck;
    int tPeriodCount = 0;
    vkcore::Scheduler::PeriodUnit tUnit = vkcore::Scheduler::PeriodHour;
    QString tExtra;
    if (!mClient->getScheduleParameters(&tMode, &tFlags, &tNextCheck, &tPeriodCount, &tUnit, &tExtra)) {
        return fail(tr("Failed to get current schedule parameters."));
    }
    if (tMode != vkcore::Scheduler::AutoUpdateAutomatic) {
        printLine(tr("Automatic updates are not enabled."));
        return 0;
    }
    if (mLink.hasWorker()) {
        printLine(tr("Automatic updates are enabled but the service is currently not running."));
        return 0;
    }

    const int tResult = mClient->getLastServiceResult(false);
    const QString tResultText = mClient->getLastServiceResultStr(false);
    QString tLastRun = tr("never");
    if (resultCode(tResult) != 0) {
        const QString tStored = mClient->getConfigValue(u"service.lastRun"_s, QString());
        tLastRun = dateTimeText(QLocale(QLocale::C).toDateTime(tStored, u"yyyyMMddhhmmss"_s));
    }
    printLine(tr("Last update: %1").arg(tLastRun));
    printLine(tr("Last result: %1").arg(tResultText));

    const QString tStatus = serviceStatusText();
    const QString tProgress = serviceProgressText();
    printLine(tr("Current status: %1").arg(tStatus));
    if (!tProgress.isEmpty()) {
        printLine(tr("Current progress: %1").arg(tProgress));
    }
    return 0;
}

int VKCApplication::cmdUpdate()
{
    const bool tWait = optEnabled(OPT_WAIT, true);
    const bool tQuiet = optEnabled(OPT_QUIET, false);

    if (!connectToServer(true)) {
        return 1;
    }
    if (mClient->isVKClientActive()) {
        return fail(tr("Cannot perform an update while the wizard is active."));
    }
    if (tWait) {
        // The monitor listens before the trigger, so that no event of the run is lost.
        mEventLoop = new QEventLoop(this);
        if (!connectMonitor()) {
            return 1;
        }
    }
    mUpdateRunning = true;
    if (!mClient->triggerUpdate(true)) {
        return fail(tr("Failed to start update"));
    }
    if (!tWait) {
        return 0;
    }

    if (tQuiet) {
        writeProgress(tr("Update started"));
    } else {
        mProgressTimer.start();
    }
    mEventLoop->exec();
    mUpdateRunning = false;
    mProgressTimer.stop();
    clearCurrentLine();
    return reportUpdateResult();
}

int VKCApplication::reportUpdateResult()
{
    if (!mClient->isConnected()) {
        return fail(tr("Lost connection to the service"));
    }
    if (mQuitRequested) {
        return 0;
    }
    const QString tText = mClient->getLastServiceResultStr(true);
    const int tCode = resultCode(mClient->getLastServiceResult(true));
    printLine(tr("Update finished: %1").arg(tText));
    return tCode == 1 ? 0 : tCode + 100;
}

void VKCApplication::updateProgress()
{
    // Ticks must not queue up behind their own blocking call.
    mProgressTimer.stop();
    writeProgress(serviceProgressText());
    // After a hard stop, which may have happened meanwhile, there is no service to ask.
    if (mCancelTimer.isActive()) {
        mProgressTimer.start();
    }
}

void VKCApplication::cancel(bool pForceCancel)
{
    mCancelRequest = pForceCancel ? 2 : 1;
}

bool VKCApplication::safeToCancelUpate()
{
    return mServiceActivity == vkcore::ActivityDownloading || mServiceActivity == vkcore::ActivityVerifying ||
           mServiceActivity == vkcore::ActivityPreparing;
}

void VKCApplication::checkCanceled()
{
    int tRequest = mCancelRequest;
    if (tRequest == 0) {
        return;
    }
    mCancelRequest = 0;
    if (tRequest == 1 && mCancelCount++ > 0) {
        tRequest = 2;
    }

    if (!mUpdateRunning) {
        log(u"Current operation was canceled"_s);
    } else if (!safeToCancelUpate() && tRequest == 1) {
        clearCurrentLine();
        printLine(
            tr("Aborting the installation process can lead to inconsistent installations. If you want to "
               "abort the update anyway, please press Ctrl-C again."));
        return;
    } else if (abortUpdate()) {
        return;
    }

    // The hard stop: a call that the command waits for fails now.
    mLink.cancel();
    mCancelTimer.stop();
    mProgressTimer.stop();
    if (mClient != nullptr) {
        mClient->close();
    }
    if (mMonitorClient != nullptr && !mUpdateRunning) {
        mMonitorClient->close();
    }
    cleanupServiceWorker();
}

// True if the service has accepted the request: the run then ends through the monitor as usual.
bool VKCApplication::abortUpdate()
{
    log(u"Update was canceled (activity  = %1"_s.arg(vkcore::Types::serviceActivityToStr(mServiceActivity)));
    clearCurrentLine();
    printLine(tr("Aborting update ..."));

    mLink.cancel();
    vkcore::IPCClient tClient(this, nullptr);
    tClient.setConnectTimeout(2);
    return mLink.connect(&tClient, false) && tClient.abortUpdate();
}

} // namespace tarn::vkc

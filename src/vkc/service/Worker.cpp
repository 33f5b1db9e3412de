#include "vkc_Application.h"

#include "cmdline/OptionIndex.h"

#include <QtCore/QCoreApplication>

using namespace Qt::StringLiterals;

namespace tarn::vkc {

// A service process of this run. QProcess kills a running process when it is destroyed; a service that has
// announced its end may finish.
class WorkerProcess : public QProcess
{
public:
    using QProcess::QProcess;
    ~WorkerProcess() override { setProcessState(QProcess::NotRunning); }
};

bool VKCApplication::startService()
{
    if (mCanceled) {
        return false;
    }
    if (mService != nullptr) {
        logAssertFailed("mService == 0", sSourcePath, __LINE__);
        return false;
    }
    mService = new WorkerProcess(this);

    const QString tProgram = QCoreApplication::applicationDirPath() + u"/vkservice"_s;
    QStringList tArguments{u"-e"_s, u"-worker"_s};
    if (optPassed(OPT_SOCKET)) {
        tArguments.append(u"-s=%1"_s.arg(optArg(OPT_SOCKET, QString())));
    }
    mService->start(tProgram, tArguments, QIODevice::ReadWrite);
    const bool tStarted = mService->waitForStarted(30000);
    if (tStarted) {
        mService->closeWriteChannel();
        mService->closeReadChannel(QProcess::StandardOutput);
        mService->closeReadChannel(QProcess::StandardError);
    } else {
        log(u"ERROR: could not start %1"_s.arg(tProgram));
    }
    return tStarted;
}

// The client waits for the socket of the worker; without a worker there will be none. A worker also ends if
// another service has created the socket meanwhile: then the client uses that one.
bool VKCApplication::pingWorker(vkcore::IPCClient* pClient)
{
    const auto tGiveUp = [this, pClient] {
        if (!mCanceled && !pClient->isConnected() && !pClient->testConnect(5000)) {
            log(u"ERROR: the service has ended at once"_s);
            pClient->close();
        }
    };
    if (mService->state() == QProcess::NotRunning) {
        tGiveUp();
    }
    const QMetaObject::Connection tWatch = connect(mService, &QProcess::finished, pClient, tGiveUp);
    const bool tAnswered = pClient->ping();
    disconnect(tWatch);
    return tAnswered;
}

void VKCApplication::cleanupServiceWorker()
{
    if (mQuitRequested) {
        mService = nullptr;
        return;
    }
    if (mService == nullptr) {
        return;
    }

    vkcore::IPCClient tClient(this, nullptr);
    tClient.setConnectTimeout(2);
    const bool tAsked = connectToServer(&tClient, false) && tClient.quitService();

    // A cancel request during these calls may have done all of this already.
    if (mService == nullptr) {
        return;
    }
    if (!tAsked) {
        log(u"Service did not react to quit request, terminating process"_s);
        mService->terminate();
    }
    if (!mService->waitForFinished(60000) && mService->state() != QProcess::NotRunning) {
        log(u"Timeout while waiting for service quit, killing process"_s);
        mService->kill();
    }
    mService->deleteLater();
    mService = nullptr;
}

} // namespace tarn::vkc

#include "program/ServiceLink.h"

#include <vkcore/Application.h>

#include <QtCore/QCoreApplication>

using namespace Qt::StringLiterals;

namespace tarn::vkc {

using vkcore::IPCClient;

// A service process of this run. QProcess kills a running process when it is destroyed; a service that has
// announced its end may finish.
class WorkerProcess : public QProcess
{
public:
    using QProcess::QProcess;
    ~WorkerProcess() override { setProcessState(QProcess::NotRunning); }
};

void ServiceLink::prepare(IPCClient* pClient) const
{
    if (mSocket) {
        pClient->setServerName(*mSocket);
    }
}

bool ServiceLink::connect(IPCClient* pClient, bool pStartService)
{
    prepare(pClient);
    if (pClient->testConnect(5000)) {
        return pClient->ping();
    }
    return pStartService && startWorker() && pingWorker(pClient);
}

bool ServiceLink::startWorker()
{
    if (mCanceled) {
        return false;
    }
    if (mWorker != nullptr) {
        mApp.logAssertFailed("mWorker == 0", "src/vkc/program/ServiceLink", __LINE__);
        return false;
    }
    mWorker = new WorkerProcess(&mApp);

    const QString tProgram = QCoreApplication::applicationDirPath() + u"/vkservice"_s;
    QStringList tArguments{u"-e"_s, u"-worker"_s};
    if (mSocket) {
        tArguments.append(u"-s=%1"_s.arg(*mSocket));
    }
    mWorker->start(tProgram, tArguments, QIODevice::ReadWrite);
    const bool tStarted = mWorker->waitForStarted(30000);
    if (tStarted) {
        mWorker->closeWriteChannel();
        mWorker->closeReadChannel(QProcess::StandardOutput);
        mWorker->closeReadChannel(QProcess::StandardError);
    } else {
        mApp.log(u"ERROR: could not start %1"_s.arg(tProgram));
    }
    return tStarted;
}

// The client waits for the socket of the worker; without a worker there will be none. A worker also ends if
// another service has created the socket meanwhile: then the client uses that one.
bool ServiceLink::pingWorker(IPCClient* pClient)
{
    const auto tGiveUp = [this, pClient] {
        if (!mCanceled && !pClient->isConnected() && !pClient->testConnect(5000)) {
            mApp.log(u"ERROR: the service has ended at once"_s);
            pClient->close();
        }
    };
    if (mWorker->state() == QProcess::NotRunning) {
        tGiveUp();
    }
    const QMetaObject::Connection tWatch = QObject::connect(mWorker, &QProcess::finished, pClient, tGiveUp);
    const bool tAnswered = pClient->ping();
    QObject::disconnect(tWatch);
    return tAnswered;
}

void ServiceLink::endWorker()
{
    if (mWorker == nullptr) {
        return;
    }

    IPCClient tClient(&mApp, nullptr);
    tClient.setConnectTimeout(2);
    const bool tAsked = connect(&tClient, false) && tClient.quitService();

    // A cancel request during these calls may have done all of this already.
    if (mWorker == nullptr) {
        return;
    }
    if (!tAsked) {
        mApp.log(u"Service did not react to quit request, terminating process"_s);
        mWorker->terminate();
    }
    if (!mWorker->waitForFinished(60000) && mWorker->state() != QProcess::NotRunning) {
        mApp.log(u"Timeout while waiting for service quit, killing process"_s);
        mWorker->kill();
    }
    mWorker->deleteLater();
    mWorker = nullptr;
}

} // namespace tarn::vkc

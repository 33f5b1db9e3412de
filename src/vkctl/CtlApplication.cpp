#include "CtlApplication.h"

#include "CommandTable.h"

#include "internal/Methods.h"
#include "internal/PlainText.h"
#include "internal/StandardOutput.h"

#include <QtCore/QCoreApplication>
#include <QtCore/QJsonDocument>
#include <QtCore/QJsonValue>

#include <unistd.h>

#include <algorithm>

using namespace Qt::StringLiterals;

namespace tarn::vkctl {

using namespace vkcore;
using namespace vkcore::protocol;

namespace {

constexpr int sLogLevels = 2;
constexpr int sProgressMs = 1000;

// At once, for whoever watches.
void show(const QString& pText)
{
    writeOutput(pText.toLocal8Bit());
    (void)flushOutput();
}

qint64 percentage(qint64 pDone, qint64 pTotal)
{
    return pTotal > 0
               ? std::clamp<qint64>(100.0 * static_cast<double>(pDone) / static_cast<double>(pTotal), 0, 100)
               : 0;
}

} // namespace

CtlApplication::CtlApplication()
    : ClientApplication({u"vk"_s, u"vkp"_s}, sLogLevels), mIsTerminal(::isatty(STDOUT_FILENO) == 1)
{
    mProgress.setInterval(sProgressMs);
    connect(&mProgress, &QTimer::timeout, this, &CtlApplication::showProgress);
    connect(&mInterrupt, &Interrupt::received, this, &CtlApplication::onInterrupt);
}

void CtlApplication::fatalError(const QString& pText)
{
    QCoreApplication::exit(fail(pText));
}

void CtlApplication::finalize()
{
    mLink.cancel();
    if (mServiceEnds) {
        mLink.releaseWorker();
    }
    mLink.endWorker();
    ClientApplication::finalize();
}

void CtlApplication::run()
{
    QString tError;
    const auto tArguments = Arguments::parse(QCoreApplication::arguments().mid(1), &tError);
    if (!tArguments) {
        QCoreApplication::exit(fail(tError));
        return;
    }
    mArguments = *tArguments;
    if (mArguments.mSocket) {
        mLink.setSocket(*mArguments.mSocket);
    }
    int tStatus = carryOut();
    if (mIsInterrupted) {
        const QString tText = mWhat.isEmpty() ? tr("Interrupted.")
                              : mLink.hasWorker()
                                  ? tr("Interrupted. %1 ends with the service that vkctl has started.")
                                  : tr("Interrupted. %1 continues in the service.");
        writeError(((mWhat.isEmpty() ? tText : tText.arg(mWhat)) + u'\n').toLocal8Bit());
        tStatus = StatusInterrupted;
    }
    if (flushOutput() != 0) {
        tStatus = fail(tr("The standard output can't be written."));
    }
    QCoreApplication::exit(tStatus);
}

int CtlApplication::carryOut()
{
    if (mArguments.mIsVersion) {
        print(getAppVersion().toTarnAppFormat());
        return StatusSound;
    }
    if (mArguments.mCommand == nullptr) {
        print(usage());
        return StatusSound;
    }
    return mArguments.mCommand->mRun(*this);
}

bool CtlApplication::connectToService()
{
    mClient = std::make_unique<IPCClient>(this, nullptr);
    const bool tDone = mLink.connect(mClient.get(), true);
    if (!tDone) {
        fail(tr("Connection to the service failed!"));
    }
    return tDone;
}

std::optional<QJsonValue> CtlApplication::call(QLatin1StringView pMethod, const QJsonObject& pParams)
{
    return mClient->call(pMethod, pParams, &mReason);
}

QString CtlApplication::reason() const
{
    return singleLine(mReason, vkcore::sMaxMessage);
}

bool CtlApplication::connectMonitor(Subject pSubject)
{
    mIsUpdate = pSubject == Subject::Update;
    mMonitor = std::make_unique<IPCClient>(this, nullptr);
    connect(mMonitor.get(), &IPCClient::eventReceived, this, &CtlApplication::onEvent);
    connect(mMonitor.get(), &IPCClient::serviceStatusChanged, this, &CtlApplication::onStatus);
    connect(mMonitor.get(), &IPCClient::quitRequestReceived, this, [this] {
        mServiceEnds = true;
        mLoop.quit();
    });
    connect(mMonitor.get(), &IPCClient::disconnected, &mLoop, &QEventLoop::quit);
    mLink.prepare(mMonitor.get());
    const bool tDone = mMonitor->enterMonitorMode();
    if (!tDone) {
        fail(tr("Connection to the service failed!"));
    }
    return tDone;
}

bool CtlApplication::follow(const QString& pWhat)
{
    mWhat = pWhat;
    if (mIsTerminal && !mArguments.mIsJson) {
        mProgress.start();
    }
    while (!mIsDone && !mIsInterrupted && !mServiceEnds && mMonitor->isConnected()) {
        mLoop.exec();
        mIsDone = mIsDone && (mIsUpdate || !isVerifying());
    }
    mProgress.stop();
    showLine({});
    if (!mIsDone) {
        fail(tr("Lost connection to the service"));
    }
    return mIsDone;
}

// What has ended may be an earlier verification than the one that was asked for.
bool CtlApplication::isVerifying()
{
    const auto tState = call<VerificationState>(method::sGetVerification);
    return tState && tState->mRunning;
}

std::optional<Report> CtlApplication::report()
{
    const auto tPackages = call<PackageEntries>(method::sGetPackages);
    const auto tState = tPackages ? call<VerificationState>(method::sGetVerification) : std::nullopt;
    if (!tPackages || !tState) {
        fail(tr("Failed to get the installed packages."));
        return std::nullopt;
    }
    return Report(*tPackages, *tState);
}

void CtlApplication::onEvent(const QString& pMethod, const QJsonObject& pParams)
{
    QString tFault;
    const auto tState = pMethod == method::sVerificationChanged
                            ? fromJson<VerificationState>(QJsonValue(pParams), &tFault)
                            : std::nullopt;
    if (!tState) {
        return;
    }
    // An event from before the request tells of an earlier verification.
    const bool tEnded = mState.mRunning && !tState->mRunning;
    mState = *tState;
    if (tEnded && !mIsUpdate) {
        mIsDone = true;
        mLoop.quit();
    }
}

void CtlApplication::onStatus(ServiceStatus pStatus)
{
    if (mIsUpdate && pStatus != StatusUpdating && pStatus != StatusAborting) {
        mIsDone = true;
        mLoop.quit();
    }
}

void CtlApplication::onInterrupt()
{
    mIsInterrupted = true;
    mLink.cancel();
    if (mClient) {
        mClient->close();
    }
    mLoop.quit();
}

void CtlApplication::showProgress()
{
    if (!mIsUpdate) {
        showLine(mState.mWaiting ? tr("Waiting for the end of the update")
                                 : tr("Verifying %1 (%2% complete)")
                                       .arg(singleLine(mState.mPackage))
                                       .arg(percentage(mState.mBytesDone, mState.mBytesTotal)));
        return;
    }
    long long tDone = 0;
    long long tTotal = 0;
    mProgress.stop(); // the call waits
    if (mClient->getServiceProgress(nullptr, nullptr, nullptr, nullptr, nullptr, &tDone, &tTotal, nullptr,
                                    nullptr, nullptr)) {
        showLine(tr("Repairing (%1% complete)").arg(percentage(tDone, tTotal)));
    }
    if (!mIsInterrupted) {
        mProgress.start();
    }
}

void CtlApplication::print(const QString& pText)
{
    show(pText + u'\n');
}

void CtlApplication::printJson(const QJsonObject& pObject)
{
    show(vkcore::plainJson(QJsonDocument(pObject).toJson(QJsonDocument::Compact)) + u'\n');
}

// The text may quote an argument, which a script may have from elsewhere.
int CtlApplication::fail(const QString& pText)
{
    if (!mIsInterrupted) {
        writeError((singleLine(pText, sMaxMessage) + u'\n').toLocal8Bit());
    }
    return StatusFailed;
}

// Replaces the line of the progress on a terminal.
void CtlApplication::showLine(const QString& pText)
{
    if (mIsTerminal && !mArguments.mIsJson) {
        show(u"\x1b[1G\x1b[K"_s + pText);
    }
}

} // namespace tarn::vkctl

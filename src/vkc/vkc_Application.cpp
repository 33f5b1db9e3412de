#include "vkc_Application.h"

#include <QtCore/QCoreApplication>
#include <QtCore/QLocale>
#include <QtCore/QMutexLocker>
#include <QtCore/QThread>

#include <optionparser.h>

#include <csignal>

using namespace Qt::StringLiterals;

namespace tarn::vkc {

VKCApplication* sApp = nullptr;
QMutex sAppMutex; // guards sApp
QMutex sAppRunMutex;

// Only stores a request for checkCanceled.
static void handle_signals(int pSignal)
{
    sAppMutex.lock();
    if (sApp != nullptr) {
        if (pSignal == SIGINT) {
            sApp->cancel(false);
        } else if (pSignal == SIGTERM || pSignal == SIGHUP) {
            sApp->cancel(true);
        }
    }
    sAppMutex.unlock();
}

VKCApplication::VKCApplication(const QList<QString>& pPrefixes, int pLogLevels)
    : ClientApplication(pPrefixes, pLogLevels), mStdIn(stdin, QIODevice::ReadOnly), mStdOut(&mOutput),
      mStdErr(&mErrors)
{
    mProgressTimer.setInterval(1000);
    connect(&mProgressTimer, &QTimer::timeout, this, &VKCApplication::updateProgress);
    mCancelTimer.setInterval(500);
    connect(&mCancelTimer, &QTimer::timeout, this, &VKCApplication::checkCanceled);

    const QMutexLocker tLocker(&sAppMutex);
    sApp = this;
}

VKCApplication::~VKCApplication()
{
    delete mOptStats;
    delete mOptParser;
    delete[] mOptions;
    delete[] mOptBuffer;

    for (QObject* tObject : std::initializer_list<QObject*>{mClient, mMonitorClient, mEventLoop}) {
        if (tObject != nullptr) {
            tObject->deleteLater();
        }
    }

    // A signal handler that ran inside the lock would deadlock.
    sigset_t tAll;
    sigset_t tBefore;
    sigfillset(&tAll);
    sigprocmask(SIG_SETMASK, &tAll, &tBefore);
    sAppMutex.lock();
    if (sApp == this) {
        sApp = nullptr;
    }
    sAppMutex.unlock();
    sigprocmask(SIG_SETMASK, &tBefore, nullptr);
}

bool VKCApplication::init()
{
    const bool tResult = ClientApplication::init();

    for (QTextStream* tStream : {&mStdIn, &mStdOut, &mStdErr}) {
        tStream->setEncoding(QStringConverter::System);
    }

    struct sigaction tSigAction = {};
    tSigAction.sa_handler = handle_signals;
    sigemptyset(&tSigAction.sa_mask);
    tSigAction.sa_flags = SA_RESTART;
    if (sigaction(SIGINT, &tSigAction, nullptr) != 0) {
        logAssertFailed("sigaction(SIGINT, &tSigAction, NULL) == 0", sSourcePath, __LINE__);
    }
    if (sigaction(SIGHUP, &tSigAction, nullptr) != 0) {
        logAssertFailed("sigaction(SIGHUP, &tSigAction, NULL) == 0", sSourcePath, __LINE__);
    }
    if (sigaction(SIGTERM, &tSigAction, nullptr) != 0) {
        logAssertFailed("sigaction(SIGTERM, &tSigAction, NULL) == 0", sSourcePath, __LINE__);
    }
    return tResult;
}

void VKCApplication::fatalError(const QString& pText)
{
    printError(pText);
    QCoreApplication::exit(1);
}

void VKCApplication::exitMainloop(int pStatus)
{
    QCoreApplication::exit(pStatus);
}

void VKCApplication::finalize()
{
    cleanupServiceWorker();
    ClientApplication::finalize();

    const QMutexLocker tLocker(&mRunMutex);
    mRunning = false;
    mRunCondition.wakeAll();
}

void VKCApplication::waitForFinished()
{
    mRunMutex.lock();
    if (!mRunning) {
        mRunMutex.unlock();
        return;
    }
    if (QThread::currentThread() == thread()) {
        mRunMutex.unlock();
        while (mRunning) {
            QCoreApplication::processEvents();
        }
        return;
    }
    mRunCondition.wait(&mRunMutex);
    mRunMutex.unlock();
}

QString VKCApplication::dateTimeText(const QDateTime& pDate)
{
    return QLocale(QLocale::C).toString(pDate, u"yyyy-MM-dd hh:mm:ss"_s);
}

} // namespace tarn::vkc

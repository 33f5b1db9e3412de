#include "Service.h"

#include "control/KnownVariables.h"
#include "control/MailControl.h"
#include "control/UpdateControl.h"
#include "internal/Protocol.h"
#include "internal/SocketName.h"
#include "methods/Methods.h"
#include "os/Confinement.h"
#include "os/FileSystem.h"
#include "os/ProcessList.h"
#include "process/InheritedSocket.h"
#include "process/SignalWatch.h"
#include "schedule/ScheduleRules.h"
#include "ServiceApplication.h"
#include "update/Source.h"
#include "update/UpdateRun.h"

#include <vkcore/LockFile.h>

#include <QtCore/QDeadlineTimer>
#include <QtCore/QDir>
#include <QtCore/QFile>

#include <fcntl.h>
#include <grp.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>

using namespace Qt::StringLiterals;

namespace tarn::vkservice {

using namespace vkcore;
using control::UpdateControl;

namespace {

constexpr int sLockWaitMs = 5000; // a service that is just ending lets go within this
constexpr int sLockLookMs = 100;
constexpr int sLastClientsMs = 3000; // less than sLockWaitMs, in which the next worker is kept waiting
constexpr int sMinuteMs = 60000;
constexpr int sLastAnswersMs = 1000;
constexpr int sLastMailMs = 5000;
constexpr int sRetrySeconds = 900; // after a run that found no server, doubled each time
constexpr int sMaxRetries = 3;

QByteArray machineId()
{
    QFile tFile(u"/etc/machine-id"_s);
    const QByteArray tId = tFile.open(QIODevice::ReadOnly) ? tFile.readLine().trimmed() : QByteArray();
    return tId.isEmpty() ? QSysInfo::machineHostName().toUtf8() : tId;
}

bool groupOf(const QString& pName, std::optional<gid_t>* pGroup, QString* pError)
{
    if (pName.isEmpty()) {
        return true;
    }
    errno = 0;
    const group* tEntry = ::getgrnam(QFile::encodeName(pName).constData());
    if (tEntry == nullptr) {
        *pError = u"The group %1 of service.socketGroup does not exist."_s.arg(pName);
        return false;
    }
    *pGroup = tEntry->gr_gid;
    return true;
}

// A service of a user is started with the user's session.
bool startsWithSession()
{
    return ::geteuid() != 0;
}

update::ServerAccess accessOf(const store::ServerEntry& pEntry)
{
    return {pEntry.mName.isEmpty() ? pEntry.mUri : pEntry.mName, pEntry.mUri, pEntry.mUser, pEntry.mPassword};
}

// Names the server that people may take for the one in use: the default one, else the first.
QString disabledServerText(const QList<store::ServerEntry>& pServers)
{
    if (pServers.isEmpty()) {
        return {};
    }
    const auto tDefault =
        std::find_if(pServers.begin(), pServers.end(), [](const auto& pEntry) { return pEntry.mDefault; });
    const auto tNamed = tDefault == pServers.end() ? pServers.begin() : tDefault;
    return u"The %1 %2 is disabled; \"rkm update-server --match-index=%3 --enable\" enables it"_s
        .arg(tNamed->mDefault ? u"default server"_s : u"server"_s, update::serverLabel(accessOf(*tNamed)))
        .arg(tNamed - pServers.begin() + 1);
}

QJsonObject messageParams(int pType, const QString& pText, const QString& pDetails)
{
    return {{u"type"_s, pType},
            {u"text"_s, pText},
            {u"details"_s, pDetails.isNull() ? QString(QLatin1String("")) : pDetails}};
}

} // namespace

Service::Service(ServiceApplication& pApp, const Options& pOptions)
    : mApp(pApp), mOptions(pOptions), mSettings(mStore.database()), mServers(mStore.database()),
      mVariables(mStore.database()), mSockets(mMethods), mSchedule(mClock, machineId()),
      mRun(std::make_unique<update::UpdateRun>(os::realFileSystem(), os::realProcessList()))
{
    mUpdates = std::make_unique<UpdateControl>(
        *mRun, mSettings, [this](QString* pReason) { return runRequest(pReason); },
        [this] { return isSuppressed(); });
    control::addKnownVariables(mVariables, mApp.configDir());
    mVariables.setConfiguration([this](const QString& pKey) { return mApp.configValue(pKey); });
    methods::addAll(mMethods, *this);
    mMethods.setChangeGuard([this] {
        if (mEnding) {
            return u"The service is about to end."_s;
        }
        return mUpdates->isActive() ? u"Settings can't be changed while an update is under way."_s
                                    : QString();
    });
    connect(&mSockets, &ipc::SocketServer::peerRefused, this,
            [this](const QString& pReason) { mApp.write(LogLevel::Warning, pReason); });
    connect(&mMinute, &QTimer::timeout, this, [this] {
        mUpdates->checkSuppression();
        mMail->tick();
    });
    connectUpdates();
    connectMail();
}

// The run has to end before the database that its signals write to.
Service::~Service()
{
    mMail.reset();
    mUpdates.reset();
    mRun.reset();
}

bool Service::start(QString* pError)
{
    mSocketName = mOptions.mSocketName;
    if (mSocketName.isEmpty()) {
        const QString tConfigured = mApp.configValue(u"service.socketName"_s);
        mSocketName = tConfigured.isEmpty() ? protocol::defaultSocketName() : tConfigured;
    }
    if (!lockState(pError) || !openStore(pError)) {
        return false;
    }
    const QStringList tComplaints = mVariables.complaints();
    for (const QString& tComplaint : tComplaints) {
        mApp.write(LogLevel::Warning, tComplaint);
    }
    openMail();
    recoverLastRun();
    // The service may have been killed before the mail about the run was queued; the log of what it installed
    // is complete now.
    mMail->onRunEnded(mUpdates->lastRun());
    if (!listen(pError) || !startSchedule(pError)) {
        return false;
    }
    mMinute.start(sMinuteMs);
    if (!os::Confinement::isAvailable()) {
        mApp.write(LogLevel::Notice,
                   u"The kernel has no Landlock, or a first version of it: updates run without "
                   "being confined to their folders."_s);
    }
    mApp.write(LogLevel::Notice, u"The service listens on %1."_s.arg(protocol::socketPath(mSocketName)));
    return true;
}

bool Service::lockState(QString* pError)
{
    const QString tDir = mApp.getStateDir();
    if (!QDir().mkpath(tDir)) {
        *pError = u"The state directory %1 can't be made: %2."_s.arg(tDir, qt_error_string());
        return false;
    }
    // Nobody else may read it: whoever can open the file could hold the lock.
    const QString tPath = tDir + u"/state.lock"_s;
    const int tFd =
        ::open(QFile::encodeName(tPath).constData(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0600);
    if (tFd < 0) {
        *pError = u"The lock file %1 can't be opened: %2."_s.arg(tPath, qt_error_string());
        return false;
    }
    ::close(tFd);
    mStateLock = std::make_unique<LockFile>(&mApp, tPath, LockFile::Exclusive);
    const QDeadlineTimer tDeadline(sLockWaitMs);
    while (!mStateLock->lock(sLockLookMs, sLockLookMs / 2, false)) {
        // A worker is not needed where another one serves the socket already, or who started it has done.
        const bool tNeedless = isWorker() && (process::SignalWatch::isEndPending() ||
                                              ipc::ListenSocket::isServed(protocol::socketPath(mSocketName)));
        if (tNeedless || tDeadline.hasExpired()) {
            *pError = u"Another service is using the state directory %1."_s.arg(tDir);
            return false;
        }
    }
    return true;
}

bool Service::openStore(QString* pError)
{
    if (!mStore.open(mApp.getStateDir(), pError)) {
        return false;
    }
    const auto tCutShort = mUpdates->load();
    if (!tCutShort) {
        *pError = u"The record of the last update can't be read: %1."_s.arg(mStore.database().errorText());
        return false;
    }
    if (*tCutShort) {
        mApp.write(LogLevel::Warning, mUpdates->lastRun().mText);
    }
    if (!mStore.damagedFile().isNull()) {
        reportDamage(mStore.damagedFile());
    }
    const QString tServer = mApp.configValue(u"service.defaultServer"_s);
    if (!tServer.isEmpty() && mServers.provide(tServer) != store::ServerTable::Outcome::Done) {
        mApp.write(LogLevel::Warning,
                   u"The configuration key service.defaultServer is ignored. %1"_s.arg(mServers.reason()));
    }
    return true;
}

bool Service::listen(QString* pError)
{
    std::optional<gid_t> tGroup;
    if (!groupOf(mApp.configValue(u"service.socketGroup"_s), &tGroup, pError)) {
        return false;
    }
    const QString tPath = protocol::socketPath(mSocketName);
    const int tInherited = process::inheritedSocket(tPath);
    if (tInherited >= 0) {
        mSockets.adopt(tInherited, tGroup);
        return true;
    }
    return mSockets.listen(tPath, tGroup, pError);
}

void Service::recoverLastRun()
{
    QString tReason;
    const auto tRequest = runRequest(&tReason);
    if (!tRequest || !mRun->recover(*tRequest, &tReason)) {
        mApp.write(LogLevel::Error, tReason);
    }
}

bool Service::startSchedule(QString* pError)
{
    const auto tSettings = mSettings.schedule();
    if (!tSettings) {
        *pError = u"The schedule can't be read: %1."_s.arg(mStore.database().errorText());
        return false;
    }
    connect(&mSchedule, &schedule::ScheduleTimer::moved, this, &Service::onScheduleMoved);
    connect(&mSchedule, &schedule::ScheduleTimer::due, this, &Service::onDue);
    if (isWorker()) {
        mSchedule.pause();
    }
    mSchedule.setJitter(static_cast<int>(mVariables.number(u"schedule.jitter"_s)));
    mSchedule.start(*tSettings);
    if (isWorker()) {
        return true;
    }
    connect(&mLogins, &schedule::LoginWatch::userLoggedIn, &mSchedule,
            &schedule::ScheduleTimer::userLoggedIn);
    mLogins.start();
    if (mUpdates->lastRun().mCutShort > 0) {
        resumeRun();
    } else if (startsWithSession()) {
        mSchedule.userLoggedIn();
    }
    return true;
}

// What cut the last run short may do so again.
void Service::resumeRun()
{
    const ScheduleSettings& tSchedule = mSchedule.settings();
    const bool tAtStart = tSchedule.atLogin() && startsWithSession();
    if (tSchedule.mMode == Scheduler::AutoUpdateManual || !(tAtStart || schedule::runsByDate(tSchedule))) {
        return;
    }
    const auto tSeconds = mUpdates->resumeSeconds();
    if (!tSeconds) {
        mApp.write(LogLevel::Warning, u"%1 updates in a row were cut short. The next one begins when "
                                      "the schedule says so."_s.arg(mUpdates->lastRun().mCutShort));
        return;
    }
    mApp.write(LogLevel::Notice,
               u"The update that was cut short begins again in %1 seconds."_s.arg(*tSeconds));
    if (tAtStart) {
        QTimer::singleShot(std::chrono::seconds(*tSeconds), &mSchedule,
                           &schedule::ScheduleTimer::userLoggedIn);
    } else {
        mSchedule.retryIn(*tSeconds);
    }
}

void Service::connectUpdates()
{
    connect(mUpdates.get(), &UpdateControl::statusChanged, this, [this](ServiceStatus pStatus) {
        mSockets.broadcast(u"serviceStatusChanged"_s, {{u"status"_s, int(pStatus)}});
        if (mEnding && !mUpdates->isActive()) {
            finish();
        }
    });
    connect(mUpdates.get(), &UpdateControl::activityChanged, this, [this](ServiceActivity pActivity) {
        mSockets.broadcast(u"serviceActivityChanged"_s, {{u"activity"_s, int(pActivity)}});
    });
    connect(mUpdates.get(), &UpdateControl::notification, this,
            [this](int pType, const QString& pText, const QString& pDetails) {
                mApp.write(pType == 1 ? LogLevel::Warning : LogLevel::Info, pText + u' ' + pDetails);
                mSockets.broadcast(u"serviceNotificationReceived"_s, messageParams(pType, pText, pDetails));
            });
    connect(mUpdates.get(), &UpdateControl::error, this, &Service::sendError);
    connect(mUpdates.get(), &UpdateControl::runEnded, this, &Service::onRunEnded);
}

void Service::connectMail()
{
    control::MailControl::Surroundings tSurroundings;
    tSurroundings.mLastRun = [this] { return mUpdates->lastRun(); };
    tSurroundings.mNextCheck = [this] {
        const ScheduleSettings& tSchedule = mSchedule.settings();
        return schedule::runsByDate(tSchedule) ? tSchedule.mNextCheck : QDateTime();
    };
    tSurroundings.mInstallDir = [this] { return mVariables.text(u"install.dir"_s); };
    tSurroundings.mStateDir = mApp.getStateDir();
    tSurroundings.mLanguage = [this] { return languageOr(mSettings.appLanguage()); };
    mMail = std::make_unique<control::MailControl>(mStore, mSettings, mVariables, tSurroundings);
    connect(mMail.get(), &control::MailControl::information, this,
            [this](const QString& pText) { mApp.write(LogLevel::Info, pText); });
    connect(mMail.get(), &control::MailControl::warning, this,
            [this](const QString& pText) { mApp.write(LogLevel::Warning, pText); });
}

// Updates go on without mails.
void Service::openMail()
{
    QString tReason;
    if (!mMail->open(&tReason)) {
        mApp.write(LogLevel::Error, u"No mails can be sent: %1"_s.arg(tReason));
    }
}

void Service::sendError(int pType, const QString& pText, const QString& pDetails)
{
    mApp.write(LogLevel::Error, pText + u' ' + pDetails);
    mSockets.broadcast(u"serviceErrorReceived"_s, messageParams(pType, pText, pDetails));
}

void Service::quit()
{
    if (mEnding) {
        return;
    }
    mEnding = true;
    mApp.write(LogLevel::Notice, u"The service is about to end."_s);
    mSchedule.pause();
    mSockets.broadcast(u"quitRequestReceived"_s, {});
    if (!mUpdates->abort()) {
        finish();
    }
}

void Service::leave(pid_t pAsker)
{
    mSockets.stopListening();
    const auto tLook = [this, pAsker] {
        if (!mSockets.hasPeerBeside(pAsker)) {
            quit();
        }
    };
    connect(&mSockets, &ipc::SocketServer::connectionClosed, this, tLook);
    QTimer::singleShot(sLastClientsMs, this, &Service::quit);
    tLook();
}

// Comes from the event loop, so that whatever is being answered now is answered first.
void Service::finish()
{
    if (mFinished) {
        return;
    }
    mFinished = true;
    QMetaObject::invokeMethod(
        this,
        [this] {
            mSockets.closeAll(sLastAnswersMs);
            mMail->finish(sLastMailMs);
            Q_EMIT ended();
        },
        Qt::QueuedConnection);
}

bool Service::reload(QString* pError)
{
    if (!mApp.reloadConfiguration(pError)) {
        mApp.write(LogLevel::Error, *pError);
        return false;
    }
    const QStringList tComplaints = mVariables.complaints();
    for (const QString& tComplaint : tComplaints) {
        mApp.write(LogLevel::Warning, tComplaint);
    }
    onVariablesChanged();
    return true;
}

void Service::onVariablesChanged()
{
    mSchedule.setJitter(static_cast<int>(mVariables.number(u"schedule.jitter"_s)));
    mUpdates->checkSuppression();
    mMail->onVariablesChanged();
}

bool Service::changeSchedule(const ScheduleSettings& pWanted, bool pSave)
{
    const ScheduleSettings tNew = schedule::afterChange(mSchedule.settings(), pWanted, mClock.now());
    if (pSave && !mSettings.setSchedule(tNew)) {
        return false;
    }
    mScheduleSaved = pSave;
    mRetries = 0;
    mSchedule.start(tNew);
    return true;
}

void Service::onScheduleMoved(const ScheduleSettings& pSettings)
{
    if (mScheduleSaved && !mSettings.setSchedule(pSettings)) {
        storeFailure(u"The next date of the schedule"_s);
    }
}

void Service::onDue()
{
    if (mSchedule.settings().mMode == Scheduler::AutoUpdateNotification) {
        mSockets.broadcast(u"serviceNotificationReceived"_s,
                           messageParams(4, u"It is time to look for updates."_s, {}));
        return;
    }
    QString tReason;
    if (!mUpdates->trigger(false, &tReason)) {
        mApp.write(LogLevel::Error, u"The scheduled update did not start. %1"_s.arg(tReason));
    }
}

// A machine that has just woken up may have no network yet, and its next check may be weeks away.
void Service::onRunEnded(const RunRecord& pRecord, bool pManual)
{
    mApp.write(pRecord.mCode == ResultSuccess ? LogLevel::Notice : LogLevel::Warning,
               u"The update has ended: %1"_s.arg(mUpdates->resultText(pRecord)));
    replaceDamagedStore();
    mMail->onRunEnded(pRecord);
    if (pManual || isWorker() || mEnding) {
        return;
    }
    if (pRecord.mCode != ResultUnreachable || mRetries >= sMaxRetries) {
        mRetries = 0;
        return;
    }
    mSchedule.retryIn(sRetrySeconds << mRetries);
    ++mRetries;
}

bool Service::isSuppressed()
{
    if (mVariables.flag(u"update.suppressed"_s)) {
        return true;
    }
    const QString tFile = mVariables.text(u"update.suppressFile"_s);
    return !tFile.isEmpty() && QFile::exists(tFile);
}

QString Service::languageOr(const std::optional<QString>& pChosen) const
{
    return pChosen && !pChosen->isEmpty() ? *pChosen : mApp.getAppLang();
}

std::optional<update::RunRequest> Service::runRequest(QString* pReason)
{
    const auto tServers = mServers.entries();
    const auto tProxy = mSettings.proxy();
    const auto tAppLanguage = mSettings.appLanguage();
    const auto tDataLanguage = mSettings.dataLanguage();
    const auto tDataDir = mSettings.dataDirectory();
    update::RunRequest tRequest;
    const bool tAllRead = readVariables(&tRequest);
    if (!tServers || !tProxy || !tAppLanguage || !tDataLanguage || !tDataDir || !tAllRead) {
        *pReason = storeFailure(u"The settings of the update"_s).mMessage;
        return std::nullopt;
    }
    for (const bool tDefault : {true, false}) {
        for (const store::ServerEntry& tEntry : *tServers) {
            if (tEntry.mEnabled && tEntry.mDefault == tDefault) {
                tRequest.mServers.append(accessOf(tEntry));
            }
        }
    }
    tRequest.mWhyNoServer = tRequest.mServers.isEmpty() ? disabledServerText(*tServers) : QString();
    tRequest.mProxyMode = tProxy->mMode;
    tRequest.mProxy = tProxy->mProxy;
    tRequest.mAppLanguage = languageOr(tAppLanguage);
    tRequest.mDataLanguage = languageOr(tDataLanguage);
    tRequest.mStateDir = mApp.getStateDir();
    tRequest.mDataDir = *tDataDir;
    return tRequest;
}

// A value that could not be read must not be taken for one that is not set: an update without caFile trusts
// other certificates.
bool Service::readVariables(update::RunRequest* pTo) const
{
    bool tAllRead = true;
    const auto tText = [&](const char* pName) { return mVariables.text(QLatin1String(pName), &tAllRead); };
    const auto tNumber = [&](const char* pName) {
        return mVariables.number(QLatin1String(pName), &tAllRead);
    };
    pTo->mInstallDir = tText("install.dir");
    pTo->mRootFile = tText("update.rootFile");
    pTo->mCaFile = tText("update.caFile");
    pTo->mWaitForAppsSeconds = static_cast<int>(tNumber("update.waitForApps"));
    pTo->mParallelDownloads = static_cast<int>(tNumber("update.parallelDownloads"));
    pTo->mBytesPerSecond = tNumber("update.bandwidthLimit");
    pTo->mLeastBytesPerSecond = tNumber("update.minimumRate");
    return tAllRead;
}

ipc::Reply Service::storeFailure(const QString& pWhat)
{
    const QString tText = u"%1: the store failed (%2)."_s.arg(pWhat, mStore.database().errorText());
    mApp.write(LogLevel::Error, tText);
    replaceDamagedStore();
    return ipc::Reply::refused(tText);
}

void Service::replaceDamagedStore()
{
    QString tReason;
    if (mStore.replaceIfDamaged(&tReason)) {
        mServers.forget();
        openMail();
        reportDamage(mStore.damagedFile());
    } else if (!tReason.isEmpty()) {
        mApp.write(LogLevel::Error, tReason);
    }
}

// Nobody may be listening yet when it is found out, and it must not go by unseen.
void Service::reportDamage(const QString& pDamagedFile)
{
    const QString tText = u"The service's store was damaged. Its settings are lost."_s;
    const QString tDetails = u"The damaged store was kept as %1."_s.arg(pDamagedFile);
    mUpdates->note(ResultStoreDamaged, tText + u' ' + tDetails);
    sendError(0, tText, tDetails);
    if (!mSockets.hasMonitor()) {
        mHeldErrors.append(messageParams(0, tText, tDetails));
    }
}

} // namespace tarn::vkservice

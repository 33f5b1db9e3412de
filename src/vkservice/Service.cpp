#include "Service.h"

#include "internal/SocketName.h"
#include "methods/Methods.h"
#include "os/Confinement.h"
#include "os/FileSystem.h"
#include "os/ProcessList.h"
#include "packages/Installation.h"
#include "process/ServiceApplication.h"
#include "process/SignalWatch.h"
#include "process/Systemd.h"

#include <vkcore/LockFile.h>

#include <QtCore/QDeadlineTimer>
#include <QtCore/QDir>
#include <QtCore/QFile>

#include <fcntl.h>
#include <grp.h>
#include <unistd.h>

#include <cerrno>

using namespace Qt::StringLiterals;

namespace tarn::vkservice {

using namespace control;
using namespace vkcore;
using process::LogLevel;
using process::ServiceApplication;

namespace {

constexpr int sLockWaitMs = 5000; // a service that is shutting down releases it within this time
constexpr int sLockLookMs = 100;
constexpr int sMinuteMs = 60000;

Result<std::optional<gid_t>> groupOf(const QString& pName)
{
    if (pName.isEmpty()) {
        return std::optional<gid_t>();
    }
    errno = 0;
    const group* tEntry = ::getgrnam(QFile::encodeName(pName).constData());
    if (tEntry == nullptr) {
        return Failure::content(u"The group %1 of service.socketGroup does not exist"_s.arg(pName));
    }
    return std::optional(tEntry->gr_gid);
}

QString socketPath(const ServiceApplication& pApp, const QString& pName)
{
    const QString tName = pName.isEmpty() ? pApp.configValue(u"service.socketName"_s) : pName;
    return protocol::socketPath(tName.isEmpty() ? protocol::defaultSocketName() : tName);
}

} // namespace

Service::Service(ServiceApplication& pApp, const Options& pOptions)
    : mApp(pApp), mSocketPath(socketPath(pApp, pOptions.mSocketName)), mSettings(mStore.database()),
      mServers(mStore.database()), mHolds(mStore.database()), mVariables(mStore.database()),
      mSockets(mMethods), mStoreCare(mStore, pApp), mConfiguration(mVariables, pApp),
      mUpdateThread(os::realFileSystem(),
                    pOptions.mProcesses != nullptr ? *pOptions.mProcesses : os::realProcessList()),
      mChecks(os::realFileSystem()),
      mUpdates(mUpdateThread, {mServers, mSettings, mVariables, mChecks, pApp, mHolds}, mStoreCare),
      mVerifications(os::realFileSystem(), {mChecks, mSettings, mVariables, mUpdates, mStoreCare, pApp}),
      mReleases(os::realFileSystem(), {mSettings, mVariables, mUpdates, mStoreCare, pApp}),
      mScheduledRuns({mSettings, mVariables, mUpdates, mStoreCare, pApp}),
      mSchedule({mSettings, mVariables, mUpdates, mScheduledRuns, mStoreCare, pApp}),
      mMail({mStore, mSettings, mVariables, mUpdates, mSchedule, pApp}),
      mView(os::realFileSystem(), {mSettings, mVariables, mUpdates, mVerifications, mSchedule, pApp}),
      mRunNotes(mUpdates, mView, pApp),
      mMetrics(os::realFileSystem(), {mVariables, {mSettings, mVerifications, mView}, pApp}),
      mEvents(mSockets, mUpdates, mVerifications, pApp),
      mLifetime(pOptions.mWorker, {mSockets, mSchedule, mUpdates, mVerifications, mMail, pApp})
{
    addMethods();
    connectParts();
}

Service::~Service() = default;

void Service::addMethods()
{
    methods::addSessionMethods(mMethods, {mSockets, mEvents, mLifetime, mConfiguration});
    methods::addUpdateMethods(mMethods, {mUpdates});
    methods::addPackageMethods(mMethods, {mVerifications, mView});
    methods::addOperatorMethods(mMethods, {mView});
    methods::addChoiceMethods(mMethods, {mHolds, mSettings, mStoreCare});
    methods::addReleaseMethods(mMethods, {mSockets, mReleases});
    methods::addSettingsMethods(mMethods, {mSettings, mConfiguration, mMail, mUpdates, mStoreCare, mApp});
    methods::addScheduleMethods(mMethods, {mSchedule, mStoreCare});
    methods::addMonitoringMethods(mMethods, {mSettings, mMail, mStoreCare});
    methods::addServerMethods(mMethods, {mServers, mStoreCare});
    mMethods.setChangeGuard([this] {
        if (mLifetime.isEnding()) {
            return u"The service is about to quit."_s;
        }
        return mUpdates.isActive() ? u"Settings can't be changed while an update is running."_s : QString();
    });
}

void Service::connectParts()
{
    connect(&mSockets, &ipc::SocketServer::peerRefused, this,
            [this](const QString& pReason) { mApp.write(LogLevel::Warning, pReason); });
    connect(&mStoreCare, &StoreCare::replaced, this, &Service::onStoreReplaced);
    connect(&mConfiguration, &Configuration::changed, &mSchedule, &ScheduleControl::onVariablesChanged);
    connect(&mConfiguration, &Configuration::changed, &mUpdates, &UpdateControl::checkSuppression);
    connect(&mConfiguration, &Configuration::changed, &mMail, &MailControl::onVariablesChanged);
    connect(&mSchedule, &ScheduleControl::checkIsDue, &mEvents, &Events::checkIsDue);
    connect(&mScheduledRuns, &ScheduledRuns::waitsTooLong, &mEvents,
            [this](const QString& pText, const QString& pDetails) {
                mEvents.errorToKeep(pText, pDetails, {process::message::sUpdateWaits, {}});
            });
    connect(&mScheduledRuns, &ScheduledRuns::waitsTooLong, &mMail, &MailControl::onWaitsTooLong);
    connect(&mUpdates, &UpdateControl::runEnded, this, &Service::onRunEnded);
    connect(&mUpdates, &UpdateControl::packagesChanged, this, &Service::onPackagesChanged);
    connect(&mVerifications, &VerifyControl::ended, this,
            [this] { mMail.onVerified(mVerifications.damaged()); });
    connect(&mStoreCare, &StoreCare::replaced, &mMetrics, &MetricsControl::noteChange);
    connect(&mUpdates, &UpdateControl::statusChanged, &mMetrics, &MetricsControl::noteChange);
    connect(&mVerifications, &VerifyControl::damageFound, &mMetrics, &MetricsControl::noteChange);
    connect(&mVerifications, &VerifyControl::ended, &mMetrics, &MetricsControl::noteChange);
    connect(&mSchedule, &ScheduleControl::changed, &mMetrics, &MetricsControl::noteChange);
    connect(&mConfiguration, &Configuration::changed, &mMetrics, &MetricsControl::noteChange);
    connect(&mMinute, &QTimer::timeout, this, &Service::onMinute);
}

Failure Service::start()
{
    if (const Failure tFailure = lockState()) {
        return tFailure;
    }
    if (const Failure tFailure = openStore()) {
        return tFailure;
    }
    mConfiguration.logComplaints();
    mVerifications.load();
    openMail();
    if (const Failure tFailure = mUpdates.recover()) {
        mApp.write(LogLevel::Error, tFailure.mText);
    }
    // The service may have been killed before it queued the mail about the run; by now the log of the
    // installed packages is complete. A run whose packages are on trial has not ended.
    if (!mUpdates.isOnTrial()) {
        mMail.onRunEnded(mUpdates.lastRun());
    }
    mMail.onVerified(mVerifications.damaged());
    if (const Failure tFailure = listen()) {
        return tFailure;
    }
    if (const Failure tFailure = mSchedule.start(mLifetime.isWorker())) {
        return tFailure;
    }
    if (!mLifetime.isWorker()) { // that of a command may end at once
        mUpdates.resumeTrial();
    }
    mMinute.start(sMinuteMs);
    if (!mLifetime.isWorker()) {
        mMetrics.start();
    }
    if (!os::Confinement::isAvailable()) {
        mApp.write(LogLevel::Notice,
                   u"The kernel has no Landlock, or only its first version: updates are not confined "
                   "to their folders."_s);
    }
    mApp.write(LogLevel::Notice, u"The service listens on %1."_s.arg(mSocketPath));
    return {};
}

Failure Service::lockState()
{
    const QString tDir = mApp.getStateDir();
    if (!QDir().mkpath(tDir)) {
        return Failure::fromErrno(errno, u"create the state directory %1"_s.arg(tDir));
    }
    // Only the owner may read the file: any process that can open it could hold the lock.
    const QString tPath = tDir + u"/state.lock"_s;
    const int tFd =
        ::open(QFile::encodeName(tPath).constData(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0600);
    if (tFd < 0) {
        return Failure::fromErrno(errno, u"open the lock file %1"_s.arg(tPath));
    }
    ::close(tFd);
    mStateLock = std::make_unique<LockFile>(&mApp, tPath, LockFile::Exclusive);
    const QDeadlineTimer tDeadline(sLockWaitMs);
    while (!mStateLock->lock(sLockLookMs, sLockLookMs / 2, false)) {
        // Another worker may serve the socket, but end before the client of this one has connected. So a
        // worker waits until that client asks it to end.
        const bool tNeedless = mLifetime.isWorker() && process::SignalWatch::isEndPending();
        if (tNeedless || tDeadline.hasExpired()) {
            return {Failure::Kind::Io, u"Another service is using the state directory %1"_s.arg(tDir)};
        }
    }
    return {};
}

Failure Service::openStore()
{
    if (const Failure tFailure = mStore.open(mApp.getStateDir())) {
        return tFailure;
    }
    const auto tCutShort = mUpdates.load();
    if (!tCutShort) {
        return {Failure::Kind::Damaged,
                u"The record of the last update can't be read: %1"_s.arg(mStoreCare.reason())};
    }
    if (*tCutShort) {
        mApp.write(LogLevel::Warning, mUpdates.lastRun().mText);
    }
    if (!mStore.damagedFile().isNull()) {
        reportDamage(mStore.damagedFile());
    } else if (mStore.isNew() && packages::Installation::isIn(mApp.getStateDir())) {
        reportLoss(u"The service's store was missing or empty. Its settings are lost."_s,
                   u"Packages are installed, so it is not the first start."_s, {});
    }
    const QString tServer = mApp.configValue(u"service.defaultServer"_s);
    if (!tServer.isEmpty() && mServers.provide(tServer) != store::ServerTable::Outcome::Done) {
        mApp.write(LogLevel::Warning,
                   u"The configuration key service.defaultServer is ignored. %1"_s.arg(mServers.reason()));
    }
    return {};
}

// Updates continue without mails.
void Service::openMail()
{
    if (const Failure tFailure = mMail.open()) {
        mApp.write(LogLevel::Error, u"No mails can be sent: %1"_s.arg(tFailure.mText));
    }
}

Failure Service::listen()
{
    const auto tGroup = groupOf(mApp.configValue(u"service.socketGroup"_s));
    if (!tGroup) {
        return tGroup.failure();
    }
    const int tInherited = process::inheritedSocket(mSocketPath);
    if (tInherited >= 0) {
        mSockets.adopt(tInherited, *tGroup);
        return {};
    }
    return mSockets.listen(mSocketPath, *tGroup);
}

void Service::onStoreReplaced(const QString& pDamagedFile)
{
    mServers.forget();
    openMail();
    reportDamage(pDamagedFile);
}

// At the time of detection there may be no monitor yet, and the error must not be lost.
void Service::reportDamage(const QString& pDamagedFile)
{
    reportLoss(u"The service's store was damaged. Its settings are lost."_s,
               u"The damaged store was kept as %1."_s.arg(pDamagedFile),
               {process::message::sStoreSetAside, {{"VK_FILE", pDamagedFile}}});
}

void Service::reportLoss(const QString& pText, const QString& pDetails, const process::JournalEvent& pEvent)
{
    mUpdates.note(ResultStoreDamaged, pText + u' ' + pDetails);
    mEvents.errorToKeep(pText, pDetails, pEvent);
}

void Service::onMinute()
{
    mUpdates.checkSuppression();
    mMail.tick();
    if (!mLifetime.isWorker()) {
        mVerifications.tick();
        mMetrics.tick();
        mScheduledRuns.tick();
    }
}

void Service::onRunEnded(const RunRecord& pRecord, bool pManual)
{
    mStoreCare.replaceIfDamaged();
    mMail.onRunEnded(pRecord);
    onPackagesChanged();
    mSchedule.onRunEnded(pRecord, pManual);
}

void Service::onPackagesChanged()
{
    mVerifications.onPackagesChanged();
    mMail.onVerified(mVerifications.damaged());
    mMetrics.noteChange();
}

} // namespace tarn::vkservice

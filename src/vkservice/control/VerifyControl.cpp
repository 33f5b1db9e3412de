#include "control/VerifyControl.h"

#include "control/InstallFolders.h"
#include "control/MachineId.h"
#include "control/PackageEntries.h"
#include "control/StoreCare.h"
#include "control/UpdateControl.h"
#include "packages/GenerationReader.h"
#include "process/ServiceApplication.h"
#include "schedule/ScheduleRules.h"
#include "store/ConfigVariables.h"
#include "store/Settings.h"

#include <QtCore/QFileInfo>
#include <QtCore/QSet>

#include <algorithm>

using namespace Qt::StringLiterals;

namespace tarn::vkservice::control {

using namespace vkcore;
using namespace vkcore::protocol;
using packages::CheckRecord;
using packages::Manifest;
using packages::PackageCheck;
using process::LogLevel;
using verify::VerifyThread;

namespace {

constexpr int sProgressMs = 1000;
constexpr qint64 sStoreSeconds = 60;
constexpr qint64 sContinueDays = 7; // an older beginning proves nothing about today

} // namespace

VerifyControl::VerifyControl(os::FileSystem& pFileSystem, const Parts& pParts)
    : mParts(pParts), mFileSystem(pFileSystem), mThread(pFileSystem),
      mNotBefore(QDateTime::currentDateTimeUtc())
{
    mProgress.setInterval(sProgressMs);
    connect(&mProgress, &QTimer::timeout, this, &VerifyControl::changed);
    connect(&mThread, &VerifyThread::packageChecked, this, &VerifyControl::onPackage);
    connect(&mThread, &VerifyThread::finished, this, &VerifyControl::onFinished);
    connect(&mParts.mUpdates, &UpdateControl::statusChanged, this, &VerifyControl::proceed);
}

void VerifyControl::load()
{
    if (const Failure tFailure = mParts.mRecord.open(mParts.mApp.getStateDir())) {
        mParts.mApp.write(LogLevel::Warning,
                          u"The record of verified packages can't be used: %1."_s.arg(tFailure.mText));
    }
}

Result<Manifest> VerifyControl::installed() const
{
    const auto tFolders = installFolders(mParts.mSettings, mParts.mVariables, mParts.mStore);
    if (!tFolders) {
        return tFolders.failure();
    }
    Manifest tInstalled;
    const Failure tFailure = packages::GenerationReader(mFileSystem, *tFolders).current(&tInstalled);
    return tFailure ? Result<Manifest>(tFailure) : Result<Manifest>(tInstalled);
}

Failure VerifyControl::start()
{
    if (mShutDown) {
        return {Failure::Kind::Canceled, u"The service is about to quit"_s};
    }
    if (mRunning) {
        Q_EMIT changed(); // who has just begun to listen sees that it runs
    } else {
        begin(false);
    }
    return {};
}

// True if the last verification was cut short, not long ago, by the end of the service.
bool VerifyControl::isContinuable() const
{
    const CheckRecord& tRecord = mParts.mRecord.record();
    const qint64 tDays = tRecord.mBegan.daysTo(QDateTime::currentDateTimeUtc());
    return tRecord.mBegan.isValid() && tDays >= 0 && tDays < sContinueDays &&
           (!tRecord.mEnded.isValid() || tRecord.mEnded < tRecord.mBegan);
}

void VerifyControl::begin(bool pContinue)
{
    if (!pContinue) {
        mParts.mRecord.record().mBegan = QDateTime::currentDateTimeUtc();
    }
    mRunning = true;
    mFailure.clear();
    Q_EMIT changed();
    proceed();
}

// Lets the thread read, or stops it, as an update demands.
void VerifyControl::proceed()
{
    if (mParts.mUpdates.isActive()) {
        mThread.abort();
        return;
    }
    if (!mRunning || mThread.isRunning()) {
        return;
    }
    const auto tFolders = installFolders(mParts.mSettings, mParts.mVariables, mParts.mStore);
    if (!tFolders) {
        finish(tFolders.failure().mText + u'.');
        return;
    }
    mThread.start({.mStateDir = mParts.mApp.getStateDir(),
                   .mInstallDir = tFolders->installDir(),
                   .mDataDir = tFolders->root(packages::Kind::Data),
                   .mDone = doneFolders()});
    mProgress.start();
}

QSet<QString> VerifyControl::doneFolders() const
{
    const CheckRecord& tRecord = mParts.mRecord.record();
    QSet<QString> tDone;
    for (const PackageCheck& tCheck : tRecord.mPackages) {
        if (tCheck.mChecked >= tRecord.mBegan) {
            tDone.insert(tCheck.mFolder);
        }
    }
    return tDone;
}

bool VerifyControl::stop()
{
    if (!mRunning) {
        return false;
    }
    mThread.abort();
    // Else the clock would start it again at once.
    mParts.mRecord.record().mSince = QDateTime::currentDateTimeUtc();
    finish(u"It was stopped."_s);
    return true;
}

void VerifyControl::shutDown()
{
    mShutDown = true;
    if (mRunning) {
        mRunning = false;
        mThread.abort();
        store();
    }
}

void VerifyControl::onPackage(const PackageCheck& pCheck)
{
    CheckRecord& tRecord = mParts.mRecord.record();
    const bool tWasDamaged = tRecord.damagedFolders().contains(pCheck.mFolder);
    const bool tIsDamaged = pCheck.mState == PackageCheck::State::Damaged;
    tRecord.put(pCheck);
    const bool tIsOld =
        !mStored.isValid() || std::abs(mStored.secsTo(QDateTime::currentDateTimeUtc())) >= sStoreSeconds;
    if (tWasDamaged || tIsDamaged || tIsOld) {
        store();
    }
    if (tIsDamaged && !tWasDamaged) {
        const QString tName = packages::PackageFolders::place(pCheck.mFolder)->mName;
        Q_EMIT damageFound(u"The installed package %1 is damaged."_s.arg(tName),
                           u"Differences in %1: %2. The first: %3."_s.arg(pCheck.mFolder)
                               .arg(pCheck.mCount)
                               .arg(packages::problemText(pCheck.mFindings.value(0))),
                           tName);
    }
}

void VerifyControl::onFinished(const verify::VerifyOutcome& pOutcome)
{
    mProgress.stop();
    if (mRunning && pOutcome.mFailure) {
        finish(pOutcome.mFailure.mText + u'.');
    } else if (mRunning && pOutcome.mIsComplete) {
        conclude(pOutcome.mFolders);
    } else {
        proceed();
    }
    if (!isReading()) {
        Q_EMIT idle();
    }
}

void VerifyControl::conclude(const QStringList& pFolders)
{
    const QSet<QString> tDone = doneFolders();
    if (!std::all_of(pFolders.begin(), pFolders.end(),
                     [&](const QString& pFolder) { return tDone.contains(pFolder); })) {
        proceed(); // it was started again meanwhile
        return;
    }
    CheckRecord& tRecord = mParts.mRecord.record();
    tRecord.keepOnly(pFolders);
    tRecord.mEnded = QDateTime::currentDateTimeUtc();
    tRecord.mSince = tRecord.mEnded;
    const qsizetype tDamaged = tRecord.damagedFolders().size();
    mParts.mApp.write(
        LogLevel::Notice,
        u"The installed packages were verified: %1 of %2 are damaged."_s.arg(tDamaged).arg(pFolders.size()),
        {process::message::sVerified, {{"VK_DAMAGED", QString::number(tDamaged)}}});
    finish({});
}

void VerifyControl::finish(const QString& pFailure)
{
    mRunning = false;
    mFailure = pFailure;
    mProgress.stop();
    if (!pFailure.isEmpty()) {
        mNotBefore = QDateTime::currentDateTimeUtc().addDays(1);
        mParts.mApp.write(LogLevel::Warning, u"The verification did not come to its end: %1"_s.arg(pFailure));
    }
    store();
    Q_EMIT changed();
    Q_EMIT ended();
}

void VerifyControl::store()
{
    mStored = QDateTime::currentDateTimeUtc();
    if (const Failure tFailure = mParts.mRecord.write()) {
        mParts.mApp.write(LogLevel::Warning,
                          u"The record of verified packages can't be written: %1."_s.arg(tFailure.mText));
    }
}

void VerifyControl::tick()
{
    const auto tDays = static_cast<int>(mParts.mVariables.number(u"update.verifyEvery"_s));
    if (tDays == 0 || mRunning || mShutDown) {
        return;
    }
    const QDateTime tNow = QDateTime::currentDateTimeUtc();
    QDateTime& tSince = mParts.mRecord.record().mSince;
    if (!tSince.isValid() || tSince > tNow) { // the first time, or the clock was ahead
        tSince = tNow;
        store();
    }
    if (tNow >= schedule::verificationDue(tSince, tDays, mNotBefore, machineId())) {
        begin(isContinuable());
    }
}

void VerifyControl::onPackagesChanged()
{
    const auto tInstalled = installed();
    CheckRecord& tRecord = mParts.mRecord.record();
    const auto tFolders = installFolders(mParts.mSettings, mParts.mVariables, mParts.mStore);
    if (!tInstalled || !tFolders) {
        return;
    }
    const bool tAnyGone = tRecord.keepOnly(tInstalled->folders());
    const bool tAnyRestored = tRecord.forgetRestored(
        [&tFolders](const QString& pFolder) { return QFileInfo(tFolders->absolute(pFolder)).isDir(); });
    if (tAnyGone || tAnyRestored) {
        store();
    }
}

VerificationState VerifyControl::state() const
{
    const CheckRecord& tRecord = mParts.mRecord.record();
    const verify::VerifyProgress tProgress = mThread.progress();
    VerificationState tState;
    tState.mRunning = mRunning;
    tState.mWaiting = mRunning && mParts.mUpdates.isActive();
    if (mRunning) {
        tState.mPackage = tProgress.mPackage;
        tState.mBytesDone = tProgress.mBytesDone;
        tState.mBytesTotal = tProgress.mBytesTotal;
    }
    tState.mBegan = tRecord.mBegan.toLocalTime();
    tState.mEnded = tRecord.mEnded.toLocalTime();
    for (const PackageCheck& tCheck : tRecord.mPackages) {
        tState.mDamaged += tCheck.mState == PackageCheck::State::Damaged;
        tState.mUnproven += tCheck.mState == PackageCheck::State::Unproven;
    }
    tState.mFailure = mFailure;
    return tState;
}

Result<PackageEntries> VerifyControl::packages() const
{
    const auto tInstalled = installed();
    if (!tInstalled) {
        return tInstalled.failure();
    }
    const QString tLanguage = mParts.mApp.languageOr(mParts.mSettings.appLanguage().value_or(QString()));
    return packageEntries(*tInstalled, mParts.mRecord.record(), tLanguage);
}

QList<PackageCheck> VerifyControl::damaged() const
{
    QList<PackageCheck> tDamaged;
    for (const PackageCheck& tCheck : mParts.mRecord.record().mPackages) {
        if (tCheck.mState == PackageCheck::State::Damaged) {
            tDamaged.append(tCheck);
        }
    }
    return tDamaged;
}

} // namespace tarn::vkservice::control

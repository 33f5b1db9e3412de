#include "control/OperatorView.h"

#include "control/KnownVariables.h"
#include "control/ScheduleControl.h"
#include "control/UpdateControl.h"
#include "control/VerifyControl.h"
#include "internal/PlainText.h"
#include "process/ServiceApplication.h"
#include "sqlite/InstallLogStore.h"
#include "store/Settings.h"

#include <QtCore/QCoreApplication>

using namespace Qt::StringLiterals;

namespace tarn::vkservice::control {

using namespace vkcore;
using namespace vkcore::protocol;

namespace {

constexpr int sWaitMs = 500; // for the lock of the install log; other requests wait meanwhile

bool isRunAt(const RunRecord& pRecord, const QDateTime& pDate)
{
    return pRecord.mBegan.isValid() && pRecord.mBegan <= pDate && pDate <= pRecord.mFinished.addSecs(1);
}

HistoryPackage packageOf(const LoggedPackage& pLogged, const QString& pLanguage)
{
    return {.mName = pLogged.mPackage,
            .mTitle = pLogged.mTitle.bestValue(pLanguage),
            .mVersion = pLogged.mVersion,
            .mPrevious = pLogged.mPrevious,
            .mStatus = pLogged.mStatus,
            .mReport = manyLines(pLogged.mReport.bestValue(pLanguage), sMaxMessage)};
}

Failure unreadable(const InstallLogStore& pLog)
{
    return {Failure::Kind::Io, u"The install log can't be read: %1"_s.arg(pLog.errorText())};
}

} // namespace

Overview OperatorView::overview()
{
    const RunRecord& tRun = mParts.mUpdates.lastRun();
    return {.mStatus = mParts.mUpdates.status(),
            .mActivity = mParts.mUpdates.progress().mActivity,
            .mVersion = QCoreApplication::applicationVersion(),
            .mCode = tRun.mCode,
            .mText = mParts.mUpdates.resultText(tRun),
            .mEnded = tRun.mFinished,
            .mLastSuccess = tRun.mLastSuccess,
            .mNextCheck = mParts.mSchedule.nextCheck(),
            .mMetadataExpires = mExpiry.of(mParts.mApp.getStateDir()).toLocalTime(),
            .mOnly = takesOnlySecurity(mParts.mVariables) ? u"security"_s : u"all"_s,
            .mPendingFixes = mParts.mSettings.pendingFixes()};
}

QString OperatorView::logPath() const
{
    return mParts.mApp.getStateDir() + u'/' + InstallLogStore::fileName();
}

// Without the log, the packages have no dates.
Result<PackageEntries> OperatorView::packages() const
{
    auto tPackages = mParts.mVerifications.packages();
    if (!tPackages) {
        return tPackages.failure();
    }
    QSet<QString> tNames;
    for (const PackageEntry& tPackage : std::as_const(tPackages->mPackages)) {
        tNames.insert(tPackage.mName);
    }
    InstallLogStore tLog;
    tLog.waitInAll(sWaitMs);
    QHash<QString, LoggedVersion> tVersions;
    if (tLog.openForReading(logPath())) {
        (void)tLog.readVersions(&tVersions, tNames);
    }
    QHash<QString, QString> tFixes;
    for (const PackageVersion& tFix : mParts.mSettings.pendingFixes().value_or(QList<PackageVersion>())) {
        tFixes.insert(tFix.mName, tFix.mVersion);
    }
    for (PackageEntry& tPackage : tPackages->mPackages) {
        if (tFixes.contains(tPackage.mName)) {
            tPackage.mPendingFix = tFixes.value(tPackage.mName);
        }
        const LoggedVersion tLogged = tVersions.value(tPackage.mName);
        tPackage.mInstalled = tLogged.mVersion == tPackage.mVersion ? tLogged.mDate : QDateTime();
    }
    return tPackages;
}

Result<History> OperatorView::history(int pRuns) const
{
    InstallLogStore tLog;
    tLog.waitInAll(sWaitMs);
    QList<LoggedRun> tRuns;
    if (!tLog.openForReading(logPath()) || !tLog.readRuns(&tRuns, pRuns)) {
        return unreadable(tLog);
    }
    const QString tLanguage = mParts.mApp.languageOr(mParts.mSettings.appLanguage().value_or(QString()));
    const RunRecord& tLast = mParts.mUpdates.lastRun();
    History tHistory;
    for (const LoggedRun& tLogged : std::as_const(tRuns)) {
        HistoryRun tRun;
        tRun.mDate = tLogged.mDate;
        if (isRunAt(tLast, tLogged.mDate)) {
            tRun.mCode = tLast.mCode;
            tRun.mText = mParts.mUpdates.resultText(tLast);
        }
        for (const LoggedPackage& tPackage : tLogged.mPackages) {
            tRun.mPackages.append(packageOf(tPackage, tLanguage));
        }
        tHistory.mRuns.append(tRun);
    }
    return tHistory;
}

} // namespace tarn::vkservice::control

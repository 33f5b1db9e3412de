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

#include <algorithm>

using namespace Qt::StringLiterals;

namespace tarn::vkservice::control {

using namespace vkcore;
using namespace vkcore::protocol;

namespace {

constexpr int sWaitMs = 500; // for the lock of the install log; other requests wait meanwhile

constexpr qsizetype sMaxTexts = 1000 * 1000; // of an answer, which else gets longer than a line may be

// pRuns: the oldest first. Null if none of them was in progress then.
const RunRecord* runAt(const QList<RunRecord>& pRuns, const QDateTime& pDate)
{
    const auto tAfter =
        std::upper_bound(pRuns.begin(), pRuns.end(), pDate,
                         [](const QDateTime& pAt, const RunRecord& pRun) { return pAt < pRun.mBegan; });
    const RunRecord* tRun = tAfter == pRuns.begin() ? nullptr : &*(tAfter - 1);
    return tRun != nullptr && pDate <= tRun->mFinished ? tRun : nullptr;
}

// Makes the history from the log, newest run first. Once the texts get too long, the older ones are left out.
class HistoryMaker
{
public:
    HistoryMaker(const QList<RunRecord>& pRuns, const QString& pLanguage) : mRuns(pRuns), mLanguage(pLanguage)
    {
    }

    HistoryRun run(const LoggedRun& pLogged)
    {
        HistoryRun tRun;
        tRun.mDate = pLogged.mDate;
        if (const RunRecord* tRecord = runAt(mRuns, pLogged.mDate)) {
            tRun.mCode = tRecord->mCode;
            tRun.mText = bounded(tRecord->mText);
        }
        for (const LoggedPackage& tPackage : pLogged.mPackages) {
            tRun.mPackages.append(package(tPackage));
        }
        return tRun;
    }

private:
    HistoryPackage package(const LoggedPackage& pLogged)
    {
        return {.mName = pLogged.mPackage,
                .mTitle = bounded(pLogged.mTitle.bestValue(mLanguage)),
                .mVersion = pLogged.mVersion,
                .mPrevious = pLogged.mPrevious,
                .mStatus = pLogged.mStatus,
                .mReport = bounded(manyLines(pLogged.mReport.bestValue(mLanguage), sMaxMessage))};
    }
    QString bounded(const QString& pText)
    {
        mSize += pText.size();
        return mSize <= sMaxTexts ? pText : QString();
    }

    const QList<RunRecord>& mRuns;
    QString mLanguage;
    qsizetype mSize = 0; // of the texts so far
};

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
    QHash<QString, QString> tVersions;
    for (const PackageEntry& tPackage : std::as_const(tPackages->mPackages)) {
        tVersions.insert(tPackage.mName, tPackage.mVersion);
    }
    InstallLogStore tLog;
    tLog.waitInAll(sWaitMs);
    QHash<QString, QDateTime> tDates;
    if (tLog.openForReading(logPath())) {
        (void)tLog.readDates(&tDates, tVersions);
    }
    QHash<QString, QString> tFixes;
    for (const PackageVersion& tFix : mParts.mSettings.pendingFixes().value_or(QList<PackageVersion>())) {
        tFixes.insert(tFix.mName, tFix.mVersion);
    }
    for (PackageEntry& tPackage : tPackages->mPackages) {
        if (tFixes.contains(tPackage.mName)) {
            tPackage.mPendingFix = tFixes.value(tPackage.mName);
        }
        tPackage.mInstalled = tDates.value(tPackage.mName);
    }
    return tPackages;
}

// The oldest first. Without them, the history has no texts.
QList<RunRecord> OperatorView::pastRuns() const
{
    auto tRuns = mParts.mSettings.pastRuns().value_or(QList<RunRecord>());
    RunRecord tLast = mParts.mUpdates.lastRun();
    const auto tPlace =
        std::lower_bound(tRuns.begin(), tRuns.end(), tLast.mBegan,
                         [](const RunRecord& pRun, const QDateTime& pBegan) { return pRun.mBegan < pBegan; });
    const bool tIsKnown = tPlace != tRuns.end() && tPlace->mBegan == tLast.mBegan;
    if (tLast.mBegan.isValid() && !tIsKnown) { // an earlier version has recorded it, to the second
        tLast.mFinished = tLast.mFinished.addSecs(1);
        tRuns.insert(tPlace, tLast);
    }
    return tRuns;
}

Result<History> OperatorView::history(int pRuns) const
{
    InstallLogStore tLog;
    tLog.waitInAll(sWaitMs);
    QList<LoggedRun> tRuns;
    if (!tLog.openForReading(logPath()) || !tLog.readRuns(&tRuns, pRuns)) {
        return unreadable(tLog);
    }
    const QList<RunRecord> tPast = pastRuns();
    HistoryMaker tMaker(tPast, mParts.mApp.languageOr(mParts.mSettings.appLanguage().value_or(QString())));
    History tHistory;
    for (const LoggedRun& tLogged : std::as_const(tRuns)) {
        tHistory.mRuns.append(tMaker.run(tLogged));
    }
    return tHistory;
}

} // namespace tarn::vkservice::control

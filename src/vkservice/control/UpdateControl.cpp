#include "control/UpdateControl.h"

#include "control/KnownVariables.h"
#include "control/StoreCare.h"
#include "internal/PlainText.h"
#include "machine/ShutdownLock.h"
#include "store/ConfigVariables.h"
#include "store/Settings.h"
#include "update/Eligibility.h"
#include "update/FailurePolicy.h"
#include "update/Reporter.h"
#include "update/RunTexts.h"
#include "update/UpdateThread.h"

#include <QtCore/QFile>

#include <algorithm>
#include <utility>

using namespace Qt::StringLiterals;

namespace tarn::vkservice::control {

using namespace vkcore;
using namespace update;

namespace {

constexpr int sResumeSeconds = 60;
constexpr int sMaxResumes = 8;
constexpr int sAlwaysDays = 30; // longer than any wait of a run

// True if a run by hand would install what this scheduled one has not: nothing waits for it.
bool leavesMoreByHand(const RunResult& pResult)
{
    const auto tLeftOut = pResult.mLeftOut.value_or(QList<vkcore::protocol::LeftOutPackage>());
    return pResult.mInstallFrom.isValid() ||
           std::any_of(tLeftOut.begin(), tLeftOut.end(), [](const auto& pPackage) {
               return pPackage.mReason == update::wordOf(update::Reason::Phase);
           });
}

} // namespace

UpdateControl::UpdateControl(UpdateThread& pThread, const RunSources& pSources, StoreCare& pStore)
    : mThread(pThread), mSources(pSources), mStore(pStore)
{
    connect(&mThread, &UpdateThread::activityChanged, this, &UpdateControl::activityChanged);
    connect(&mThread, &UpdateThread::notification, this, &UpdateControl::notification);
    connect(&mThread, &UpdateThread::logged, this, &UpdateControl::logged);
    connect(&mThread, &UpdateThread::error, this, &UpdateControl::error);
    connect(&mThread, &UpdateThread::finished, this, &UpdateControl::finish);
}

std::optional<bool> UpdateControl::load()
{
    const auto tLastRun = mSources.mSettings.lastRun();
    const auto tUnfinished = mSources.mSettings.unfinishedRun();
    if (!tLastRun || !tUnfinished) {
        return std::nullopt;
    }
    mLastRun = *tLastRun;
    mLastRun.mText = singleLine(mLastRun.mText, sMaxMessage); // an earlier version stored it unchanged
    const bool tCutShort = !tUnfinished->isEmpty();
    if (tCutShort) {
        ++mLastRun.mCutShort;
        record(ResultAborted, u"The service ended in the middle of the update."_s,
               QDateTime::fromString(*tUnfinished, Qt::ISODateWithMs));
    }
    mStatus = restingStatus();
    return tCutShort;
}

Failure UpdateControl::recover()
{
    const Result<RunRequest> tRequest = request();
    if (!tRequest) {
        return tRequest.failure();
    }
    const Failure tFailure = mThread.recover(*tRequest);
    if (const Failure tBack = mThread.wayBack()) {
        record(ResultCheckFailed, failureText(tBack), mLastRun.mBegan);
        mStatus = restingStatus();
    }
    if (const auto tRefused = mThread.refused(); !tRefused.isEmpty()) {
        if (!mThread.wayBack()) {
            noteWayBackByHand(tRefused);
        }
        noteRefused(tRefused);
        Q_EMIT packagesChanged();
    }
    return tFailure;
}

// In the history it has a result of its own.
void UpdateControl::noteWayBackByHand(const QList<packages::Refusal>& pRefused)
{
    if (!pRefused.isEmpty() && !mSources.mSettings.addPastRun({.mCode = ResultSuccess,
                                                               .mText = pRefused.first().mReason + u'.',
                                                               .mFinished = QDateTime::currentDateTime(),
                                                               .mLastSuccess = {},
                                                               .mBegan = pRefused.first().mDate})) {
        Q_EMIT error(0, u"The way back could not be stored for the history."_s, {});
    }
}

bool UpdateControl::isOnTrial() const
{
    return mThread.isOnTrial();
}

void UpdateControl::resumeTrial()
{
    if (mStopped || isActive() || !isOnTrial()) {
        return;
    }
    Result<RunRequest> tRequest = request();
    if (tRequest) {
        tRequest->mOnlyTrial = true;
        (void)begin(*tRequest, false); // else the next run does it
    }
}

Failure UpdateControl::rollBack(qint64 pGeneration)
{
    if (mStopped || isActive()) {
        return {Failure::Kind::Canceled, u"An update is running"_s};
    }
    const Result<RunRequest> tRequest = request();
    if (!tRequest) {
        return tRequest.failure();
    }
    const Failure tFailure = mThread.rollBack(*tRequest, pGeneration);
    noteWayBackByHand(mThread.refused());
    noteRefused(mThread.refused());
    Q_EMIT packagesChanged();
    return tFailure;
}

void UpdateControl::noteAccepted(const QString& pPackage)
{
    changeLeftOut([&pPackage](const auto& pBefore) { return withoutRefused(pBefore, pPackage); });
    Q_EMIT packagesChanged();
}

void UpdateControl::noteRefused(const QList<packages::Refusal>& pRefused)
{
    if (pRefused.isEmpty()) {
        return;
    }
    changeLeftOut([&pRefused](const auto& pBefore) { return withRefused(pBefore, pRefused); });
    const auto tPending = mSources.mSettings.pendingFixes();
    storePending(tPending ? std::optional(withLost(*tPending, pRefused)) : std::nullopt);
}

void UpdateControl::storePending(const std::optional<QList<protocol::PackageVersion>>& pFixes)
{
    if (!pFixes || !mSources.mSettings.setPendingFixes(*pFixes)) {
        Q_EMIT error(0, u"The list of pending security updates could not be stored."_s, {});
    }
}

// What the last run left out is stored.
void UpdateControl::changeLeftOut(const std::function<LeftOutPackages(const LeftOutPackages&)>& pChange)
{
    const auto tBefore = mSources.mSettings.leftOut();
    if (!tBefore || !mSources.mSettings.setLeftOut(pChange(*tBefore))) {
        Q_EMIT error(0, u"The list of packages that were left out could not be stored."_s, {});
    }
}

Result<RunRequest> UpdateControl::request()
{
    if (auto tRequest = runRequest(mSources)) {
        return *tRequest;
    }
    return mStore.failure(u"The settings of the update"_s);
}

// None for a run by hand. That may also come while another one is in progress.
Result<OpeningAt> UpdateControl::openings(bool pManual)
{
    mSwitchAtOnce = std::make_shared<std::atomic_bool>(pManual);
    const Result<schedule::Windows> tWindows = pManual ? schedule::Windows() : windowsOf(mSources.mVariables);
    if (!tWindows) {
        return tWindows.failure();
    }
    if (tWindows->isEmpty()) {
        return OpeningAt();
    }
    return OpeningAt([tAtOnce = mSwitchAtOnce, tWindows = *tWindows](const QDateTime& pNow) {
        return *tAtOnce ? Opening{pNow, pNow.addDays(sAlwaysDays)} : tWindows.at(pNow);
    });
}

std::optional<int> UpdateControl::resumeSeconds() const
{
    const int tTimes = mLastRun.mCutShort;
    return tTimes > 0 && tTimes <= sMaxResumes ? std::optional(sResumeSeconds << (tTimes - 1)) : std::nullopt;
}

void UpdateControl::note(ResultCode pCode, const QString& pText)
{
    record(pCode, pText);
    if (!isActive()) {
        setStatus(restingStatus());
    }
}

bool UpdateControl::isSuppressed() const
{
    if (mSources.mVariables.flag(u"update.suppressed"_s)) {
        return true;
    }
    const QString tFile = mSources.mVariables.text(u"update.suppressFile"_s);
    return !tFile.isEmpty() && QFile::exists(tFile);
}

ServiceStatus UpdateControl::restingStatus() const
{
    if (isSuppressed()) {
        return StatusSuppressed;
    }
    switch (mLastRun.mCode) {
    case ResultNone:
    case ResultSuccess:
    case ResultAborted:
    case ResultSuppressed:
        return StatusIdle;
    default:
        return StatusError;
    }
}

ServiceStatus UpdateControl::status() const
{
    return isActive() ? mStatus : restingStatus();
}

bool UpdateControl::isActive() const
{
    return mStatus == StatusUpdating || mStatus == StatusAborting;
}

update::Progress UpdateControl::progress() const
{
    update::Progress tProgress = mThread.progress();
    tProgress.mText = singleLine(tProgress.mText, sMaxMessage);
    return tProgress;
}

QString UpdateControl::resultText(const RunRecord& pRecord) const
{
    const QString tText = pRecord.mText.isEmpty()
                              ? vkservice::resultText(static_cast<ResultCode>(pRecord.mCode))
                              : pRecord.mText;
    return mPutOff.isEmpty() ? tText : tText + u' ' + mPutOff;
}

Failure UpdateControl::trigger(bool pManual)
{
    if (mStopped) {
        return {Failure::Kind::Canceled, u"The service is about to quit"_s};
    }
    if (isActive()) {
        if (mOnlyTrial || (pManual && !mManual)) {
            mTriggered = pManual || mTriggered.value_or(false);
        }
        if (!mOnlyTrial) {
            *mSwitchAtOnce = *mSwitchAtOnce || pManual;
        }
        return {};
    }
    mPutOff.clear();
    if (isSuppressed()) {
        record(ResultSuppressed, vkservice::resultText(ResultSuppressed));
        mSessionRun = mLastRun;
        mStatus = StatusSuppressed;
        // Repeated even if the status did not change: a client that asked for a run waits for its end.
        Q_EMIT statusChanged(StatusSuppressed);
        return {};
    }
    return startRun(pManual);
}

Failure UpdateControl::startRun(bool pManual)
{
    const Result<RunRequest> tRequest = requestFor(pManual);
    return tRequest ? begin(*tRequest, pManual) : tRequest.failure();
}

Result<RunRequest> UpdateControl::requestFor(bool pManual)
{
    Result<RunRequest> tRequest = request();
    if (!tRequest) {
        return tRequest;
    }
    const Result<OpeningAt> tOpenings = openings(pManual);
    if (!tOpenings) {
        return tOpenings.failure();
    }
    tRequest->mChoices.mIsScheduled = !pManual;
    tRequest->mOpeningAt = *tOpenings;
    tRequest->mHoldMachine = [] {
        return std::make_shared<machine::ShutdownLock>(u"Software updates are being installed."_s);
    };
    return tRequest;
}

Failure UpdateControl::begin(const RunRequest& pRequest, bool pManual)
{
    // A run that was killed in its checks goes on with this one: what it has installed counts here.
    const bool tGoesOn = isOnTrial() && mLastRun.mCutShort > 0 && mLastRun.mBegan.isValid();
    mBegan = tGoesOn ? mLastRun.mBegan : QDateTime::currentDateTimeUtc();
    mManual = pManual;
    // The run continues without the mark, but will not count as interrupted if the service is killed.
    mSources.mSettings.beginRun(mBegan.toString(Qt::ISODateWithMs));
    mOnlyTrial = pRequest.mOnlyTrial;
    if (!mThread.start(pRequest)) {
        mSources.mSettings.beginRun({});
        return {Failure::Kind::Io, u"The update can't be started"_s};
    }
    Q_EMIT runStarted(pManual);
    setStatus(StatusUpdating);
    return {};
}

void UpdateControl::putOff(const QString& pText)
{
    mPutOff = pText;
    Q_EMIT notification(update::MessageInformation, pText, {});
}

bool UpdateControl::abort()
{
    if (!isActive()) {
        return false;
    }
    mTriggered.reset();
    setStatus(StatusAborting);
    mThread.abort();
    return true;
}

bool UpdateControl::stop()
{
    mStopped = true;
    return abort();
}

void UpdateControl::finish(const RunResult& pResult)
{
    mLastRun.mCutShort = 0;
    record(pResult.mCode, pResult.mText, mBegan, pResult.mTraffic);
    mSessionRun = mLastRun;
    if (pResult.mPendingFixes) {
        storePending(pResult.mPendingFixes);
    }
    for (const QString& tServer : pResult.mUnusableServers) {
        Q_EMIT serverUnusable(tServer);
    }
    if (pResult.mLeftOut) {
        changeLeftOut([&pResult](const auto&) { return *pResult.mLeftOut; });
    }
    noteRefused(pResult.mRefused);
    mPreparedFor = pResult.mInstallFrom;
    Q_EMIT runEnded(mSessionRun, mManual);
    const bool tLeavesMore = std::exchange(mOnlyTrial, false) || leavesMoreByHand(pResult);
    const auto tTriggered = std::exchange(mTriggered, std::nullopt);
    if (tLeavesMore && tTriggered && pResult.mCode == ResultSuccess && !isSuppressed()) {
        const Failure tFailure = startRun(*tTriggered);
        if (!tFailure) {
            return; // for clients it was one run
        }
        record(resultCode(tFailure), failureText(tFailure), QDateTime::currentDateTimeUtc());
        mSessionRun = mLastRun;
        Q_EMIT runEnded(mSessionRun, *tTriggered);
    }
    setStatus(restingStatus());
}

void UpdateControl::record(ResultCode pCode, const QString& pText, const QDateTime& pBegan,
                           const RunTraffic& pTraffic)
{
    mLastRun.mCode = pCode;
    mLastRun.mText = singleLine(pText, sMaxMessage);
    mLastRun.mBegan = pBegan;
    mLastRun.mFinished = QDateTime::currentDateTime();
    if (pCode == ResultSuccess) {
        mLastRun.mLastSuccess = mLastRun.mFinished;
    }
    if (!mSources.mSettings.setLastRun(mLastRun, pTraffic)) {
        Q_EMIT error(0, u"The result of the update could not be stored."_s, pText);
    }
}

void UpdateControl::setStatus(ServiceStatus pStatus)
{
    if (mStatus != pStatus) {
        mStatus = pStatus;
        Q_EMIT statusChanged(pStatus);
    }
}

void UpdateControl::checkSuppression()
{
    if (!isActive()) {
        setStatus(restingStatus());
    }
}

} // namespace tarn::vkservice::control

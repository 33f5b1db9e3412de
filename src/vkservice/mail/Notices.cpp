#include "mail/Notices.h"

#include "mail/MachineStatus.h"
#include "mail/MailContent.h"
#include "mail/MailMemory.h"
#include "mail/Messages.h"
#include "mail/Outbox.h"
#include "sqlite/Database.h"

#include <algorithm>
#include <optional>

using namespace Qt::StringLiterals;

namespace tarn::vkservice::mail {

namespace {

constexpr qint64 sDay = 24 * 60 * 60;

// Keys in the mail memory; they are stored in databases and must not change.
const QString sWatchingSince = u"watchingSince"_s;
const QString sLastRun = u"lastRun"_s;
const QString sFailure = u"failure"_s;           // the result that was reported as a failure last
const QString sOverdueSince = u"overdueSince"_s; // the last success before the overdue time reported
// When the clock was first seen to be earlier than the last success; removed when that ends.
const QString sClockBehindSince = u"clockBehindSince"_s;
const QString sDamaged = u"damaged"_s; // the folders of the packages that were reported
const QString sLastSummary = u"lastSummary"_s;
const QString sSummaryDigest = u"summaryDigest"_s;

qint64 secondsOfDays(int pDays)
{
    return qint64{std::max(pDays, 1)} * sDay;
}

// Failures that another run does not simply fix, unlike those of the network; the overdue mail covers the
// time without success.
bool isLastingFailure(ResultCode pResult)
{
    return pResult == ResultVerificationFailed || pResult == ResultNoSpace ||
           pResult == ResultInstallFailed || pResult == ResultStoreDamaged || pResult == ResultCheckFailed;
}

} // namespace

// The consequences of a run: perhaps a mail, perhaps the start or the end of a failure.
struct Notices::Story
{
    std::optional<MailKind> mKind;
    MailContent mContent;
    bool mFailureChanges = false;
    QString mFailure;
};

bool Notices::commit(const std::function<bool()>& pBody)
{
    const bool tOk = mDatabase.transaction([&] {
        const bool tDone = pBody();
        return !mMemory.takeReadFailure() && tDone;
    });
    const QString tReason = mOutbox.errorText().isEmpty() ? mDatabase.errorText() : mOutbox.errorText();
    mErrorText = tOk ? QString() : tReason;
    return tOk;
}

bool Notices::startWatching(const QDateTime& pNow)
{
    return !mMemory.text(sWatchingSince).isNull() ||
           commit([&] { return mMemory.setTime(sWatchingSince, pNow); });
}

Notices::Story Notices::storyOf(const Audience& pAudience, const RunReport& pRun)
{
    const vkcore::MonitoringSettings& tSettings = pAudience.mSettings;
    const bool tMails = tSettings.eventMailsEnabled() && !pAudience.mAddresses.isEmpty();
    const bool tUpdateMails = tMails && tSettings.eventMailOnUpdate();
    const QString tFailure = QString::number(pRun.mResult);
    const bool tReported = mMemory.text(sFailure) == tFailure;
    Story tStory;
    // If an aborted run has installed something, the service did not survive it.
    if (pRun.mResult == ResultSuccess || pRun.mResult == ResultAborted) {
        tStory.mFailureChanges = pRun.mResult == ResultSuccess;
        if (tUpdateMails && !pRun.mPackages.isEmpty()) {
            tStory.mKind = MailKind::UpdateDone;
            tStory.mContent = updateDone(pAudience.mClient, pRun);
        }
    } else if (pRun.mResult == ResultManualIntervention) {
        if (tMails && tSettings.eventMailOnManualIntervention() && !tReported) {
            tStory = {.mKind = MailKind::ManualIntervention,
                      .mContent = manualIntervention(pAudience.mClient, pRun),
                      .mFailureChanges = true,
                      .mFailure = tFailure};
        }
    } else if (isLastingFailure(pRun.mResult) && tUpdateMails && !tReported) {
        tStory = {.mKind = MailKind::UpdateFailed,
                  .mContent = updateFailed(pAudience.mClient, pRun),
                  .mFailureChanges = true,
                  .mFailure = tFailure};
    }
    return tStory;
}

bool Notices::runFinished(const Audience& pAudience, const RunReport& pRun)
{
    if (mMemory.text(sLastRun) == pRun.mRunId) {
        return true;
    }
    const Story tStory = storyOf(pAudience, pRun);
    return commit([&] {
        return (!tStory.mKind || mOutbox.add(*tStory.mKind, pAudience.mAddresses, tStory.mContent)) &&
               (!tStory.mFailureChanges || mMemory.setText(sFailure, tStory.mFailure)) &&
               mMemory.setText(sLastRun, pRun.mRunId);
    });
}

bool Notices::personNeeded(const Audience& pAudience, const RunReport& pWhat)
{
    const vkcore::MonitoringSettings& tSettings = pAudience.mSettings;
    const bool tMails = tSettings.eventMailsEnabled() && tSettings.eventMailOnManualIntervention() &&
                        !pAudience.mAddresses.isEmpty();
    return !tMails || commit([&] {
        return mOutbox.add(MailKind::ManualIntervention, pAudience.mAddresses,
                           manualIntervention(pAudience.mClient, pWhat));
    });
}

bool Notices::damageKnown(const Audience& pAudience, const DamageReport& pDamage)
{
    const vkcore::MonitoringSettings& tSettings = pAudience.mSettings;
    const QStringList tReported = mMemory.text(sDamaged).split(u'\n', Qt::SkipEmptyParts);
    const bool tIsNew = std::any_of(pDamage.mFolders.begin(), pDamage.mFolders.end(),
                                    [&](const QString& pFolder) { return !tReported.contains(pFolder); });
    const bool tMails = tSettings.eventMailsEnabled() && tSettings.eventMailOnManualIntervention() &&
                        !pAudience.mAddresses.isEmpty();
    if (tReported == pDamage.mFolders || (tIsNew && !tMails)) {
        return !mMemory.takeReadFailure();
    }
    return commit([&] {
        return (!tIsNew || mOutbox.add(MailKind::Damage, pAudience.mAddresses,
                                       damageFound(pAudience.mClient, pDamage))) &&
               mMemory.setText(sDamaged,
                               pDamage.mFolders.isEmpty() ? QString() : pDamage.mFolders.join(u'\n'));
    });
}

// The last success, or the start of the wait for the first one.
QDateTime Notices::lastGood(const MachineStatus& pStatus)
{
    return pStatus.mLastSuccess.isValid() ? pStatus.mLastSuccess : mMemory.time(sWatchingSince);
}

// A last success in the future means that the clock was ahead then or is behind now. The true age of the
// success is unknown, so the time counts from the moment when that was first noticed.
bool Notices::noteClock(const QDateTime& pLastGood, const QDateTime& pNow)
{
    const QDateTime tNoted = mMemory.time(sClockBehindSince);
    if (!pLastGood.isValid() || pLastGood <= pNow) {
        return !tNoted.isValid() || commit([&] { return mMemory.setTime(sClockBehindSince, {}); });
    }
    return (tNoted.isValid() && tNoted <= pNow) ||
           commit([&] { return mMemory.setTime(sClockBehindSince, pNow); });
}

QDateTime Notices::waitingSince(const MachineStatus& pStatus, const QDateTime& pNow)
{
    const QDateTime tGood = lastGood(pStatus);
    return tGood.isValid() && tGood > pNow ? mMemory.time(sClockBehindSince) : tGood;
}

bool Notices::isOverdue(const Audience& pAudience, const MachineStatus& pStatus, const QDateTime& pNow)
{
    const QDateTime tSince = waitingSince(pStatus, pNow);
    return tSince.isValid() &&
           tSince.secsTo(pNow) >= secondsOfDays(pAudience.mSettings.updateOverduePeriod());
}

bool Notices::checkOverdue(const Audience& pAudience, const MachineStatus& pStatus, const QDateTime& pNow)
{
    const vkcore::MonitoringSettings& tSettings = pAudience.mSettings;
    const QDateTime tGood = lastGood(pStatus);
    if (!noteClock(tGood, pNow)) {
        return false;
    }
    if (!tSettings.eventMailsEnabled() || !tSettings.eventMailOnOverdue() || pAudience.mAddresses.isEmpty() ||
        !isOverdue(pAudience, pStatus, pNow)) {
        return true;
    }
    const QDateTime tReported = mMemory.time(sOverdueSince);
    if (tReported.isValid() && tReported.toSecsSinceEpoch() == tGood.toSecsSinceEpoch()) {
        return true;
    }
    return commit([&] {
        return mOutbox.add(MailKind::Overdue, pAudience.mAddresses,
                           updateOverdue(pAudience.mClient, pStatus, waitingSince(pStatus, pNow),
                                         tSettings.updateOverduePeriod())) &&
               mMemory.setTime(sOverdueSince, tGood);
    });
}

bool Notices::isSummaryDue(const Audience& pAudience, const QDateTime& pNow)
{
    const QDateTime tNoted = mMemory.time(sLastSummary);
    const QDateTime tLast = tNoted.isValid() ? tNoted : pAudience.mSettings.mLastSummary;
    if (!tLast.isValid()) {
        return true;
    }
    const qint64 tPassed = tLast.secsTo(pNow);
    // A last summary far in the future was sent before the clock was set back.
    return tPassed >= secondsOfDays(pAudience.mSettings.summarizedMailPeriod()) || tPassed < -sDay;
}

bool Notices::checkSummary(const Audience& pAudience, const MachineStatus& pStatus, const QDateTime& pNow,
                           QDateTime* pQueued)
{
    *pQueued = QDateTime();
    const vkcore::MonitoringSettings& tSettings = pAudience.mSettings;
    if (!tSettings.summarizedMailsEnabled() || pAudience.mAddresses.isEmpty() ||
        !isSummaryDue(pAudience, pNow)) {
        return true;
    }
    const bool tOverdue = isOverdue(pAudience, pStatus, pNow);
    const QString tDigest = QString::fromLatin1(summaryDigest(pAudience.mClient, pStatus, tOverdue));
    if (tSettings.summarizedMailsOnChangeOnly() && mMemory.text(sSummaryDigest) == tDigest) {
        return true;
    }
    const bool tOk = commit([&] {
        return mOutbox.add(MailKind::Summary, pAudience.mAddresses,
                           summary(pAudience.mClient, pStatus, tOverdue)) &&
               mMemory.setTime(sLastSummary, pNow) && mMemory.setText(sSummaryDigest, tDigest);
    });
    if (tOk) {
        *pQueued = pNow;
    }
    return tOk;
}

} // namespace tarn::vkservice::mail

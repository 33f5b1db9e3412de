#include "control/MetricsSections.h"

#include "control/OperatorView.h"
#include "control/VerifyControl.h"
#include "metrics/Page.h"
#include "store/Settings.h"
#include "values/ResultCode.h"

#include <algorithm>

using namespace Qt::StringLiterals;

namespace tarn::vkservice::control {

using metrics::Page;

namespace {

void addService(const MetricsParts& pParts, Page* pTo)
{
    const auto tOverview = pParts.mView.overview();
    pTo->gauge("vkservice_build_info", "The version of the service; the value is always 1.");
    pTo->value(1, {{"version", tOverview.mVersion}});
    pTo->gauge("vkservice_suppressed", "Whether updates are suppressed on this machine.");
    pTo->value(tOverview.mStatus == vkcore::StatusSuppressed);
}

void addLastRun(const MetricsParts& pParts, Page* pTo)
{
    const auto tOverview = pParts.mView.overview();
    pTo->gauge("vkservice_last_success_timestamp_seconds",
               "When the last successful update ended; 0 if there was none.");
    pTo->value(tOverview.mLastSuccess);
    pTo->gauge("vkservice_last_run_timestamp_seconds", "When the last update ended; 0 if there was none.");
    pTo->value(tOverview.mEnded);
    pTo->gauge(
        "vkservice_last_run_result_code",
        "The result of the last update: 1 is success, 0 that there was none; vkservice(8) has the others.");
    pTo->value(tOverview.mCode);
}

void addDates(const MetricsParts& pParts, Page* pTo)
{
    const auto tOverview = pParts.mView.overview();
    if (tOverview.mNextCheck.isValid()) {
        pTo->gauge("vkservice_next_check_timestamp_seconds", "When the next scheduled update is due.");
        pTo->value(tOverview.mNextCheck);
    }
    if (tOverview.mMetadataExpires.isValid()) {
        pTo->gauge("vkservice_metadata_expiry_timestamp_seconds",
                   "When the first of the trusted metadata files expires.");
        pTo->value(tOverview.mMetadataExpires);
    }
}

void addCounters(const MetricsParts& pParts, Page* pTo)
{
    const auto tCounters = pParts.mSettings.counters();
    if (!tCounters) {
        return;
    }
    pTo->counter("vkservice_runs_total", "Updates that have ended, by their result code.");
    for (const auto& [tCode, tWord] : resultWords()) {
        pTo->value(tCounters->mRuns.value(tCode), {{"code", QString::number(tCode)}, {"result", tWord}});
    }
    pTo->counter("vkservice_downloaded_bytes_total", "Bytes of packages that servers have sent.");
    pTo->value(tCounters->mReceived);
    pTo->counter("vkservice_saved_bytes_total",
                 "Bytes that downloads of whole archives would have cost beyond those.");
    pTo->value(tCounters->mSaved);
}

void addPackages(const MetricsParts& pParts, Page* pTo)
{
    const auto tPackages = pParts.mVerifications.packages();
    if (!tPackages) {
        return;
    }
    pTo->gauge("vkservice_packages", "Installed packages.");
    pTo->value(tPackages->mPackages.size());
    if (tPackages->mPackages.isEmpty()) {
        return;
    }
    pTo->gauge("vkservice_package_info", "An installed package and its version; the value is always 1.");
    for (const auto& tPackage : tPackages->mPackages) {
        pTo->value(1, {{"package", tPackage.mName}, {"version", tPackage.mVersion}});
    }
}

// Every reason has its line, so that an alert sees a 0 before it sees a 1.
void addLeftOut(const MetricsParts& pParts, Page* pTo)
{
    const auto tLeftOut = pParts.mSettings.leftOut();
    if (!tLeftOut) {
        return;
    }
    pTo->gauge("vkservice_packages_left_out",
               "Offered packages that the last update left out, by the reason.");
    for (const auto tReason :
         {"held"_L1, "ordinary"_L1, "phase"_L1, "halted"_L1, "refused"_L1, "requirement"_L1}) {
        const auto tCount =
            std::count_if(tLeftOut->begin(), tLeftOut->end(),
                          [tReason](const auto& pPackage) { return pPackage.mReason == tReason; });
        pTo->value(tCount, {{"reason", tReason}});
    }
}

void addPendingFixes(const MetricsParts& pParts, Page* pTo)
{
    if (const auto tFixes = pParts.mSettings.pendingFixes()) {
        pTo->gauge("vkservice_security_pending",
                   "Security updates that the last update was offered, and that are not installed.");
        pTo->value(tFixes->size());
    }
}

void addVerification(const MetricsParts& pParts, Page* pTo)
{
    const auto tState = pParts.mVerifications.state();
    pTo->gauge("vkservice_packages_damaged", "Installed packages with files that are not as published.");
    pTo->value(tState.mDamaged);
    pTo->gauge("vkservice_packages_unproven", "Installed packages that can't be proven.");
    pTo->value(tState.mUnproven);
    pTo->gauge("vkservice_last_verification_timestamp_seconds",
               "When the last complete verification ended; 0 if there was none.");
    pTo->value(tState.mEnded);
}

} // namespace

const QList<AddMetrics>& metricsSections()
{
    static const QList<AddMetrics> sSections{&addService,  &addLastRun,      &addDates,   &addCounters,
                                             &addPackages, &addVerification, &addLeftOut, &addPendingFixes};
    return sSections;
}

} // namespace tarn::vkservice::control

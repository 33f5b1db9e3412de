#include "update/run/FirstSteps.h"

#include "packages/Refusals.h"
#include "update/FreeSpace.h"
#include "update/Reporter.h"
#include "update/run/RunParts.h"
#include "update/RunConfinement.h"

namespace tarn::vkservice::update {

namespace {

// Space for metadata and notes; the space for packages is only known after these were read.
constexpr qint64 sStateBytes = 4 * 1024 * 1024;

} // namespace

Failure enterWorkplace(RunParts& pParts)
{
    if (const Failure tFailure = pParts.mWorkplace.open(packages::NewRoots::Make)) {
        return tFailure;
    }
    for (const QString& tWarning : pParts.mWorkplace.warnings()) {
        pParts.warn(tWarning + u'.');
    }
    return confineRun(pParts.mRequest, pParts.mWorkplace.writableFolders());
}

Failure settleEarlierRun(RunParts& pParts)
{
    const Failure tTrial = pParts.mTrial.resume(true);
    pParts.tidyUp();
    if (!tTrial) {
        pParts.mUnlogged = pParts.updateInstallLog();
    }
    return tTrial;
}

Failure loadRefusals(RunParts& pParts)
{
    QString tWarning;
    const auto tRefusals =
        packages::Refusals::loadOrSetAside(pParts.mFileSystem, pParts.mRequest.mStateDir, &tWarning);
    if (!tRefusals) {
        return tRefusals.failure();
    }
    if (!tWarning.isEmpty()) {
        pParts.mReporter.error(tWarning + u'.', {});
    }
    for (const packages::Refusal& tRefusal : tRefusals->all()) {
        pParts.mRequest.mChoices.mRefused.insert(tRefusal.mHash.toHex());
    }
    return {};
}

Failure openStores(RunParts& pParts)
{
    if (const Failure tFailure = pParts.mDownloads.open()) {
        return tFailure;
    }
    if (const Failure tFailure = pParts.mIndexes.open()) {
        return tFailure;
    }
    pParts.findLostIndexes();
    return {};
}

Failure checkRoom(RunParts& pParts)
{
    if (const Failure tFailure =
            checkFreeSpace(pParts.mFileSystem, {{pParts.mRequest.mStateDir, sStateBytes}})) {
        return tFailure;
    }
    // Only the current manifest records that run, and another generation would make its removal more likely.
    return pParts.mUnlogged;
}

} // namespace tarn::vkservice::update

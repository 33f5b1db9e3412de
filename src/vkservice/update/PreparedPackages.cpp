#include "update/PreparedPackages.h"

#include "os/AbortFlag.h"
#include "trees/IndexStore.h"
#include "trees/TreeCheck.h"
#include "update/Plan.h"
#include "update/Reporter.h"
#include "update/RunRecords.h"
#include "update/Workplace.h"

using namespace Qt::StringLiterals;

namespace tarn::vkservice::update {

using packages::InstalledPackage;

Failure PreparedPackages::adopt(Plan* pPlan)
{
    packages::Manifest tPrepared;
    // An unreadable record names nothing; it is removed with the folders that the intent names.
    const Failure tUnread = mParts.mWorkplace.generations().reader().prepared(&tPrepared);
    QList<InstalledPackage> tKept;
    for (PlannedPackage& tPackage : pPlan->mPackages) {
        const InstalledPackage* tFound = tPrepared.find(tPackage.name());
        tPackage.mIsStaged = false;
        if (tPackage.mFailure || tFound == nullptr || tFound->mHash != tPackage.mOffer.hash() ||
            tFound->mFolder != tPackage.folder(mParts.mWorkplace.folders())) {
            continue;
        }
        const Result<bool> tIsProven = isProven(tPackage);
        if (!tIsProven) {
            return tIsProven.failure();
        }
        if (*tIsProven) {
            tPackage.mIsStaged = true;
            tKept.append(*tFound);
        }
    }
    if (tUnread || tKept.size() < tPrepared.mPackages.size()) {
        (void)mParts.mWorkplace.generations().setPrepared(tKept); // what is on the list is proven again
        (void)mParts.mWorkplace.tidyUp();                         // the next run tries again
    }
    return {};
}

// A failure only after an abort.
Result<bool> PreparedPackages::isProven(const PlannedPackage& pPackage) const
{
    const packages::PackageInfo& tInfo = pPackage.mOffer.mInfo;
    if (!tInfo.mIndex || !mParts.mIndexes.has(tInfo.mIndex->mText)) {
        return false;
    }
    mParts.mReporter.begin(vkcore::ActivityVerifying, true, tInfo.mInstalledSize, true);
    mParts.mReporter.setText(pPackage.name());
    const Result<trees::TreeReport> tReport = trees::checkTree(
        mParts.mFileSystem, &mParts.mAbort, pPackage.stagingFolder(mParts.mWorkplace.folders()),
        mParts.mIndexes.pathOf(tInfo.mIndex->mText),
        {.mMaxBytes = tInfo.mInstalledSize, .mArchiveSize = pPackage.mOffer.mTarget.mLength},
        [this](qint64 pBytes) { mParts.mReporter.advance(pBytes); });
    if (mParts.mAbort.isSet()) {
        return Failure::canceled();
    }
    return tReport && tReport->mFaults == 0;
}

Failure PreparedPackages::keep(const Plan& pPlan)
{
    QList<InstalledPackage> tKept = newPackages(pPlan, mParts.mWorkplace.folders());
    tKept.removeIf([](const InstalledPackage& pPackage) { return !pPackage.mInfo.mIndex; });
    return mParts.mWorkplace.generations().setPrepared(tKept);
}

void PreparedPackages::forget()
{
    (void)mParts.mWorkplace.generations().setPrepared({}); // the next run finds none of them
}

} // namespace tarn::vkservice::update

#include "update/supply/Advisories.h"

#include "os/FileTools.h"
#include "packages/Manifest.h"
#include "update/Eligibility.h"
#include "update/Reporter.h"
#include "update/supply/Orders.h"

#include <algorithm>

using namespace Qt::StringLiterals;

namespace tarn::vkservice::update {

namespace {

using packages::Attachment;
using packages::AttachmentKind;

// Of the texts of a run together, each counted for every language of its package's report: they go into the
// manifest and into the install log.
constexpr qint64 sMostBytes = qint64(4) * 1024 * 1024;

qint64 costOf(const packages::PackageInfo& pInfo, const Attachment& pAdvisory)
{
    return pAdvisory.mFile.mLength * std::max<qint64>(pInfo.mReport.values().size(), 1);
}

// A later version still has the advisory of its last fix, which says nothing new to who has the fix.
bool isNews(const Offer& pOffer, const packages::Manifest& pInstalled)
{
    const packages::InstalledPackage* tInstalled = pInstalled.find(pOffer.mInfo.mName);
    return tInstalled == nullptr || !pOffer.mInfo.mRelease.mSecuritySince || isFix(pOffer, tInstalled);
}

void giveUp(PlannedPackage* pPackage, const QString& pWhy, Reporter& pReporter)
{
    pPackage->mAdvisory = u"(it could not be fetched)"_s;
    pReporter.notify(MessageWarning,
                     u"The advisory of the package %1 is missing in the install log."_s.arg(pPackage->name()),
                     pWhy);
}

} // namespace

Failure fetchAdvisories(const SupplyParts& pParts, Orders& pOrders, Plan* pPlan)
{
    std::vector<Download> tDownloads;
    std::vector<PlannedPackage*> tOwners;
    qint64 tRoom = sMostBytes;
    for (PlannedPackage& tPackage : pPlan->mPackages) {
        const packages::PackageInfo& tInfo = tPackage.mOffer.mInfo;
        const Attachment* tAdvisory = tInfo.attachment(AttachmentKind::Advisory);
        if (tAdvisory == nullptr || tPackage.mFailure || tPackage.mRepair > 0 ||
            !isNews(tPackage.mOffer, pParts.mInstalled)) {
            continue;
        }
        const qint64 tCost = costOf(tInfo, *tAdvisory);
        if (tCost > tRoom) { // a shorter one may still fit
            giveUp(&tPackage, u"The advisories of this update are too long together"_s, pParts.mReporter);
            continue;
        }
        tRoom -= tCost;
        tOwners.push_back(&tPackage);
        tDownloads.push_back({.mWanted = Wanted::sideFile(tAdvisory->mFile, tAdvisory->name()),
                              .mLabel = tPackage.name(),
                              .mFailure = {},
                              .mHasNoParts = false});
    }
    if (Failure tFailure = pOrders.fetch(&tDownloads)) {
        return tFailure;
    }
    for (size_t i = 0; i < tDownloads.size(); ++i) {
        const Download& tDownload = tDownloads[i];
        const Result<QByteArray> tText =
            tDownload.mFailure ? tDownload.mFailure
                               : os::readFile(pParts.mFileSystem, pParts.mDownloads.pathOf(tDownload.mWanted),
                                              tDownload.mWanted.mLength);
        if (tText) {
            tOwners[i]->mAdvisory = QString::fromUtf8(*tText);
        } else {
            giveUp(tOwners[i], tText.failure().mText, pParts.mReporter);
        }
    }
    return {};
}

} // namespace tarn::vkservice::update

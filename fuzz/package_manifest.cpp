// Publishers' descriptions of packages, manifests of generations, and the plan made from both. What was read
// and is written again has to read as the same.
#include "packages/Manifest.h"
#include "packages/PackageFolders.h"
#include "update/Plan.h"
#include "update/RunRecords.h"

#include <QtCore/QJsonDocument>

#include <cstdlib>

using namespace Qt::StringLiterals;

using namespace tarn::vkservice;
using namespace tarn::packages;

namespace {

void checkInfo(const PackageInfo& pInfo)
{
    const auto tAgain = PackageInfo::fromJson(pInfo.toJson());
    if (!tAgain || tAgain->toJson() != pInfo.toJson() || archiveName(pInfo).contains(u'/')) {
        std::abort();
    }
}

// The packages of the manifest as offers to a machine that has the first of them and holds the second.
void plan(const Manifest& pManifest)
{
    Manifest tInstalled;
    tInstalled.mPackages = pManifest.mPackages.mid(0, 1);
    QList<update::Offer> tOffers;
    for (const InstalledPackage& tPackage : pManifest.mPackages) {
        tOffers.append({tPackage.mInfo, {}});
    }
    const PackageFolders tFolders(u"/opt/vk"_s, QString());
    update::Choices tChoices;
    tChoices.mChannel = u"beta"_s;
    tChoices.mIsScheduled = true;
    if (tOffers.size() > 1) {
        tChoices.mHolds.append({tOffers[1].mInfo.mName, {1, 2}, {}});
    }
    const QDateTime tNow(QDate(2026, 11, 25), QTime(12, 0), Qt::UTC);
    const update::Plan tPlan =
        update::makePlan(tOffers, tInstalled, tFolders, {u"de"_s, u"en"_s}, {}, tChoices, tNow);
    update::runRecords(tPlan);
    update::packagesAfter(tInstalled, tPlan, tFolders);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* pData, size_t pSize)
{
    const QByteArray tBytes(reinterpret_cast<const char*>(pData), static_cast<qsizetype>(pSize));
    if (const auto tInfo = PackageInfo::fromJson(QJsonDocument::fromJson(tBytes).object())) {
        checkInfo(*tInfo);
    }
    if (const auto tManifest = Manifest::fromBytes(tBytes)) {
        const auto tAgain = Manifest::fromBytes(tManifest->toBytes());
        if (!tAgain || tAgain->toBytes() != tManifest->toBytes()) {
            std::abort();
        }
        plan(*tManifest);
    }
    return 0;
}

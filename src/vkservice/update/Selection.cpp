#include "update/Selection.h"

#include <QtCore/QStringList>

#include <functional>

namespace tarn::vkservice::update {

using packages::InstalledPackage;
using packages::Kind;
using packages::PackageFolders;
using packages::PackageInfo;

namespace {

OfferMap bestOffers(const QList<Offer>& pOffers, const std::function<bool(const PackageInfo&)>& pTakes)
{
    OfferMap tBest;
    for (const Offer& tOffer : pOffers) {
        if (!pTakes(tOffer.mInfo)) {
            continue;
        }
        const auto tIt = tBest.find(tOffer.mInfo.mName);
        if (tIt == tBest.end()) {
            tBest.insert(tOffer.mInfo.mName, tOffer);
        } else if (isBetter(tOffer, *tIt)) {
            *tIt = tOffer;
        }
    }
    return tBest;
}

void addRequired(const OfferMap& pAny, OfferMap* pChosen)
{
    QStringList tToDo = pChosen->keys();
    while (!tToDo.isEmpty()) {
        const QStringList tRequired = pChosen->value(tToDo.takeFirst()).mInfo.mRequires;
        for (const QString& tName : tRequired) {
            if (!pChosen->contains(tName) && pAny.contains(tName)) {
                pChosen->insert(tName, pAny.value(tName));
                tToDo.append(tName);
            }
        }
    }
}

} // namespace

bool isWished(const PackageInfo& pInfo, const Wishes& pWishes)
{
    const QString& tWished = pInfo.mKind == Kind::Data ? pWishes.mDataLanguage : pWishes.mAppLanguage;
    return pInfo.mLanguage.isEmpty() || pInfo.mLanguage == tWished;
}

bool isBetter(const Offer& pOffer, const Offer& pOther)
{
    if (pOffer.mInfo.mVersion != pOther.mInfo.mVersion) {
        return pOffer.mInfo.mVersion > pOther.mInfo.mVersion;
    }
    if (pOffer.mInfo.mLanguage.isEmpty() != pOther.mInfo.mLanguage.isEmpty()) {
        return pOther.mInfo.mLanguage.isEmpty();
    }
    return pOffer.mTarget.mPath < pOther.mTarget.mPath;
}

OfferMap select(const QList<Offer>& pOffers, const Wishes& pWishes)
{
    OfferMap tChosen =
        bestOffers(pOffers, [&pWishes](const PackageInfo& pInfo) { return isWished(pInfo, pWishes); });
    addRequired(bestOffers(pOffers, [](const PackageInfo&) { return true; }), &tChosen);
    return tChosen;
}

void addFixes(const QList<Offer>& pTaken, const packages::Manifest& pInstalled, OfferMap* pChosen)
{
    const OfferMap tFixes = bestOffers(pTaken, [&](const PackageInfo& pInfo) {
        const InstalledPackage* tInstalled = pInfo.mRelease.mSecuritySince && !pChosen->contains(pInfo.mName)
                                                 ? pInstalled.find(pInfo.mName)
                                                 : nullptr;
        return tInstalled != nullptr && tInstalled->mInfo.mLanguage == pInfo.mLanguage &&
               pInfo.mRelease.isFixFor(tInstalled->mInfo.mVersion.version());
    });
    if (!tFixes.isEmpty()) {
        pChosen->insert(tFixes);
        addRequired(bestOffers(pTaken, [](const PackageInfo&) { return true; }), pChosen);
    }
}

bool isNeeded(const Offer& pOffer, const InstalledPackage* pInstalled, const PackageFolders& pFolders)
{
    if (pInstalled == nullptr || pOffer.mInfo.mVersion > pInstalled->mInfo.mVersion) {
        return true;
    }
    if (pOffer.mInfo.mVersion < pInstalled->mInfo.mVersion) {
        return false;
    }
    // True if a new installation would use another folder.
    const int tRepair = PackageFolders::repairOf(pInstalled->mFolder);
    const bool tMoved = pInstalled->mFolder != pFolders.folder(pInstalled->mInfo, pInstalled->mHash, tRepair);
    return tMoved || pOffer.mInfo.mLanguage != pInstalled->mInfo.mLanguage;
}

} // namespace tarn::vkservice::update

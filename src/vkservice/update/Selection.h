#pragma once

#include "packages/Manifest.h"
#include "packages/PackageFolders.h"
#include "update/Offers.h"

#include <QtCore/QList>
#include <QtCore/QMap>
#include <QtCore/QString>

namespace tarn::vkservice::update {

struct Wishes
{
    QString mAppLanguage;
    QString mDataLanguage;
};

using OfferMap = QMap<QString, Offer>; // the best one of each name

// True for a package in a chosen language, or for all.
bool isWished(const packages::PackageInfo& pInfo, const Wishes& pWishes);
// True if pOffer is preferred to pOther of the same name. The path decides last, so that a plan never depends
// on the order of the offers.
bool isBetter(const Offer& pOffer, const Offer& pOther);
// The best of the wished offers, and of what they require in any language.
OfferMap select(const QList<Offer>& pOffers, const Wishes& pWishes);
// Adds fixes of installed packages that no chosen one requires any more, in the language that is installed:
// those that required them may be left out.
void addFixes(const QList<Offer>& pTaken, const packages::Manifest& pInstalled, OfferMap* pChosen);
// True if installing the offer changes anything but for the worse. pInstalled: null if it is missing.
bool isNeeded(const Offer& pOffer, const packages::InstalledPackage* pInstalled,
              const packages::PackageFolders& pFolders);

} // namespace tarn::vkservice::update

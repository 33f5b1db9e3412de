#pragma once

#include "internal/Failure.h"
#include "packages/Manifest.h"
#include "update/Offers.h"

#include <QtCore/QList>
#include <QtCore/QMap>
#include <QtCore/QString>

namespace tarn::packages {
class PackageFolders;
}

namespace tarn::vkservice::update {

struct PlannedPackage
{
    Offer mOffer;
    Failure mFailure;         // set as soon as the package cannot be installed
    bool mIsFollowUp = false; // true if the failure is only that of another package

    const QString& name() const { return mOffer.mInfo.mName; }
};

// The actions of a run.
struct Plan
{
    // Sorted by name.
    QList<PlannedPackage> mPackages;
    // All packages of this machine that the server offers, also those that are up to date.
    QMap<QString, packages::PackageInfo> mChosen;
    // For each package that was added as a requirement, the name of the package that requires it.
    QMap<QString, QString> mParents;

    PlannedPackage* find(const QString& pName);
    int failedCount() const;

    // A package fails if one that it requires fails, and an added package fails all those in the plan that
    // require it: only complete sets are installed, and unrelated packages are not affected.
    void spreadFailures();
};

struct Wishes
{
    QString mAppLanguage;
    QString mDataLanguage;
};

// Selects the newest package of each name in the chosen language, and their requirements in any available
// language. Plans those that are missing, newer than the installed ones, or installed in another language or
// data folder. Never replaces a newer version by an older one. A package with an unavailable requirement is
// in the plan, marked as failed.
Plan makePlan(const QList<Offer>& pOffers, const packages::Manifest& pInstalled,
              const packages::PackageFolders& pFolders, const Wishes& pWishes);

} // namespace tarn::vkservice::update

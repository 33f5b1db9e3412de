#pragma once

#include "internal/Failure.h"
#include "packages/Manifest.h"
#include "packages/PackageFolders.h"
#include "update/Offers.h"

#include <QtCore/QList>
#include <QtCore/QMap>
#include <QtCore/QString>

namespace tarn::vkservice::update {

struct PlannedPackage
{
    Offer mOffer;
    Failure mFailure;         // set as soon as the package can't be installed
    bool mIsFollowUp = false; // that it has only because another package has one

    const QString& name() const { return mOffer.mInfo.mName; }
};

// What a run has to do.
struct Plan
{
    // In the order of their names.
    QList<PlannedPackage> mPackages;
    // All packages of this machine that the server offers, also those that are up to date.
    QMap<QString, packages::PackageInfo> mChosen;
    // Of each chosen package that came along with another one, the name of that other one.
    QMap<QString, QString> mParents;

    PlannedPackage* find(const QString& pName);
    int failedCount() const;

    // A package fails with one that it requires, and a package that came along fails with all those in the
    // plan that require it: only whole sets are installed, and unrelated packages go their way.
    void spreadFailures();
};

struct Wishes
{
    QString mAppLanguage;
    QString mDataLanguage;
};

// Takes the newest package of each name in the wished language, and what these require in whatever language
// there is; plans those that are missing, newer than what is installed, or installed in another language or
// in another data folder. Never an older version in place of a newer one. A package that requires what nobody
// has is in the plan with its trouble.
Plan makePlan(const QList<Offer>& pOffers, const packages::Manifest& pInstalled,
              const packages::PackageFolders& pFolders, const Wishes& pWishes);

} // namespace tarn::vkservice::update

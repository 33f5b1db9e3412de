#pragma once

#include "internal/Failure.h"
#include "internal/PackageValues.h"
#include "packages/Manifest.h"
#include "packages/PackageFolders.h"
#include "update/Choices.h"
#include "update/Offers.h"
#include "update/Selection.h"

#include <QtCore/QDateTime>
#include <QtCore/QList>
#include <QtCore/QMap>
#include <QtCore/QSet>
#include <QtCore/QString>
#include <QtCore/QStringList>

namespace tarn::vkservice::update {

struct PlannedPackage
{
    Offer mOffer;
    Failure mFailure;         // set as soon as the package cannot be installed
    bool mIsStaged = false;   // stands complete in its staging folder
    bool mIsFollowUp = false; // true if the failure is only that of another package
    QString mAdvisory = {};   // for the install log, as the publisher wrote it
    int mRepair = 0;          // N of the new folder of a package that is damaged; 0: it is not a repair

    const QString& name() const { return mOffer.mInfo.mName; }
    // As in PackageFolders.
    QString folder(const packages::PackageFolders& pFolders) const
    {
        return pFolders.folder(mOffer.mInfo, mOffer.hash(), mRepair);
    }
    QString stagingFolder(const packages::PackageFolders& pFolders) const
    {
        return pFolders.stagingFolder(mOffer.mInfo, mOffer.hash(), mRepair);
    }
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
    // Names of damaged packages that this plan does not replace: the server does not offer their versions.
    QStringList mBeyondRepair;
    // What would be installed if nothing kept it back, with the reasons. Sorted by name.
    QList<vkcore::protocol::LeftOutPackage> mLeftOut;
    // When the first offer that waits for its phase is taken; invalid: none waits.
    QDateTime mNextTurn;

    PlannedPackage* find(const QString& pName);
    int failedCount() const;

    // A package fails if one that it requires fails, and an added package fails all those in the plan that
    // require it: only complete sets are installed, and unrelated packages are not affected.
    void spreadFailures();
};

// Selects the newest taken package of each name in the chosen language, and their requirements in any
// available language. Plans those that are missing, newer than the installed ones, or installed in another
// language or data folder. Never replaces a newer version by an older one. A package with an unavailable
// requirement is in the plan, marked as failed. pDamaged: folders of installed packages, in manifest form,
// that get the same version again in a new folder, also one that is not taken any more. Without pChoices, of
// which pNow is the time, all but halted packages of the stable channel are taken.
Plan makePlan(const QList<Offer>& pOffers, const packages::Manifest& pInstalled,
              const packages::PackageFolders& pFolders, const Wishes& pWishes,
              const QSet<QString>& pDamaged = {}, const Choices& pChoices = {}, const QDateTime& pNow = {});

} // namespace tarn::vkservice::update

#include "update/Plan.h"

#include "update/LeftOut.h"
#include "update/Selection.h"

#include <QtCore/QHash>
#include <QtCore/QSet>

#include <algorithm>

using namespace Qt::StringLiterals;

namespace tarn::vkservice::update {

namespace {

using packages::InstalledPackage;
using packages::Manifest;
using packages::PackageFolders;
using packages::PackageInfo;

// Walks from the packages that nothing requires down to their requirements. A cycle of packages has no such
// top, so its first name becomes the top.
QMap<QString, QString> findParents(const OfferMap& pChosen)
{
    QSet<QString> tRequired;
    for (const Offer& tOffer : pChosen) {
        tRequired += QSet<QString>(tOffer.mInfo.mRequires.begin(), tOffer.mInfo.mRequires.end());
    }
    QStringList tTops = pChosen.keys();
    std::stable_partition(tTops.begin(), tTops.end(),
                          [&tRequired](const QString& pName) { return !tRequired.contains(pName); });
    QMap<QString, QString> tParents;
    QSet<QString> tSeen;
    for (const QString& tTop : tTops) {
        if (tSeen.contains(tTop)) {
            continue;
        }
        tSeen.insert(tTop);
        QStringList tToDo{tTop};
        while (!tToDo.isEmpty()) {
            const QString tName = tToDo.takeFirst();
            const QStringList tChildren = pChosen.value(tName).mInfo.mRequires;
            for (const QString& tChild : tChildren) {
                if (pChosen.contains(tChild) && !tSeen.contains(tChild)) {
                    tSeen.insert(tChild);
                    tParents.insert(tChild, tName);
                    tToDo.append(tChild);
                }
            }
        }
    }
    return tParents;
}

Failure missingRequirement(const PackageInfo& pInfo, const OfferMap& pChosen, const Manifest& pInstalled)
{
    for (const QString& tName : pInfo.mRequires) {
        if (!pChosen.contains(tName) && pInstalled.find(tName) == nullptr) {
            return {Failure::Kind::Content,
                    u"It requires the package %1, which the server does not offer"_s.arg(tName)};
        }
    }
    return {};
}

// The offer that replaces a damaged package: the very same one or, if its publisher has packed the version
// again, that one.
const Offer* replacement(const InstalledPackage& pDamaged, const QList<Offer>& pOffers,
                         const OfferMap& pChosen)
{
    for (const Offer& tOffer : pOffers) {
        if (tOffer.mInfo.mName == pDamaged.mInfo.mName && tOffer.hash() == pDamaged.mHash &&
            tOffer.mInfo.mVersion == pDamaged.mInfo.mVersion) {
            return &tOffer;
        }
    }
    const auto tChosen = pChosen.constFind(pDamaged.mInfo.mName);
    return tChosen != pChosen.constEnd() && tChosen->mInfo.mVersion == pDamaged.mInfo.mVersion ? &*tChosen
                                                                                               : nullptr;
}

void addRepairs(const Manifest& pInstalled, const QSet<QString>& pDamaged, const QList<Offer>& pOffers,
                const OfferMap& pChosen, Plan* pPlan)
{
    for (const InstalledPackage& tPackage : pInstalled.mPackages) {
        const QString& tName = tPackage.mInfo.mName;
        if (!pDamaged.contains(tPackage.mFolder) || pPlan->find(tName) != nullptr) {
            continue;
        }
        const Offer* tOffer = replacement(tPackage, pOffers, pChosen);
        if (tOffer == nullptr) {
            pPlan->mBeyondRepair.append(tName);
            continue;
        }
        const bool tIsSame = tOffer->hash() == tPackage.mHash;
        pPlan->mPackages.append({.mOffer = *tOffer,
                                 .mFailure = missingRequirement(tOffer->mInfo, pChosen, pInstalled),
                                 .mIsFollowUp = false,
                                 .mRepair = tIsSame ? PackageFolders::repairOf(tPackage.mFolder) + 1 : 0});
        if (!pChosen.contains(tName) && !tPackage.mParent.isNull()) {
            pPlan->mParents.insert(tName, tPackage.mParent);
        }
    }
    std::sort(pPlan->mPackages.begin(), pPlan->mPackages.end(),
              [](const auto& pLeft, const auto& pRight) { return pLeft.name() < pRight.name(); });
}

// Passes failures from package to package; visits each package once.
class Spread
{
public:
    explicit Spread(Plan* pPlan) : mPlan(pPlan)
    {
        QList<PlannedPackage>& tPackages = pPlan->mPackages;
        for (qsizetype i = 0; i < tPackages.size(); ++i) {
            mIndexes.insert(tPackages[i].name(), i);
        }
        for (const PlannedPackage& tPackage : tPackages) {
            for (const QString& tName : requirements(tPackage)) {
                mDependents[tName].append(mIndexes.value(tPackage.name()));
            }
        }
        for (auto tIt = mDependents.cbegin(); tIt != mDependents.cend(); ++tIt) {
            mSound.insert(tIt.key(), tIt->size());
        }
    }

    void run()
    {
        for (qsizetype i = 0; i < mPlan->mPackages.size(); ++i) {
            if (mPlan->mPackages[i].mFailure) {
                mToDo.append(i);
            }
        }
        for (qsizetype i = 0; i < mToDo.size(); ++i) {
            spreadFrom(mPlan->mPackages[mToDo[i]]);
        }
    }

private:
    // Those in the plan, each once.
    QSet<QString> requirements(const PlannedPackage& pPackage) const
    {
        QSet<QString> tNames;
        for (const QString& tName : pPackage.mOffer.mInfo.mRequires) {
            if (mIndexes.contains(tName)) {
                tNames.insert(tName);
            }
        }
        return tNames;
    }

    void spreadFrom(const PlannedPackage& pFailed)
    {
        for (const qsizetype tIndex : mDependents.value(pFailed.name())) {
            fail(tIndex, pFailed, u"It requires the package %1, which could not be updated"_s);
        }
        for (const QString& tName : requirements(pFailed)) {
            if (--mSound[tName] == 0 && mPlan->mParents.contains(tName)) {
                fail(mIndexes.value(tName), pFailed,
                     u"It is only required by the package %1, which could not be updated"_s);
            }
        }
    }

    void fail(qsizetype pIndex, const PlannedPackage& pCause, const QString& pText)
    {
        PlannedPackage& tPackage = mPlan->mPackages[pIndex];
        if (!tPackage.mFailure) {
            tPackage.mFailure = {pCause.mFailure.mKind, pText.arg(pCause.name())};
            tPackage.mIsFollowUp = true;
            mToDo.append(pIndex);
        }
    }

    Plan* mPlan;
    QHash<QString, qsizetype> mIndexes;
    QHash<QString, QList<qsizetype>> mDependents; // key: the required package
    QHash<QString, qsizetype> mSound;             // how many of these have not failed
    QList<qsizetype> mToDo;
};

} // namespace

PlannedPackage* Plan::find(const QString& pName)
{
    const auto tIt =
        std::find_if(mPackages.begin(), mPackages.end(),
                     [&pName](const PlannedPackage& pPackage) { return pPackage.name() == pName; });
    return tIt == mPackages.end() ? nullptr : &*tIt;
}

int Plan::failedCount() const
{
    return static_cast<int>(
        std::count_if(mPackages.begin(), mPackages.end(),
                      [](const PlannedPackage& pPackage) { return static_cast<bool>(pPackage.mFailure); }));
}

void Plan::spreadFailures()
{
    Spread(this).run();
}

Plan makePlan(const QList<Offer>& pOffers, const Manifest& pInstalled, const PackageFolders& pFolders,
              const Wishes& pWishes, const QSet<QString>& pDamaged, const Choices& pChoices,
              const QDateTime& pNow)
{
    const QList<Verdict> tVerdicts = judge(pOffers, pInstalled, pChoices, pWishes, pNow);
    QList<Offer> tTaken;
    for (qsizetype i = 0; i < pOffers.size(); ++i) {
        if (tVerdicts[i].mReason == Reason::None) {
            tTaken.append(pOffers[i]);
        }
    }
    OfferMap tChosen = select(tTaken, pWishes);
    addFixes(tTaken, pInstalled, &tChosen);

    Plan tPlan;
    tPlan.mParents = findParents(tChosen);
    for (const Offer& tOffer : tChosen) {
        tPlan.mChosen.insert(tOffer.mInfo.mName, tOffer.mInfo);
        if (isNeeded(tOffer, pInstalled.find(tOffer.mInfo.mName), pFolders)) {
            tPlan.mPackages.append({tOffer, missingRequirement(tOffer.mInfo, tChosen, pInstalled)});
        }
    }
    if (!pDamaged.isEmpty()) {
        addRepairs(pInstalled, pDamaged, pOffers, tChosen, &tPlan);
    }
    tPlan.spreadFailures();
    const LeftOutParts tParts{pOffers, tVerdicts, tChosen, pInstalled, pFolders, pWishes};
    tPlan.mLeftOut = leftOut(tParts);
    tPlan.mNextTurn = nextTurn(tVerdicts);
    return tPlan;
}

} // namespace tarn::vkservice::update

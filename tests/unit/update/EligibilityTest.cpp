// What a machine takes: properties that hold for any repository, and the spread of a phase over a fleet.
#include "Test.h"
#include "tuf/Hashes.h"
#include "update/LeftOut.h"
#include "update/Plan.h"

#include <QtCore/QRandomGenerator>

#include <algorithm>
#include <cmath>

using namespace tarn;
using namespace tarn::vkservice::update;
using packages::InstalledPackage;
using packages::Manifest;
using packages::PackageInfo;
using packages::Phase;

namespace {

const QDateTime sNow(QDate(2026, 11, 25), QTime(12, 0), Qt::UTC);
const packages::PackageFolders sFolders(q("/opt/x"), q("/srv/data"));

Offer offer(const QString& pName, int pVersion, const QStringList& pRequires = {})
{
    Offer tOffer;
    tOffer.mInfo.mName = pName;
    tOffer.mInfo.mVersion = {vkcore::Version(pVersion, 0, 0, 0), {}};
    tOffer.mInfo.mRequires = pRequires;
    tOffer.mTarget.mPath = archiveName(tOffer.mInfo);
    tOffer.mTarget.mHashes = {*tuf::Hash::fromHex(q(tuf::sha256(tOffer.mTarget.mPath.toUtf8())))};
    return tOffer;
}

InstalledPackage installed(const Offer& pOffer)
{
    return {pOffer.mInfo, pOffer.hash(), sFolders.folder(pOffer.mInfo, pOffer.hash()), {}};
}

// A repository, a machine and its choices, made from a seed.
struct World
{
    explicit World(quint32 pSeed) : mRandom(pSeed)
    {
        const int tNames = 2 + below(7);
        const auto tName = [&] { return QString(u'p') + QString::number(below(tNames)); };
        for (int i = 0; i < 3 * tNames; ++i) {
            QStringList tRequires;
            while (below(2) == 0) {
                tRequires.append(below(20) == 0 ? q("nowhere") : tName());
            }
            Offer tOffer = offer(tName(), 1 + i, tRequires);
            packages::Release& tRelease = tOffer.mInfo.mRelease;
            tRelease.mChannel = below(5) == 0 ? q("beta") : QString();
            tRelease.mIsCritical = below(8) == 0;
            if (below(4) == 0) {
                tRelease.mSecuritySince = vkcore::Version(1 + below(1 + i), 0, 0, 0);
            }
            tRelease.mHalted = below(6) == 0 ? std::optional(sNow) : std::nullopt;
            if (below(3) == 0) {
                tRelease.mPhase = Phase{QString::number(below(3)), sNow.addSecs(-below(2000)), 1000};
            }
            if (below(4) == 0 && mInstalled.find(tOffer.mInfo.mName) == nullptr) {
                mInstalled.mPackages.append(installed(tOffer));
            }
            if (below(8) == 0) {
                mChoices.mRefused.insert(tOffer.hash().toHex());
            }
            mOffers.append(tOffer);
        }
        for (int i = below(3); i > 0; --i) {
            mChoices.mHolds.append({QString(u'p') + QString::number(i),
                                    below(2) == 0 ? QList<int>() : QList{1 + below(3 * tNames)},
                                    below(4) == 0 ? sNow.addSecs(below(2) - 1) : QDateTime()});
        }
        mChoices.mChannel = below(2) == 0 ? q("beta") : QString();
        mChoices.mIsScheduled = below(4) != 0;
        mChoices.mOnlySecurity = below(3) == 0;
        mChoices.mSeed = QByteArray::number(pSeed);
    }

    int below(int pBound) { return static_cast<int>(mRandom.bounded(pBound)); }
    Plan plan() const { return makePlan(mOffers, mInstalled, sFolders, {}, {}, mChoices, sNow); }
    bool isOffered(const QString& pName) const
    {
        return std::any_of(mOffers.begin(), mOffers.end(),
                           [&pName](const Offer& pOffer) { return pOffer.mInfo.mName == pName; });
    }

    QRandomGenerator mRandom;
    QList<Offer> mOffers;
    Manifest mInstalled;
    Choices mChoices;
};

QStringList shown(const Plan& pPlan)
{
    QStringList tLines;
    for (const PlannedPackage& tPackage : pPlan.mPackages) {
        tLines.append(tPackage.mOffer.mTarget.mPath + u'|' + tPackage.mFailure.mText);
    }
    for (const auto& tPackage : pPlan.mLeftOut) {
        tLines.append(QStringList{tPackage.mName, tPackage.mVersion, tPackage.mReason, tPackage.mRequired,
                                  tPackage.mDate.toString()}
                          .join(u'|'));
    }
    return tLines;
}

// What the offers of a kind require, in any version.
template <typename F>
QSet<QString> broughtNames(const World& pWorld, F pIsOfKind)
{
    QSet<QString> tNames;
    for (qsizetype tBefore = -1; tBefore != tNames.size();) {
        tBefore = tNames.size();
        for (const Offer& tOffer : pWorld.mOffers) {
            if (pIsOfKind(tOffer, pWorld.mInstalled.find(tOffer.mInfo.mName)) ||
                tNames.contains(tOffer.mInfo.mName)) {
                tNames += QSet<QString>(tOffer.mInfo.mRequires.begin(), tOffer.mInfo.mRequires.end());
            }
        }
    }
    return tNames;
}

void expectWhole(const World& pWorld, Plan* pPlan)
{
    for (const PlannedPackage& tPackage : pPlan->mPackages) {
        const PackageInfo& tInfo = tPackage.mOffer.mInfo;
        bool tIsNowhere = false;
        for (const QString& tName : tInfo.mRequires) {
            const PlannedPackage* tRequired = pPlan->find(tName);
            tIsNowhere |= !pWorld.isOffered(tName) && pWorld.mInstalled.find(tName) == nullptr;
            EXPECT_TRUE(tPackage.mFailure || pWorld.mInstalled.find(tName) != nullptr ||
                        (tRequired != nullptr && !tRequired->mFailure))
                << tInfo.mName << " lacks " << tName;
        }
        EXPECT_TRUE(!tPackage.mFailure || tPackage.mIsFollowUp || tIsNowhere) << tPackage.mFailure.mText;
    }
}

void expectAllowed(const World& pWorld, const Plan& pPlan)
{
    const auto tIsUrgent = [](const Offer& pOffer, const InstalledPackage* pInstalled) {
        return pOffer.mInfo.mRelease.mIsCritical &&
               (pInstalled == nullptr || pOffer.mInfo.mVersion > pInstalled->mInfo.mVersion);
    };
    const QSet<QString> tUrgent = broughtNames(pWorld, tIsUrgent);
    const QSet<QString> tOfFixes = broughtNames(pWorld, isFix);
    for (const PlannedPackage& tPackage : pPlan.mPackages) {
        const PackageInfo& tInfo = tPackage.mOffer.mInfo;
        const InstalledPackage* tBefore = pWorld.mInstalled.find(tInfo.mName);
        EXPECT_TRUE(tBefore == nullptr || tInfo.mVersion > tBefore->mInfo.mVersion) << tInfo.mName;
        EXPECT_FALSE(tInfo.mRelease.mHalted) << tInfo.mName;
        EXPECT_FALSE(pWorld.mChoices.mRefused.contains(tPackage.mOffer.hash().toHex())) << tInfo.mName;
        EXPECT_TRUE(tInfo.mRelease.mChannel.isEmpty() || tInfo.mRelease.mChannel == pWorld.mChoices.mChannel);
        for (const Hold& tHold : pWorld.mChoices.mHolds) {
            const bool tApplies = tHold.mName == tInfo.mName && !tHold.isOver(sNow);
            EXPECT_TRUE(!tApplies || tHold.lets(tInfo.mVersion.version())) << tInfo.mName;
        }
        EXPECT_TRUE(!pWorld.mChoices.mOnlySecurity || pWorld.mInstalled.mPackages.isEmpty() ||
                    isFix(tPackage.mOffer, tBefore) || tOfFixes.contains(tInfo.mName))
            << tInfo.mName;
        if (const auto& tPhase = tInfo.mRelease.mPhase; tPhase && pWorld.mChoices.mIsScheduled) {
            const double tElapsed = static_cast<double>(tPhase->mBegins.secsTo(sNow)) / 1000;
            EXPECT_TRUE(tElapsed >= placeOf(pWorld.mChoices.mSeed, tPhase->mPublication) ||
                        tInfo.mRelease.mIsCritical || tUrgent.contains(tInfo.mName))
                << tInfo.mName;
        }
    }
}

// Of what would come by hand, every fix also comes alone; returns their number.
qsizetype expectFixes(World pWorld)
{
    pWorld.mChoices.mIsScheduled = false;
    pWorld.mChoices.mOnlySecurity = true;
    Plan tAlone = pWorld.plan();
    pWorld.mChoices.mOnlySecurity = false;
    qsizetype tFixes = 0;
    for (const PlannedPackage& tPackage : pWorld.plan().mPackages) {
        const InstalledPackage* tBefore = pWorld.mInstalled.find(tPackage.name());
        if (isFix(tPackage.mOffer, tBefore)) {
            const PlannedPackage* tSame = tAlone.find(tPackage.name());
            EXPECT_TRUE(tSame != nullptr && isFix(tSame->mOffer, tBefore)) << tPackage.name();
            EXPECT_TRUE(tSame == nullptr || tPackage.mFailure || !tSame->mFailure) << tPackage.name();
            ++tFixes;
        }
    }
    return tFixes;
}

} // namespace

TEST(EligibilityTest, NoRepositoryBreaksASetGoesBackOrGetsAroundAChoice)
{
    qsizetype tPlanned = 0;
    qsizetype tLeftOut = 0;
    qsizetype tFixes = 0;
    for (quint32 tSeed = 0; tSeed < 1000; ++tSeed) {
        SCOPED_TRACE(tSeed);
        World tWorld(tSeed);
        Plan tPlan = tWorld.plan();
        expectWhole(tWorld, &tPlan);
        expectAllowed(tWorld, tPlan);
        tFixes += expectFixes(tWorld);
        tPlanned += tPlan.mPackages.size();
        tLeftOut += tPlan.mLeftOut.size();
        const QStringList tShown = shown(tPlan);
        for (int i = 0; i < 3; ++i) {
            std::shuffle(tWorld.mOffers.begin(), tWorld.mOffers.end(), tWorld.mRandom);
            ASSERT_EQ(shown(tWorld.plan()), tShown) << "in another order";
        }
    }
    EXPECT_GT(tPlanned, 500);
    EXPECT_GT(tLeftOut, 500);
    EXPECT_GT(tFixes, 100);
}

TEST(EligibilityTest, AFleetFollowsThePhaseAndStopsAtAHalt)
{
    constexpr int sMachines = 10000;
    constexpr int sDays = 5;
    constexpr qint64 sDay = 24 * 60 * 60;
    QList<Offer> tOffers{offer(q("app"), 2, {q("lib")}), offer(q("lib"), 2), offer(q("app"), 1)};
    for (Offer* tOffer : {&tOffers[0], &tOffers[1]}) {
        tOffer->mInfo.mRelease.mPhase = Phase{q("57"), sNow, sDays * sDay};
    }
    QList<Manifest> tFleet;
    const auto tLook = [&](int pMachine, const QDateTime& pNow, bool pIsScheduled) {
        const InstalledPackage* tApp = tFleet[pMachine].find(q("app"));
        if (tApp != nullptr && tApp->mHash == tOffers[0].hash()) {
            return; // it has everything
        }
        Choices tChoices;
        tChoices.mSeed = tuf::sha256(QByteArray::number(pMachine));
        tChoices.mIsScheduled = pIsScheduled;
        Plan tPlan = makePlan(tOffers, tFleet[pMachine], sFolders, {}, {}, tChoices, pNow);
        for (const PlannedPackage& tPackage : tPlan.mPackages) {
            tFleet[pMachine].mPackages.removeIf(
                [&](const auto& pPackage) { return pPackage.mInfo.mName == tPackage.name(); });
            tFleet[pMachine].mPackages.append(installed(tPackage.mOffer));
        }
    };
    const auto tCount = [&tFleet](const Offer& pOffer) {
        return std::count_if(tFleet.begin(), tFleet.end(), [&](const Manifest& pMachine) {
            const InstalledPackage* tPackage = pMachine.find(pOffer.mInfo.mName);
            return tPackage != nullptr && tPackage->mHash == pOffer.hash();
        });
    };
    for (const int tHaltDay : {sDays + 1, 3}) { // the first never comes
        tFleet = QList<Manifest>(sMachines);
        for (int tDay = 0; tDay <= sDays; ++tDay) {
            const QDateTime tTime = sNow.addSecs(tDay * sDay);
            tOffers[0].mInfo.mRelease.mHalted = tDay >= tHaltDay ? std::optional(tTime) : std::nullopt;
            for (int i = 0; i < sMachines; ++i) {
                tLook(i, tTime, tDay < tHaltDay || i % 2 == 0);
            }
            const double tShare = static_cast<double>(tCount(tOffers[0])) / sMachines;
            const double tLine = static_cast<double>(std::min(tDay, tHaltDay - 1)) / sDays;
            EXPECT_LT(std::abs(tShare - tLine), 0.02) << "on day " << tDay << " of " << tHaltDay;
            EXPECT_TRUE(tDay >= tHaltDay || tCount(tOffers[1]) == tCount(tOffers[0]))
                << "what was published together was split";
            RecordProperty("day" + std::to_string(tDay) + "of" + std::to_string(tHaltDay),
                           std::to_string(tShare));
        }
        EXPECT_EQ(tCount(tOffers[0]) + tCount(tOffers[2]), sMachines) << "the others keep the version before";
    }
}

TEST(EligibilityTest, WhatIsCriticalBringsItsRequirementsAtOnce)
{
    Choices tChoices;
    tChoices.mIsScheduled = true;
    QList<Offer> tOffers{offer(q("app"), 2, {q("lib")}), offer(q("lib"), 2), offer(q("other"), 2)};
    for (Offer& tOffer : tOffers) {
        tOffer.mInfo.mRelease.mPhase = Phase{q("57"), sNow, 1000};
    }
    const auto tPlanned = [&](const Manifest& pInstalled) {
        return makePlan(tOffers, pInstalled, sFolders, {}, {}, tChoices, sNow).mPackages.size();
    };
    Manifest tInstalled;
    EXPECT_EQ(tPlanned(tInstalled), 0);
    tOffers[0].mInfo.mRelease.mIsCritical = true;
    EXPECT_EQ(tPlanned(tInstalled), 2);
    tInstalled.mPackages = {installed(tOffers[0])};
    EXPECT_EQ(tPlanned(tInstalled), 0) << "its later requirements wait like all others";
    tOffers.append(offer(q("app"), 1, {q("lib"), q("halted")}));
    tOffers.append(offer(q("halted"), 1));
    tOffers[0].mInfo.mRelease.mIsCritical = false;
    tOffers[3].mInfo.mRelease.mIsCritical = true;
    tOffers[4].mInfo.mRelease.mHalted = sNow;
    EXPECT_EQ(tPlanned(Manifest()), 0) << "what is left out brings nothing";
}

TEST(EligibilityTest, AFixReachesAPackageThatNothingElseAsksFor)
{
    Offer tMaps = offer(q("maps"), 1);
    tMaps.mInfo.mLanguage = q("en");
    Manifest tInstalled;
    tInstalled.mPackages = {installed(offer(q("app"), 1, {q("maps")})), installed(tMaps)};
    QList<Offer> tOffers{offer(q("app"), 2, {q("maps")}), tMaps, tMaps};
    for (const int tVersion : {2, 3}) {
        tOffers[tVersion - 1] = offer(q("maps"), tVersion);
        tOffers[tVersion - 1].mInfo.mLanguage = q("en");
        tOffers[tVersion - 1].mInfo.mRelease.mSecuritySince = vkcore::Version(2, 0, 0, 0);
    }
    Choices tChoices;
    tChoices.mOnlySecurity = true;
    const Plan tPlan = makePlan(tOffers, tInstalled, sFolders, {q("de"), q("de")}, {}, tChoices, sNow);
    ASSERT_EQ(tPlan.mPackages.size(), 1);
    EXPECT_EQ(tPlan.mPackages[0].mOffer.hash(), tOffers[2].hash()) << "the newest, also if it is ordinary";
    EXPECT_EQ(shown(tPlan).last(), q("app|2.0.0.0|ordinary||"));
    EXPECT_EQ(pendingFixes(tPlan, tInstalled).size(), 1);
    tInstalled.mPackages = {installed(tOffers[1])};
    EXPECT_EQ(pendingFixes(tPlan, tInstalled).size(), 0);
    EXPECT_EQ(makePlan(tOffers, {}, sFolders, {q("de"), q("de")}, {}, tChoices, sNow).mPackages.size(), 2)
        << "a new machine takes everything";
}

TEST(EligibilityTest, ReadsPrefixesOfVersionsAndTellsWhatIsLeftOut)
{
    const std::tuple<const char*, const char*, bool> tCases[] = {
        {"1.2", "1.2.9", true},   {"1.2", "1.3", false}, {"1.2", "1.20", false},   {"1", "1.9.9.9", true},
        {"1.2.0.0", "1.2", true}, {"", "1", false},      {"1.2.3.4.5", "1", false}};
    for (const auto& [tPrefix, tVersion, tLets] : tCases) {
        const Hold tHold{q("a"), versionPrefix(q(tPrefix)), {}};
        EXPECT_EQ(tHold.lets(vkcore::Version::fromString(q(tVersion))), tLets) << tPrefix << ' ' << tVersion;
    }
    const auto tText = [](const QList<std::pair<const char*, const char*>>& pPackages) {
        QList<vkcore::protocol::LeftOutPackage> tPackages;
        for (const auto& [tName, tReason] : pPackages) {
            tPackages.append({q(tName), q("1"), q(tReason), {}, {}});
        }
        return leftOutText(tPackages);
    };
    EXPECT_EQ(tText({}), QString());
    EXPECT_EQ(tText({{"a", "phase"}}), q("1 package waits for its phase."));
    EXPECT_EQ(tText({{"a", "phase"}, {"b", "held"}}), q("2 packages are held or wait for their phase."));
    EXPECT_EQ(tText({{"a", "halted"}, {"a", "phase"}, {"b", "refused"}}),
              q("2 packages wait for their phase, were stopped by their publisher or are refused."));
}

#include "update/LeftOut.h"

#include "update/Plan.h"

#include <QtCore/QMap>
#include <QtCore/QSet>
#include <QtCore/QStringList>

#include <algorithm>

using namespace Qt::StringLiterals;

namespace tarn::vkservice::update {

using vkcore::protocol::LeftOutPackage;
using vkcore::protocol::PackageVersion;

namespace {

constexpr qsizetype sMostEntries = 10000; // they have to fit into one answer

bool isLeftOut(const Verdict& pVerdict)
{
    return pVerdict.mReason != Reason::None && pVerdict.mReason != Reason::OtherChannel;
}

// What would be chosen if nothing were left out.
OfferMap ideal(const LeftOutParts& pParts)
{
    QList<Offer> tOffers;
    for (qsizetype i = 0; i < pParts.mOffers.size(); ++i) {
        if (pParts.mVerdicts[i].mReason != Reason::OtherChannel) {
            tOffers.append(pParts.mOffers[i]);
        }
    }
    return select(tOffers, pParts.mWishes);
}

// True if the offer has a fix that the machine lacks even with what is chosen.
bool fixesMore(const Offer& pOffer, const LeftOutParts& pParts)
{
    const auto tChosen = pParts.mChosen.constFind(pOffer.mInfo.mName);
    return isFix(pOffer, pParts.mInstalled.find(pOffer.mInfo.mName)) &&
           (tChosen == pParts.mChosen.constEnd() ||
            pOffer.mInfo.mRelease.isFixFor(tChosen->mInfo.mVersion.version()));
}

LeftOutPackage entry(const Offer& pOffer, const Verdict& pVerdict, bool pIsFix)
{
    return {.mName = pOffer.mInfo.mName,
            .mVersion = pOffer.mInfo.mVersion.version().toString(),
            .mReason = wordOf(pVerdict.mReason),
            .mRequired = pVerdict.mRequired,
            .mDate = pVerdict.mDate.toLocalTime(),
            .mSecurity = pIsFix ? std::optional(true) : std::nullopt};
}

} // namespace

QList<LeftOutPackage> leftOut(const LeftOutParts& pParts)
{
    if (std::none_of(pParts.mVerdicts.begin(), pParts.mVerdicts.end(), &isLeftOut)) {
        return {};
    }
    const OfferMap tIdeal = ideal(pParts);
    QMap<std::pair<QString, Reason>, qsizetype> tBest;
    for (qsizetype i = 0; i < pParts.mOffers.size(); ++i) {
        const Offer& tOffer = pParts.mOffers[i];
        const QString& tName = tOffer.mInfo.mName;
        const auto tIt = tIdeal.constFind(tName);
        if (!isLeftOut(pParts.mVerdicts[i]) || tIt == tIdeal.constEnd() ||
            (!isWished(tOffer.mInfo, pParts.mWishes) && isWished(tIt->mInfo, pParts.mWishes))) {
            continue;
        }
        const auto tChosen = pParts.mChosen.constFind(tName);
        if (!isNeeded(tOffer, pParts.mInstalled.find(tName), pParts.mFolders) ||
            (tChosen != pParts.mChosen.constEnd() && !isBetter(tOffer, *tChosen))) {
            continue;
        }
        const auto tKey = std::pair(tName, pParts.mVerdicts[i].mReason);
        const auto tKnown = tBest.constFind(tKey);
        if (tKnown == tBest.constEnd() || isBetter(tOffer, pParts.mOffers[*tKnown])) {
            tBest.insert(tKey, i);
        }
    }
    QList<LeftOutPackage> tEntries;
    for (const qsizetype tIndex : std::as_const(tBest)) {
        if (tEntries.size() == sMostEntries) {
            break;
        }
        tEntries.append(entry(pParts.mOffers[tIndex], pParts.mVerdicts[tIndex],
                              fixesMore(pParts.mOffers[tIndex], pParts)));
    }
    return tEntries;
}

QDateTime nextTurn(const QList<Verdict>& pVerdicts)
{
    QDateTime tNext;
    for (const Verdict& tVerdict : pVerdicts) {
        if (tVerdict.mReason == Reason::Phase) {
            tNext = tNext.isValid() ? std::min(tNext, tVerdict.mDate) : tVerdict.mDate;
        }
    }
    return tNext;
}

QList<PackageVersion> pendingFixes(const Plan& pPlan, const packages::Manifest& pInstalled)
{
    QMap<QString, QString> tPending;
    for (const LeftOutPackage& tPackage : pPlan.mLeftOut) {
        if (tPackage.mSecurity.value_or(false)) {
            tPending.insert(tPackage.mName, tPackage.mVersion);
        }
    }
    for (const PlannedPackage& tPackage : pPlan.mPackages) {
        if (isFix(tPackage.mOffer, pInstalled.find(tPackage.name()))) {
            tPending.insert(tPackage.name(), tPackage.mOffer.mInfo.mVersion.version().toString());
        }
    }
    QList<PackageVersion> tList;
    for (auto tIt = tPending.begin(); tIt != tPending.end(); ++tIt) {
        tList.append({tIt.key(), tIt.value()});
    }
    return tList;
}

QString leftOutText(const QList<LeftOutPackage>& pPackages)
{
    struct Words
    {
        Reason mReason;
        const char* mOne;
        const char* mMany;
    };
    static constexpr Words sWords[] = {
        {Reason::Held, "is held", "are held"},
        {Reason::Ordinary, "is no security update", "are no security updates"},
        {Reason::Phase, "waits for its phase", "wait for their phase"},
        {Reason::Halted, "was stopped by its publisher", "were stopped by their publisher"},
        {Reason::Refused, "is refused", "are refused"},
        {Reason::Requirement, "requires a package that is left out", "require a package that is left out"},
    };
    QSet<QString> tNames;
    QSet<QString> tReasons;
    for (const LeftOutPackage& tPackage : pPackages) {
        tNames.insert(tPackage.mName);
        tReasons.insert(tPackage.mReason);
    }
    if (tNames.isEmpty()) {
        return {};
    }
    QStringList tTexts;
    for (const Words& tWords : sWords) {
        if (tReasons.contains(wordOf(tWords.mReason))) {
            tTexts.append(QString::fromLatin1(tNames.size() == 1 ? tWords.mOne : tWords.mMany));
        }
    }
    const QString tLast = tTexts.takeLast();
    const QString tText = tTexts.isEmpty() ? tLast : tTexts.join(u", "_s) + u" or "_s + tLast;
    return tNames.size() == 1 ? u"1 package "_s + tText + u'.'
                              : u"%1 packages %2."_s.arg(tNames.size()).arg(tText);
}

} // namespace tarn::vkservice::update

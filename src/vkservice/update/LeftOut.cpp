#include "update/LeftOut.h"

#include <QtCore/QMap>
#include <QtCore/QSet>
#include <QtCore/QStringList>

#include <algorithm>

using namespace Qt::StringLiterals;

namespace tarn::vkservice::update {

using vkcore::protocol::LeftOutPackage;

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

LeftOutPackage entry(const Offer& pOffer, const Verdict& pVerdict)
{
    return {.mName = pOffer.mInfo.mName,
            .mVersion = pOffer.mInfo.mVersion.version().toString(),
            .mReason = wordOf(pVerdict.mReason),
            .mRequired = pVerdict.mRequired,
            .mDate = pVerdict.mDate.toLocalTime()};
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
        tEntries.append(entry(pParts.mOffers[tIndex], pParts.mVerdicts[tIndex]));
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

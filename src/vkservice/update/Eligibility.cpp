#include "update/Eligibility.h"

#include <QtCore/QCryptographicHash>
#include <QtCore/QHash>
#include <QtCore/QSet>
#include <QtCore/QtEndian>

#include <algorithm>
#include <cmath>

using namespace Qt::StringLiterals;

namespace tarn::vkservice::update {

namespace {

using packages::InstalledPackage;
using packages::Manifest;
using packages::Phase;

QDateTime turnOf(const Phase& pPhase, const QByteArray& pSeed)
{
    const double tShare = placeOf(pSeed, pPhase.mPublication);
    return pPhase.mBegins.addSecs(
        static_cast<qint64>(std::ceil(tShare * static_cast<double>(pPhase.mSeconds))));
}

class Judge
{
public:
    Judge(const QList<Offer>& pOffers, const Manifest& pInstalled, const Choices& pChoices,
          const Wishes& pWishes, const QDateTime& pNow)
        : mOffers(pOffers), mChoices(pChoices), mWishes(pWishes), mNow(pNow)
    {
        for (const InstalledPackage& tPackage : pInstalled.mPackages) {
            mInstalled.insert(tPackage.mInfo.mName, &tPackage);
        }
        for (const Hold& tHold : pChoices.mHolds) {
            if (!tHold.isOver(pNow)) {
                mHolds.insert(tHold.mName, &tHold);
            }
        }
        for (qsizetype i = 0; i < pOffers.size(); ++i) {
            mByName[pOffers[i].mInfo.mName].append(i);
        }
    }

    QList<Verdict> run()
    {
        for (const Offer& tOffer : mOffers) {
            mVerdicts.append(lasting(tOffer));
        }
        leaveOutDependents();
        if (mChoices.mOnlySecurity && !mInstalled.isEmpty()) {
            leaveOutOrdinary();
        }
        if (mChoices.mIsScheduled) {
            const QList<Verdict> tByHand = mVerdicts;
            applyPhases({});
            const QSet<QString> tUrgent =
                broughtBy(tByHand, [this](const Offer& pOffer) { return isUrgent(pOffer); });
            mVerdicts = tByHand;
            applyPhases(tUrgent);
        }
        return mVerdicts;
    }

private:
    bool isTaken(qsizetype pIndex) const { return mVerdicts[pIndex].mReason == Reason::None; }

    bool isInstalled(const Offer& pOffer) const
    {
        const InstalledPackage* tPackage = mInstalled.value(pOffer.mInfo.mName);
        return tPackage != nullptr && tPackage->mHash == pOffer.hash() &&
               tPackage->mInfo.mVersion == pOffer.mInfo.mVersion;
    }

    // All but the phase and the requirements.
    Verdict lasting(const Offer& pOffer) const
    {
        const packages::Release& tRelease = pOffer.mInfo.mRelease;
        const bool tIsInstalled = isInstalled(pOffer);
        if (!tIsInstalled && !tRelease.mChannel.isEmpty() && tRelease.mChannel != mChoices.mChannel) {
            return {Reason::OtherChannel, {}, {}};
        }
        if (mChoices.mRefused.contains(pOffer.hash().toHex())) {
            return {Reason::Refused, {}, {}};
        }
        if (tIsInstalled) {
            return {};
        }
        if (tRelease.mHalted) {
            return {Reason::Halted, {}, {}};
        }
        const Hold* tHold = mHolds.value(pOffer.mInfo.mName);
        return tHold != nullptr && !tHold->lets(pOffer.mInfo.mVersion.version())
                   ? Verdict{Reason::Held, {}, tHold->mUntil}
                   : Verdict();
    }

    bool isFixHere(const Offer& pOffer) const { return isFix(pOffer, mInstalled.value(pOffer.mInfo.mName)); }

    void leaveOutOrdinary()
    {
        const QSet<QString> tBrought =
            broughtBy(mVerdicts, [this](const Offer& pOffer) { return isFixHere(pOffer); });
        for (qsizetype i = 0; i < mOffers.size(); ++i) {
            if (isTaken(i) && !isInstalled(mOffers[i]) && !isFixHere(mOffers[i]) &&
                !tBrought.contains(mOffers[i].mInfo.mName)) {
                mVerdicts[i] = {Reason::Ordinary, {}, {}};
            }
        }
        leaveOutDependents();
    }

    Verdict ofPhase(const Offer& pOffer) const
    {
        const packages::Release& tRelease = pOffer.mInfo.mRelease;
        if (!tRelease.mPhase || tRelease.mIsCritical || isInstalled(pOffer)) {
            return {};
        }
        const QDateTime tTurn = turnOf(*tRelease.mPhase, mChoices.mSeed);
        return mNow >= tTurn ? Verdict() : Verdict{Reason::Phase, {}, tTurn};
    }

    void applyPhases(const QSet<QString>& pUrgent)
    {
        for (qsizetype i = 0; i < mOffers.size(); ++i) {
            if (isTaken(i) && !pUrgent.contains(mOffers[i].mInfo.mName)) {
                mVerdicts[i] = ofPhase(mOffers[i]);
            }
        }
        leaveOutDependents();
    }

    // True for a critical package that is new to this machine, which has nothing better in its phase.
    bool isUrgent(const Offer& pOffer) const
    {
        const InstalledPackage* tPackage = mInstalled.value(pOffer.mInfo.mName);
        if (!pOffer.mInfo.mRelease.mIsCritical || !isWished(pOffer.mInfo, mWishes) ||
            (tPackage != nullptr && pOffer.mInfo.mVersion <= tPackage->mInfo.mVersion)) {
            return false;
        }
        const QList<qsizetype> tSameName = mByName.value(pOffer.mInfo.mName);
        return std::none_of(tSameName.begin(), tSameName.end(), [&](qsizetype pIndex) {
            return isTaken(pIndex) && isWished(mOffers[pIndex].mInfo, mWishes) &&
                   isBetter(mOffers[pIndex], pOffer);
        });
    }

    // The names of all that the taken offers of this kind require. pVerdicts: which are taken.
    template <typename F>
    QSet<QString> broughtBy(const QList<Verdict>& pVerdicts, F pIsOfKind) const
    {
        QSet<QString> tNames;
        QStringList tToDo;
        const auto tAdd = [&](const Offer& pOffer) {
            for (const QString& tName : pOffer.mInfo.mRequires) {
                if (!tNames.contains(tName)) {
                    tNames.insert(tName);
                    tToDo.append(tName);
                }
            }
        };
        for (qsizetype i = 0; i < mOffers.size(); ++i) {
            if (pVerdicts[i].mReason == Reason::None && pIsOfKind(mOffers[i])) {
                tAdd(mOffers[i]);
            }
        }
        while (!tToDo.isEmpty()) {
            for (const qsizetype tIndex : mByName.value(tToDo.takeLast())) {
                if (pVerdicts[tIndex].mReason == Reason::None) {
                    tAdd(mOffers[tIndex]);
                }
            }
        }
        return tNames;
    }

    // Each offer is left out once at most, so this ends.
    void leaveOutDependents()
    {
        QHash<QString, qsizetype> tTaken;
        QHash<QString, QList<qsizetype>> tDependents; // key: the required package
        QStringList tMissing;
        for (qsizetype i = 0; i < mOffers.size(); ++i) {
            tTaken[mOffers[i].mInfo.mName] += isTaken(i) ? 1 : 0;
            for (const QString& tName : mOffers[i].mInfo.mRequires) {
                tDependents[tName].append(i);
            }
        }
        // Sorted, so that the reason that is told does not depend on the order of the offers.
        for (const QString& tName : mByName.keys()) {
            if (tTaken.value(tName) == 0 && !mInstalled.contains(tName)) {
                tMissing.append(tName);
            }
        }
        while (!tMissing.isEmpty()) {
            QStringList tNext;
            for (const QString& tName : tMissing) {
                for (const qsizetype tIndex : tDependents.value(tName)) {
                    const QString& tDependent = mOffers[tIndex].mInfo.mName;
                    if (!isTaken(tIndex) || isInstalled(mOffers[tIndex])) {
                        continue;
                    }
                    mVerdicts[tIndex] = {Reason::Requirement, tName, {}};
                    if (--tTaken[tDependent] == 0 && !mInstalled.contains(tDependent)) {
                        tNext.append(tDependent);
                    }
                }
            }
            tNext.sort();
            tMissing = tNext;
        }
    }

    const QList<Offer>& mOffers;
    const Choices& mChoices;
    const Wishes& mWishes;
    QDateTime mNow;
    QHash<QString, const InstalledPackage*> mInstalled;
    QHash<QString, const Hold*> mHolds;
    QMap<QString, QList<qsizetype>> mByName;
    QList<Verdict> mVerdicts;
};

} // namespace

QString wordOf(Reason pReason)
{
    switch (pReason) {
    case Reason::None:
        return u"taken"_s;
    case Reason::OtherChannel:
        return u"channel"_s;
    case Reason::Refused:
        return u"refused"_s;
    case Reason::Halted:
        return u"halted"_s;
    case Reason::Held:
        return u"held"_s;
    case Reason::Ordinary:
        return u"ordinary"_s;
    case Reason::Phase:
        return u"phase"_s;
    case Reason::Requirement:
        return u"requirement"_s;
    }
    return {};
}

bool isFix(const Offer& pOffer, const InstalledPackage* pInstalled)
{
    return pInstalled != nullptr && pOffer.mInfo.mRelease.isFixFor(pInstalled->mInfo.mVersion.version());
}

double placeOf(const QByteArray& pSeed, const QString& pPublication)
{
    QCryptographicHash tHash(QCryptographicHash::Sha256);
    tHash.addData(pSeed);
    tHash.addData("\n");
    tHash.addData(pPublication.toUtf8());
    const QByteArray tBytes = tHash.result();
    // 53 bits: as many as a double holds, so that it is always below 1.
    const quint64 tNumber = qFromBigEndian<quint64>(tBytes.constData()) >> 11;
    return std::ldexp(static_cast<double>(tNumber), -53);
}

QList<Verdict> judge(const QList<Offer>& pOffers, const Manifest& pInstalled, const Choices& pChoices,
                     const Wishes& pWishes, const QDateTime& pNow)
{
    return Judge(pOffers, pInstalled, pChoices, pWishes, pNow).run();
}

} // namespace tarn::vkservice::update

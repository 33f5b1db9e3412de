#pragma once

#include "packages/Manifest.h"
#include "update/Choices.h"
#include "update/Offers.h"
#include "update/Selection.h"

#include <QtCore/QDateTime>
#include <QtCore/QList>
#include <QtCore/QString>

namespace tarn::vkservice::update {

// Why a machine does not take an offer.
enum class Reason
{
    None, // it takes it
    OtherChannel,
    Refused,
    Halted,
    Held,
    Ordinary, // it is no security fix, and the machine takes these alone
    Phase,
    Requirement,
};

// As the socket names it.
QString wordOf(Reason pReason);

struct Verdict
{
    Reason mReason = Reason::None;
    QString mRequired; // Requirement: the package that is left out and not installed
    QDateTime mDate;   // Phase: when its turn comes; Held: when the hold ends, or invalid
};

// True for an offer that fixes a flaw of the installed version. pInstalled: null if there is none.
bool isFix(const Offer& pOffer, const packages::InstalledPackage* pInstalled);

// The place of a machine among all, from 0 to below 1, for what was published together.
double placeOf(const QByteArray& pSeed, const QString& pPublication);

// A verdict on each offer, in their order; it depends on the set of offers and not on their order. The
// archive that is installed is always taken, but for a refused one. What requires a package that is offered,
// but left out, and not installed, is left out as well. What a critical package brings along waits for no
// phase either, and what a security fix brings along is taken with it.
QList<Verdict> judge(const QList<Offer>& pOffers, const packages::Manifest& pInstalled,
                     const Choices& pChoices, const Wishes& pWishes, const QDateTime& pNow);

} // namespace tarn::vkservice::update

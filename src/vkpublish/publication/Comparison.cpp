#include "publication/Comparison.h"

#include "publication/Expiry.h"

#include "tuf/Metadata.h"

#include <QtCore/QJsonDocument>

#include <algorithm>

using namespace Qt::StringLiterals;

namespace tarn::vkpublish {

namespace {

// A failure if machines that have seen the other one refuse this one.
Failure checkVersions(const RepositoryState& pHere, const RepositoryState& pThere, const QString& pPlace)
{
    const qsizetype tRoots = std::min(pHere.mNewRoots.size(), pThere.mNewRoots.size());
    if (pHere.mNewRoots.first(tRoots) != pThere.mNewRoots.first(tRoots)) {
        return Failure::content(
            u"The roots differ from those at %1, and machines that know these refuse "
            "the repository: a key was replaced twice, from the same backup"_s.arg(pPlace));
    }
    for (auto tIt = pThere.mVersions.begin(); tIt != pThere.mVersions.end(); ++tIt) {
        if (pHere.mVersions.value(tIt.key()) < tIt.value()) {
            return Failure::content(
                u"The repository is behind %1, and machines that know that one refuse it: "
                "publish with --above %1. If it was not you who has signed that one, a key was stolen: "
                "replace "
                "it"_s.arg(pPlace));
        }
    }
    if (pHere.mVersions[tuf::sTimestamp] == pThere.mVersions[tuf::sTimestamp] &&
        pHere.mTimestamp != pThere.mTimestamp) {
        return Failure::content(u"The timestamp has the same version at %1, but other content: machines "
                                "keep the one that they saw first. Publish with --above %1"_s.arg(pPlace));
    }
    return {};
}

QJsonObject targetsOf(const RepositoryState& pState)
{
    return QJsonDocument::fromJson(pState.mTargets)["signed"_L1]["targets"_L1].toObject();
}

void comparePackages(Comparison* pTo)
{
    const QJsonObject tHere = targetsOf(pTo->mHere);
    pTo->mThereTargets = targetsOf(pTo->mThere);
    for (auto tIt = pTo->mThereTargets.constBegin(); tIt != pTo->mThereTargets.constEnd(); ++tIt) {
        if (tHere[tIt.key()]["hashes"_L1] != tIt.value()["hashes"_L1]) {
            pTo->mOnlyThere.append(tIt.key());
        }
    }
}

// What machines there can't see yet.
QString notThere(const RepositoryState& pHere, const RepositoryState& pThere, const QString& pPlace)
{
    const qint64 tHere = pHere.mVersions[tuf::sTimestamp];
    const qint64 tThere = pThere.mVersions[tuf::sTimestamp];
    return tHere > tThere ? u"%1 has version %2 of the timestamp, and here is %3: copy the repository there"_s
                                .arg(pPlace)
                                .arg(tThere)
                                .arg(tHere)
                          : QString();
}

void checkExpiry(const QDateTime& pNow, int pDays, const QString& pPlace, Comparison* pTo)
{
    const QDateTime tFirst = firstExpiry(pTo->mThere);
    if (tFirst <= pNow) {
        pTo->mProblems.append(u"What is at %1 expired on %2, and machines refuse it"_s.arg(
            pPlace, tFirst.toUTC().toString(Qt::ISODate)));
    }
    pTo->mWarnings += expiryWarnings(pTo->mThere, pNow, pDays, pPlace);
}

} // namespace

Comparison compareStates(tuf::Fetcher& pHere, tuf::Fetcher& pThere, const QByteArray& pRoot,
                         const QString& pPlace, const QDateTime& pNow, int pDays)
{
    Comparison tResult;
    Failure tFailure = readWithTargets(pHere, pRoot, &tResult.mHere);
    tFailure = tFailure ? tFailure : readWithTargets(pThere, pRoot, &tResult.mThere);
    if (!tFailure) {
        comparePackages(&tResult);
        checkExpiry(pNow, pDays, pPlace, &tResult);
        tFailure = checkVersions(tResult.mHere, tResult.mThere, pPlace);
    }
    if (tFailure) {
        tResult.mProblems.append(tFailure.mText);
        return tResult;
    }
    const QString tNotThere = notThere(tResult.mHere, tResult.mThere, pPlace);
    if (!tNotThere.isEmpty()) {
        tResult.mWarnings.append(tNotThere);
    }
    return tResult;
}

} // namespace tarn::vkpublish

#include "keys/SignatureNeeds.h"

#include "keys/KeyFolder.h"

#include "tuf/Threshold.h"

#include <algorithm>

namespace tarn::vkpublish {

SignatureNeeds SignatureNeeds::of(const KeyFolder& pKeys, const QString& pRole, const QDateTime& pNow)
{
    SignatureNeeds tNeeds(pRole);
    tNeeds.add(pKeys.mRecord.mRoot);
    for (const RetiringRoot& tRoot : pKeys.mRecord.mRetiringRoots) {
        if (tRoot.mUntil <= pNow) {
            continue;
        }
        tNeeds.add(tRoot.mRoot);
        Need& tNeed = tNeeds.mNeeds.last();
        const auto tGone = std::count_if(tNeed.mKeys.mKeyIds.begin(), tNeed.mKeys.mKeyIds.end(),
                                         [&](const QString& pId) { return pKeys.isGone(pId); });
        // Machines with such a root wait until they have the next one.
        if (tNeed.mKeys.mKeyIds.size() - tGone < tNeed.mKeys.mThreshold) {
            tNeed.mKeys.mThreshold = 0;
        }
    }
    return tNeeds;
}

SignatureNeeds SignatureNeeds::ofRoot(const KeyFolder& pKeys, const QByteArray& pNewRoot)
{
    SignatureNeeds tNeeds(tuf::sRoot);
    tNeeds.add(pKeys.mRecord.mRoot);
    tNeeds.add(pNewRoot);
    return tNeeds;
}

void SignatureNeeds::add(const QByteArray& pRoot)
{
    tuf::Root tRoot;
    if (tuf::parseRoot(pRoot, &tRoot)) {
        // A root that can't be read has no keys, so nothing satisfies it.
        tRoot = tuf::Root();
    }
    mNeeds.append({tRoot.mRoles.value(mRole), tRoot.mKeys});
}

QStringList SignatureNeeds::keyIds() const
{
    QStringList tIds;
    for (const Need& tNeed : mNeeds) {
        tIds += tNeed.mKeys.mKeyIds;
    }
    tIds.removeDuplicates();
    return tIds;
}

bool SignatureNeeds::verifies(const QByteArray& pMessage, const tuf::Signature& pSignature) const
{
    QByteArray tIdentity;
    return std::any_of(mNeeds.begin(), mNeeds.end(), [&](const Need& pNeed) {
        return pNeed.mKeys.mKeyIds.contains(pSignature.mKeyId) &&
               pNeed.mPublicKeys.value(pSignature.mKeyId)
                   .verify(pMessage, pSignature.mBytes, &tIdentity);
    });
}

int SignatureNeeds::missing(const tuf::Signed& pSigned, const QStringList& pWilling) const
{
    QStringList tLeft = keyIds();
    for (const tuf::Signature& tSignature : pSigned.mSignatures) {
        tLeft.removeAll(tSignature.mKeyId);
    }
    QList<qint64> tMissing; // of each need
    for (const Need& tNeed : mNeeds) {
        const auto tWilling = std::count_if(
            tNeed.mKeys.mKeyIds.begin(), tNeed.mKeys.mKeyIds.end(),
            [&](const QString& pId) { return pWilling.contains(pId) && tLeft.contains(pId); });
        tMissing.append(tNeed.mKeys.mThreshold -
                        tuf::countSigners(pSigned, tNeed.mKeys, tNeed.mPublicKeys) - tWilling);
    }
    // First the keys that count for the most roots.
    tLeft.removeIf([&](const QString& pId) { return pWilling.contains(pId); });
    const auto tOpen = [&] {
        return std::any_of(tMissing.begin(), tMissing.end(), [](qint64 pCount) { return pCount > 0; });
    };
    const auto tWorth = [&](const QString& pId) {
        int tCount = 0;
        for (qsizetype i = 0; i < mNeeds.size(); ++i) {
            tCount += tMissing[i] > 0 && mNeeds[i].mKeys.mKeyIds.contains(pId) ? 1 : 0;
        }
        return tCount;
    };
    int tCount = 0;
    for (; tOpen() && !tLeft.isEmpty(); ++tCount) {
        const auto tBest = std::max_element(
            tLeft.begin(), tLeft.end(),
            [&](const QString& pOne, const QString& pOther) { return tWorth(pOne) < tWorth(pOther); });
        const QString tId = *tBest;
        tLeft.erase(tBest);
        for (qsizetype i = 0; i < mNeeds.size(); ++i) {
            tMissing[i] -= mNeeds[i].mKeys.mKeyIds.contains(tId) ? 1 : 0;
        }
    }
    return tOpen() ? tCount + 1 : tCount;
}

} // namespace tarn::vkpublish

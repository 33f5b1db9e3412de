#include "keys/SignatureNeeds.h"

#include "keys/KeyFolder.h"

#include "tuf/Threshold.h"

#include <algorithm>

namespace tarn::vkpublish {

SignatureNeeds SignatureNeeds::of(const KeyFolder& pKeys, const QString& pRole, const QDateTime& pNow,
                                  const QByteArray& pNewRoot)
{
    SignatureNeeds tNeeds(pRole);
    const Record& tRecord = pKeys.mRecord;
    tNeeds.add(pNewRoot.isEmpty() ? tRecord.mRoot : pNewRoot);
    if (!pNewRoot.isEmpty()) {
        tNeeds.addReplaced(tRecord.mRoot, pKeys);
    }
    for (const RetiringRoot& tRoot : tRecord.mRetiringRoots) {
        if (tRoot.mUntil > pNow) {
            tNeeds.addReplaced(tRoot.mRoot, pKeys);
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

void SignatureNeeds::addReplaced(const QByteArray& pRoot, const KeyFolder& pKeys)
{
    add(pRoot);
    tuf::RoleKeys& tKeys = mNeeds.last().mKeys;
    const auto tGone = std::count_if(tKeys.mKeyIds.begin(), tKeys.mKeyIds.end(),
                                     [&](const QString& pId) { return pKeys.isGone(pId); });
    if (tKeys.mKeyIds.size() - tGone < tKeys.mThreshold) {
        tKeys.mThreshold = 0; // machines with such a root wait until they have the next one
    }
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
               pNeed.mPublicKeys.value(pSignature.mKeyId).verify(pMessage, pSignature.mBytes, &tIdentity);
    });
}

// How many signatures each need lacks; less than none if it has more.
QList<qint64> SignatureNeeds::missingOfEach(const tuf::Signed& pSigned, const QStringList& pWilling) const
{
    QList<qint64> tMissing;
    for (const Need& tNeed : mNeeds) {
        const QStringList& tIds = tNeed.mKeys.mKeyIds;
        tMissing.append(tNeed.mKeys.mThreshold - tuf::countSigners(pSigned, tNeed.mKeys, tNeed.mPublicKeys) -
                        std::count_if(tIds.begin(), tIds.end(),
                                      [&](const QString& pId) { return pWilling.contains(pId); }));
    }
    return tMissing;
}

// The key that counts for the most needs.
QString SignatureNeeds::bestOf(const QStringList& pIds, const QList<qint64>& pMissing) const
{
    const auto tWorth = [&](const QString& pId) {
        int tCount = 0;
        for (qsizetype i = 0; i < mNeeds.size(); ++i) {
            tCount += pMissing[i] > 0 && mNeeds[i].mKeys.mKeyIds.contains(pId) ? 1 : 0;
        }
        return tCount;
    };
    return *std::max_element(pIds.begin(), pIds.end(), [&](const QString& pOne, const QString& pOther) {
        return tWorth(pOne) < tWorth(pOther);
    });
}

int SignatureNeeds::missing(const tuf::Signed& pSigned, const QStringList& pWilling) const
{
    QStringList tLeft = keyIds();
    QStringList tWilling = pWilling;
    for (const tuf::Signature& tSignature : pSigned.mSignatures) {
        tLeft.removeAll(tSignature.mKeyId);
        tWilling.removeAll(tSignature.mKeyId);
    }
    tLeft.removeIf([&](const QString& pId) { return tWilling.contains(pId); });
    QList<qint64> tMissing = missingOfEach(pSigned, tWilling);
    const auto tIsOpen = [&] {
        return std::any_of(tMissing.begin(), tMissing.end(), [](qint64 pCount) { return pCount > 0; });
    };
    int tCount = 0;
    for (; tIsOpen() && !tLeft.isEmpty(); ++tCount) {
        const QString tId = bestOf(tLeft, tMissing);
        tLeft.removeAll(tId);
        for (qsizetype i = 0; i < mNeeds.size(); ++i) {
            tMissing[i] -= mNeeds[i].mKeys.mKeyIds.contains(tId) ? 1 : 0;
        }
    }
    return tIsOpen() ? tCount + 1 : tCount;
}

} // namespace tarn::vkpublish

#include "publication/Rotation.h"

#include "publication/Drafts.h"

#include <algorithm>

using namespace Qt::StringLiterals;

namespace tarn::vkpublish {

namespace {

// Puts the new key into the draft of the root.
Failure exchange(KeyFolder* pKeys, const QString& pRole, const KeyFile& pNew, const QDateTime& pRootExpires)
{
    Result<RootDocument> tRoot = nextRoot(*pKeys);
    if (!tRoot) {
        return tRoot.failure();
    }
    const QStringList tOld = tRoot->keyIds(pRole);
    if (tOld.size() != 1) {
        return Failure::content(
            u"The role %1 has %2 keys: exchange one of them with \"vkpublish key add\" and "
            "\"vkpublish key remove\""_s.arg(pRole)
                .arg(tOld.size()));
    }
    tRoot->addKey(pRole, pNew.mSigner.publicJson());
    tRoot->removeKey(pRole, tOld.first());
    if (Failure tFailure = pKeys->addKey(pRole, pNew)) {
        return tFailure;
    }
    qsizetype tVoid = 0;
    return draftRoot(pKeys, *tRoot, pRootExpires, &tVoid);
}

} // namespace

Failure rotateKey(KeyFolder* pKeys, Publication* pPublication, const QString& pRole, const KeyFile& pNew,
                  const PublicationTimes& pTimes, const QDateTime& pRootExpires, QDateTime* pOldUntil)
{
    if (Failure tFailure = pPublication->catchUp()) {
        return tFailure;
    }
    const QDateTime tSigned = pKeys->mRecord.mTimestampExpires;
    *pOldUntil = tSigned.isValid() ? std::max(tSigned, pTimes.mExpires) : pTimes.mExpires;
    if (Failure tFailure = exchange(pKeys, pRole, pNew, pRootExpires)) {
        return tFailure;
    }
    return pPublication->run(pTimes);
}

} // namespace tarn::vkpublish

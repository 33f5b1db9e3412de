#include "publication/Rotation.h"

#include "keys/Roles.h"

#include "tuf/Metadata.h"

#include <algorithm>

using namespace Qt::StringLiterals;

namespace tarn::vkpublish {

namespace {

Failure readAllKeys(const KeyFolder& pFolder, QMap<QString, Signer>* pTo)
{
    for (const QString& tRole : roleNames()) {
        const Result<Signer> tKey = pFolder.readKey(tRole);
        if (!tKey) {
            return tKey.failure();
        }
        pTo->insert(tRole, *tKey);
    }
    return {};
}

// Puts a new key and the root with it into the record. The old root's key has signed that root, and is not
// needed any longer.
Failure exchange(KeyFolder* pFolder, const QString& pRole, const KeyFile& pNew, const QDateTime& pRootExpires,
                 const QDateTime& pOldUntil)
{
    QMap<QString, Signer> tKeys;
    if (Failure tFailure = readAllKeys(*pFolder, &tKeys)) {
        return tFailure;
    }
    const Signer tOldRootKey = tKeys.find(tuf::sRoot).value();
    Record& tRecord = pFolder->mRecord;
    tKeys.insert(pRole, pNew.mSigner);
    const qint64 tVersion = tRecord.mVersions[tuf::sRoot] + 1;
    const Result<QByteArray> tRoot = makeRoot(tVersion, pRootExpires, tKeys, tOldRootKey);
    if (!tRoot) {
        return tRoot.failure();
    }
    if (pRole != tuf::sRoot) {
        tRecord.mRetiring.append({pRole, tRecord.mKeyFiles[pRole], pOldUntil});
    }
    if (Failure tFailure = pFolder->addKey(pRole, pNew)) {
        return tFailure;
    }
    tRecord.mVersions[tuf::sRoot] = tVersion;
    tRecord.mRoot = *tRoot;
    tRecord.mPublishedTargetsFile = PublishedFile();
    tRecord.mPublishedSnapshot = PublishedFile();
    return pFolder->save();
}

} // namespace

Failure rotateKey(KeyFolder* pKeys, Publication* pPublication, const QString& pRole, const KeyFile& pNew,
                  const PublicationTimes& pTimes, const QDateTime& pRootExpires, QDateTime* pOldUntil)
{
    QDateTime& tSigned = pKeys->mRecord.mTimestampExpires;
    *pOldUntil = tSigned.isValid() ? std::max(tSigned, pTimes.mExpires) : pTimes.mExpires;
    // The first run publishes a root that an interrupted rotation left: no version may be missing.
    if (Failure tFailure = pPublication->run(pTimes)) {
        return tFailure;
    }
    if (Failure tFailure = exchange(pKeys, pRole, pNew, pRootExpires, *pOldUntil)) {
        return tFailure;
    }
    return pPublication->run(pTimes);
}

} // namespace tarn::vkpublish

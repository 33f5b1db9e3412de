#include "Rotation.h"

#include "Roles.h"

#include "tuf/Metadata.h"

#include <algorithm>

using namespace Qt::StringLiterals;

namespace tarn::vkpublish {

namespace {

bool readAllKeys(KeyFolder* pFolder, QMap<QString, tuf::SigningKey>* pTo, QString* pError)
{
    for (const QString& tRole : roleNames()) {
        std::optional<tuf::SigningKey> tKey;
        if (!pFolder->readKey(tRole, &tKey, pError)) {
            return false;
        }
        pTo->insert(tRole, *tKey);
    }
    return true;
}

// Puts a new key and the root that names it into the record. The old root's key has signed that root, and is
// not needed longer.
bool exchange(KeyFolder* pFolder, const QString& pRole, const QString& pType, const QDateTime& pRootExpires,
              const QDateTime& pOldUntil, QString* pError)
{
    QMap<QString, tuf::SigningKey> tKeys;
    if (!readAllKeys(pFolder, &tKeys, pError)) {
        return false;
    }
    const tuf::SigningKey tOldRootKey = tKeys.find(tuf::sRoot).value();
    const std::optional<tuf::SigningKey> tNew = tuf::SigningKey::generate(pType);
    if (!tNew) {
        *pError = u"A key of type %1 can't be created"_s.arg(pType);
        return false;
    }
    Record& tRecord = pFolder->mRecord;
    if (pRole != tuf::sRoot) {
        tRecord.mRetiring.append({pRole, tRecord.mKeyFiles[pRole], pOldUntil});
    }
    if (!pFolder->addKey(pRole, *tNew, pError)) {
        return false;
    }
    tKeys.insert(pRole, *tNew);
    const qint64 tVersion = ++tRecord.mVersions[tuf::sRoot];
    tRecord.mRoot = makeRoot(tVersion, pRootExpires, tKeys, tOldRootKey);
    tRecord.mPublishedTargetsFile = PublishedFile();
    tRecord.mPublishedSnapshot = PublishedFile();
    return pFolder->save(pError);
}

} // namespace

bool rotateKey(KeyFolder* pKeys, Publication* pPublication, const QString& pRole, const QString& pKeyType,
               const PublicationTimes& pTimes, const QDateTime& pRootExpires, QDateTime* pOldUntil,
               QString* pError)
{
    QDateTime& tSigned = pKeys->mRecord.mTimestampExpires;
    *pOldUntil = tSigned.isValid() ? std::max(tSigned, pTimes.mExpires) : pTimes.mExpires;
    // The first run brings out a root that an interrupted rotation left behind: no version may be missing.
    return pPublication->run(pTimes, pError) &&
           exchange(pKeys, pRole, pKeyType, pRootExpires, *pOldUntil, pError) &&
           pPublication->run(pTimes, pError);
}

} // namespace tarn::vkpublish

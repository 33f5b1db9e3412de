#include "tuf/TrustedSet.h"

#include "tuf/DelegationSearch.h"
#include "tuf/Hashes.h"
#include "tuf/Threshold.h"

#include <algorithm>

using namespace Qt::StringLiterals;

namespace tarn::tuf {

namespace {

Failure untrusted(const QString& pText)
{
    return Failure{Failure::Kind::Untrusted, pText};
}

Failure checkFile(const QString& pRole, const MetaFile& pMeta, const QByteArray& pFile)
{
    if (pMeta.mLength && *pMeta.mLength != pFile.size()) {
        return untrusted(
            u"The %1 metadata has %2 bytes instead of %3"_s.arg(pRole).arg(pFile.size()).arg(*pMeta.mLength));
    }
    if (!pMeta.mHashes.isEmpty() && !hashesAgree(pMeta.mHashes, pFile)) {
        return untrusted(u"The %1 metadata does not have the hash that was signed for it"_s.arg(pRole));
    }
    return {};
}

Failure checkVersion(const QString& pRole, qint64 pVersion, qint64 pExpected)
{
    return pVersion == pExpected
               ? Failure()
               : untrusted(u"The %1 metadata has version %2 instead of %3"_s.arg(pRole).arg(pVersion).arg(
                     pExpected));
}

Failure checkNotOlder(const QString& pRole, qint64 pVersion, qint64 pTrusted)
{
    return pVersion >= pTrusted
               ? Failure()
               : Failure{Failure::Kind::OutOfDate,
                         u"It is out of date: it offers version %2 of the %1 metadata, and this machine "
                         "has seen version %3 already"_s.arg(pRole)
                             .arg(pVersion)
                             .arg(pTrusted)};
}

bool removesKey(const Root& pOld, const Root& pNew, const QString& pRole)
{
    const QStringList tNewIds = pNew.mRoles[pRole].mKeyIds;
    for (const QString& tId : pOld.mRoles[pRole].mKeyIds) {
        // Also a key that was exchanged under its id.
        if (!tNewIds.contains(tId) || pNew.mKeys.value(tId) != pOld.mKeys.value(tId)) {
            return true;
        }
    }
    return false;
}

} // namespace

TrustedSet::TrustedSet(const QDateTime& pNow) : mNow(pNow) {}

const Root* TrustedSet::root() const
{
    return mRoot ? &*mRoot : nullptr;
}
const Timestamp* TrustedSet::timestamp() const
{
    return mTimestamp ? &*mTimestamp : nullptr;
}
const Snapshot* TrustedSet::snapshot() const
{
    return mSnapshot ? &*mSnapshot : nullptr;
}
const Targets* TrustedSet::targets(const QString& pRole) const
{
    return mTargets.value(pRole).get();
}

Failure TrustedSet::checkExpiry(const QString& pRole, const Signed& pSigned) const
{
    const QDateTime tProven = provenTime();
    const bool tIsGoodByTheClock = pSigned.mExpires > mNow;
    if (tIsGoodByTheClock && (!tProven.isValid() || pSigned.mExpires > tProven)) {
        return {};
    }
    QString tText = u"The %1 metadata, version %2, expired on %3"_s.arg(pRole)
                        .arg(pSigned.mVersion)
                        .arg(pSigned.mExpires.toString(Qt::ISODate));
    if (tIsGoodByTheClock) {
        tText += u". The clock of this machine is or was wrong: it shows %1, but earlier "
                 "updates proved %2 or later. If it is right now, wait for the next publication"_s.arg(
                     mNow.toString(Qt::ISODate), tProven.toString(Qt::ISODate));
    }
    return Failure{Failure::Kind::Expired, tText};
}

QDateTime TrustedSet::provenTime() const
{
    const QDateTime tSignedAt = mTimestamp ? mTimestamp->mSignedAt : QDateTime();
    const bool tRefusedCounts = mRefused && !(mTimestamp && isNewerThanRefused());
    if (!tRefusedCounts || !tSignedAt.isValid()) {
        return tRefusedCounts ? mRefused->mExpires : tSignedAt;
    }
    return std::max(tSignedAt, mRefused->mExpires);
}

bool TrustedSet::isNewerThanRefused() const
{
    return !mRefused || mTimestamp->mVersion > mRefused->mVersion;
}

Failure TrustedSet::verifyByRoot(const QString& pRole, const Signed& pSigned) const
{
    return verifyThreshold(pRole, pSigned, mRoot->mRoles[pRole], mRoot->mKeys);
}

Failure TrustedSet::verifyByDelegator(const QString& pRole, const QString& pDelegator,
                                      const Signed& pSigned) const
{
    if (pRole == sTargets) {
        return verifyByRoot(pRole, pSigned);
    }
    const Delegations& tDelegations = mTargets[pDelegator]->mDelegations;
    const RoleKeys* tKeys = keysOfRole(tDelegations, pRole);
    if (tKeys == nullptr) {
        return untrusted(u"The role %1 does not delegate to %2"_s.arg(pDelegator, pRole));
    }
    return verifyThreshold(pRole, pSigned, *tKeys, tDelegations.mKeys);
}

Failure TrustedSet::setRoot(const QByteArray& pFile)
{
    Root tRoot;
    if (const Failure tFailure = parseRoot(pFile, &tRoot)) {
        return tFailure;
    }
    if (const Failure tFailure = verifyThreshold(sRoot, tRoot, tRoot.mRoles[sRoot], tRoot.mKeys)) {
        return tFailure;
    }
    mRoot = tRoot;
    return {};
}

Failure TrustedSet::addRoot(const QByteArray& pFile, bool* pKeysRemoved)
{
    Root tRoot;
    if (const Failure tFailure = parseRoot(pFile, &tRoot)) {
        return tFailure;
    }
    if (const Failure tFailure = verifyByRoot(sRoot, tRoot)) {
        return tFailure;
    }
    if (const Failure tFailure = verifyThreshold(sRoot, tRoot, tRoot.mRoles[sRoot], tRoot.mKeys)) {
        return tFailure;
    }
    if (const Failure tFailure = checkVersion(sRoot, tRoot.mVersion, mRoot->mVersion + 1)) {
        return tFailure;
    }
    *pKeysRemoved = removesKey(*mRoot, tRoot, sTimestamp) || removesKey(*mRoot, tRoot, sSnapshot);
    mRoot = tRoot;
    return {};
}

Failure TrustedSet::checkRootExpiry() const
{
    return checkExpiry(sRoot, *mRoot);
}

Failure TrustedSet::addTimestamp(const QByteArray& pFile, bool* pSame)
{
    *pSame = false;
    Timestamp tNew;
    if (const Failure tFailure = parseTimestamp(pFile, &tNew)) {
        return tFailure;
    }
    if (const Failure tFailure = verifyByRoot(sTimestamp, tNew)) {
        return tFailure;
    }
    if (mTimestamp) {
        if (const Failure tFailure = checkNotOlder(sTimestamp, tNew.mVersion, mTimestamp->mVersion)) {
            return tFailure;
        }
        *pSame = tNew.mVersion == mTimestamp->mVersion;
    }
    if (mTimestamp && !*pSame) {
        if (const Failure tFailure =
                checkNotOlder(sSnapshot, tNew.mSnapshot.mVersion, mTimestamp->mSnapshot.mVersion)) {
            return tFailure;
        }
    }
    if (!*pSame) {
        mTimestamp = tNew;
    }
    return checkTimestampExpiry();
}

void TrustedSet::addRefusedTimestamp(const QByteArray& pFile)
{
    Timestamp tRefused;
    if (!parseTimestamp(pFile, &tRefused) && !verifyByRoot(sTimestamp, tRefused)) {
        mRefused = tRefused;
    }
}

Failure TrustedSet::checkTimestampExpiry() const
{
    return checkExpiry(sTimestamp, *mTimestamp);
}

Failure TrustedSet::addLocalSnapshot(const QByteArray& pFile)
{
    Snapshot tSnapshot;
    if (const Failure tFailure = parseSnapshot(pFile, &tSnapshot)) {
        return tFailure;
    }
    if (const Failure tFailure = verifyByRoot(sSnapshot, tSnapshot)) {
        return tFailure;
    }
    mSnapshot = tSnapshot;
    if (const Failure tFailure = checkFile(sSnapshot, mTimestamp->mSnapshot, pFile)) {
        return tFailure;
    }
    return checkIsCurrent(*mSnapshot);
}

Failure TrustedSet::addSnapshot(const QByteArray& pFile)
{
    Snapshot tNew;
    if (const Failure tFailure = checkFile(sSnapshot, mTimestamp->mSnapshot, pFile)) {
        return tFailure;
    }
    if (const Failure tFailure = parseSnapshot(pFile, &tNew)) {
        return tFailure;
    }
    if (const Failure tFailure = verifyByRoot(sSnapshot, tNew)) {
        return tFailure;
    }
    if (const Failure tFailure = checkSnapshotRollback(tNew)) {
        return tFailure;
    }
    if (const Failure tFailure = checkIsCurrent(tNew)) {
        return tFailure;
    }
    mSnapshot = tNew;
    return {};
}

Failure TrustedSet::checkSnapshotRollback(const Snapshot& pNew) const
{
    if (!mSnapshot) {
        return {};
    }
    for (auto tOld = mSnapshot->mRoles.begin(); tOld != mSnapshot->mRoles.end(); ++tOld) {
        const auto tNew = pNew.mRoles.constFind(tOld.key());
        if (tNew == pNew.mRoles.constEnd()) {
            return untrusted(u"The new snapshot metadata omits the role %1"_s.arg(tOld.key()));
        }
        if (const Failure tFailure = checkNotOlder(tOld.key(), tNew->mVersion, tOld->mVersion)) {
            return tFailure;
        }
    }
    return {};
}

Failure TrustedSet::checkIsCurrent(const Snapshot& pSnapshot) const
{
    if (const Failure tFailure =
            checkVersion(sSnapshot, pSnapshot.mVersion, mTimestamp->mSnapshot.mVersion)) {
        return tFailure;
    }
    return checkExpiry(sSnapshot, pSnapshot);
}

Failure TrustedSet::addTargets(const QByteArray& pFile, const QString& pRole, const QString& pDelegator)
{
    const auto tMeta = mSnapshot->mRoles.constFind(pRole);
    if (tMeta == mSnapshot->mRoles.constEnd()) {
        return untrusted(u"The snapshot metadata does not list the role %1"_s.arg(pRole));
    }
    auto tTargets = std::make_shared<Targets>();
    if (const Failure tFailure = checkFile(pRole, *tMeta, pFile)) {
        return tFailure;
    }
    if (const Failure tFailure = parseTargets(pFile, pRole, tTargets.get())) {
        return tFailure;
    }
    if (const Failure tFailure = verifyByDelegator(pRole, pDelegator, *tTargets)) {
        return tFailure;
    }
    if (const Failure tFailure = checkVersion(pRole, tTargets->mVersion, tMeta->mVersion)) {
        return tFailure;
    }
    if (const Failure tFailure = checkExpiry(pRole, *tTargets)) {
        return tFailure;
    }
    mTargets.insert(pRole, tTargets);
    mVerified.insert({pRole, pDelegator});
    return {};
}

Failure TrustedSet::checkDelegator(const QString& pRole, const QString& pDelegator)
{
    if (mVerified.contains({pRole, pDelegator})) {
        return {};
    }
    if (const Failure tFailure = verifyByDelegator(pRole, pDelegator, *mTargets[pRole])) {
        return tFailure;
    }
    mVerified.insert({pRole, pDelegator});
    return {};
}

} // namespace tarn::tuf

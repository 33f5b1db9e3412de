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
    return Failure();
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
        return Failure();
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
    Failure tFailure = parseRoot(pFile, &tRoot);
    if (!tFailure) {
        tFailure = verifyThreshold(sRoot, tRoot, tRoot.mRoles[sRoot], tRoot.mKeys);
    }
    if (!tFailure) {
        mRoot = tRoot;
    }
    return tFailure;
}

Failure TrustedSet::addRoot(const QByteArray& pFile, bool* pKeysRemoved)
{
    Root tRoot;
    Failure tFailure = parseRoot(pFile, &tRoot);
    if (!tFailure) {
        tFailure = verifyByRoot(sRoot, tRoot);
    }
    if (!tFailure) {
        tFailure = verifyThreshold(sRoot, tRoot, tRoot.mRoles[sRoot], tRoot.mKeys);
    }
    if (!tFailure) {
        tFailure = checkVersion(sRoot, tRoot.mVersion, mRoot->mVersion + 1);
    }
    if (!tFailure) {
        *pKeysRemoved = removesKey(*mRoot, tRoot, sTimestamp) || removesKey(*mRoot, tRoot, sSnapshot);
        mRoot = tRoot;
    }
    return tFailure;
}

Failure TrustedSet::checkRootExpiry() const
{
    return checkExpiry(sRoot, *mRoot);
}

Failure TrustedSet::addTimestamp(const QByteArray& pFile, bool* pSame)
{
    *pSame = false;
    Timestamp tNew;
    Failure tFailure = parseTimestamp(pFile, &tNew);
    if (!tFailure) {
        tFailure = verifyByRoot(sTimestamp, tNew);
    }
    if (!tFailure && mTimestamp) {
        tFailure = checkNotOlder(sTimestamp, tNew.mVersion, mTimestamp->mVersion);
        *pSame = tNew.mVersion == mTimestamp->mVersion;
        if (!tFailure && !*pSame) {
            tFailure = checkNotOlder(sSnapshot, tNew.mSnapshot.mVersion, mTimestamp->mSnapshot.mVersion);
        }
    }
    if (tFailure) {
        return tFailure;
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
    Failure tFailure = parseSnapshot(pFile, &tSnapshot);
    if (!tFailure) {
        tFailure = verifyByRoot(sSnapshot, tSnapshot);
    }
    if (tFailure) {
        return tFailure;
    }
    mSnapshot = tSnapshot;
    tFailure = checkFile(sSnapshot, mTimestamp->mSnapshot, pFile);
    return tFailure ? tFailure : checkIsCurrent(*mSnapshot);
}

Failure TrustedSet::addSnapshot(const QByteArray& pFile)
{
    Snapshot tNew;
    Failure tFailure = checkFile(sSnapshot, mTimestamp->mSnapshot, pFile);
    if (!tFailure) {
        tFailure = parseSnapshot(pFile, &tNew);
    }
    if (!tFailure) {
        tFailure = verifyByRoot(sSnapshot, tNew);
    }
    if (!tFailure) {
        tFailure = checkSnapshotRollback(tNew);
    }
    if (!tFailure) {
        tFailure = checkIsCurrent(tNew);
    }
    if (!tFailure) {
        mSnapshot = tNew;
    }
    return tFailure;
}

Failure TrustedSet::checkSnapshotRollback(const Snapshot& pNew) const
{
    if (!mSnapshot) {
        return Failure();
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
    return Failure();
}

Failure TrustedSet::checkIsCurrent(const Snapshot& pSnapshot) const
{
    const Failure tFailure = checkVersion(sSnapshot, pSnapshot.mVersion, mTimestamp->mSnapshot.mVersion);
    return tFailure ? tFailure : checkExpiry(sSnapshot, pSnapshot);
}

Failure TrustedSet::addTargets(const QByteArray& pFile, const QString& pRole, const QString& pDelegator)
{
    const auto tMeta = mSnapshot->mRoles.constFind(pRole);
    if (tMeta == mSnapshot->mRoles.constEnd()) {
        return untrusted(u"The snapshot metadata does not list the role %1"_s.arg(pRole));
    }
    auto tTargets = std::make_shared<Targets>();
    Failure tFailure = checkFile(pRole, *tMeta, pFile);
    if (!tFailure) {
        tFailure = parseTargets(pFile, pRole, tTargets.get());
    }
    if (!tFailure) {
        tFailure = verifyByDelegator(pRole, pDelegator, *tTargets);
    }
    if (!tFailure) {
        tFailure = checkVersion(pRole, tTargets->mVersion, tMeta->mVersion);
    }
    if (!tFailure) {
        tFailure = checkExpiry(pRole, *tTargets);
    }
    if (!tFailure) {
        mTargets.insert(pRole, tTargets);
        mVerified.insert({pRole, pDelegator});
    }
    return tFailure;
}

Failure TrustedSet::checkDelegator(const QString& pRole, const QString& pDelegator)
{
    if (mVerified.contains({pRole, pDelegator})) {
        return Failure();
    }
    const Failure tFailure = verifyByDelegator(pRole, pDelegator, *mTargets[pRole]);
    if (!tFailure) {
        mVerified.insert({pRole, pDelegator});
    }
    return tFailure;
}

} // namespace tarn::tuf

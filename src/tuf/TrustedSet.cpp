#include "tuf/TrustedSet.h"

#include "tuf/DelegationSearch.h"
#include "tuf/Hashes.h"
#include "tuf/Threshold.h"

#include <algorithm>

using namespace Qt::StringLiterals;

namespace tarn::tuf {

namespace {

Error untrusted(const QString& pText)
{
    return Error{ErrorKind::Untrusted, pText};
}

Error checkFile(const QString& pRole, const MetaFile& pMeta, const QByteArray& pFile)
{
    if (pMeta.mLength && *pMeta.mLength != pFile.size()) {
        return untrusted(
            u"The %1 metadata has %2 bytes instead of %3"_s.arg(pRole).arg(pFile.size()).arg(*pMeta.mLength));
    }
    if (!pMeta.mHashes.isEmpty() && !hashesAgree(pMeta.mHashes, pFile)) {
        return untrusted(u"The %1 metadata does not have the hash that was signed for it"_s.arg(pRole));
    }
    return Error();
}

Error checkVersion(const QString& pRole, qint64 pVersion, qint64 pExpected)
{
    return pVersion == pExpected
               ? Error()
               : untrusted(u"The %1 metadata has version %2 instead of %3"_s.arg(pRole).arg(pVersion).arg(
                     pExpected));
}

Error checkNotOlder(const QString& pRole, qint64 pVersion, qint64 pTrusted)
{
    return pVersion >= pTrusted
               ? Error()
               : Error{ErrorKind::OutOfDate,
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

Error TrustedSet::checkExpiry(const QString& pRole, const Signed& pSigned) const
{
    const QDateTime tProven = provenTime();
    const bool tIsGoodByTheClock = pSigned.mExpires > mNow;
    if (tIsGoodByTheClock && (!tProven.isValid() || pSigned.mExpires > tProven)) {
        return Error();
    }
    QString tText = u"The %1 metadata, version %2, expired on %3"_s.arg(pRole)
                        .arg(pSigned.mVersion)
                        .arg(pSigned.mExpires.toString(Qt::ISODate));
    if (tIsGoodByTheClock) {
        tText += u". The clock of this machine is wrong, or was so earlier: it shows %1, and earlier "
                 "updates took it to be %2 or later. If it is right now, wait for the next publication"_s.arg(
                     mNow.toString(Qt::ISODate), tProven.toString(Qt::ISODate));
    }
    return Error{ErrorKind::Expired, tText};
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

Error TrustedSet::verifyByRoot(const QString& pRole, const Signed& pSigned) const
{
    return verifyThreshold(pRole, pSigned, mRoot->mRoles[pRole], mRoot->mKeys);
}

Error TrustedSet::verifyByDelegator(const QString& pRole, const QString& pDelegator,
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

Error TrustedSet::setRoot(const QByteArray& pFile)
{
    Root tRoot;
    Error tError = parseRoot(pFile, &tRoot);
    if (!tError) {
        tError = verifyThreshold(sRoot, tRoot, tRoot.mRoles[sRoot], tRoot.mKeys);
    }
    if (!tError) {
        mRoot = tRoot;
    }
    return tError;
}

Error TrustedSet::addRoot(const QByteArray& pFile, bool* pKeysRemoved)
{
    Root tRoot;
    Error tError = parseRoot(pFile, &tRoot);
    if (!tError) {
        tError = verifyByRoot(sRoot, tRoot);
    }
    if (!tError) {
        tError = verifyThreshold(sRoot, tRoot, tRoot.mRoles[sRoot], tRoot.mKeys);
    }
    if (!tError) {
        tError = checkVersion(sRoot, tRoot.mVersion, mRoot->mVersion + 1);
    }
    if (!tError) {
        *pKeysRemoved = removesKey(*mRoot, tRoot, sTimestamp) || removesKey(*mRoot, tRoot, sSnapshot);
        mRoot = tRoot;
    }
    return tError;
}

Error TrustedSet::checkRootExpiry() const
{
    return checkExpiry(sRoot, *mRoot);
}

Error TrustedSet::addTimestamp(const QByteArray& pFile, bool* pSame)
{
    *pSame = false;
    Timestamp tNew;
    Error tError = parseTimestamp(pFile, &tNew);
    if (!tError) {
        tError = verifyByRoot(sTimestamp, tNew);
    }
    if (!tError && mTimestamp) {
        tError = checkNotOlder(sTimestamp, tNew.mVersion, mTimestamp->mVersion);
        *pSame = tNew.mVersion == mTimestamp->mVersion;
        if (!tError && !*pSame) {
            tError = checkNotOlder(sSnapshot, tNew.mSnapshot.mVersion, mTimestamp->mSnapshot.mVersion);
        }
    }
    if (tError) {
        return tError;
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

Error TrustedSet::checkTimestampExpiry() const
{
    return checkExpiry(sTimestamp, *mTimestamp);
}

Error TrustedSet::addLocalSnapshot(const QByteArray& pFile)
{
    Snapshot tSnapshot;
    Error tError = parseSnapshot(pFile, &tSnapshot);
    if (!tError) {
        tError = verifyByRoot(sSnapshot, tSnapshot);
    }
    if (tError) {
        return tError;
    }
    mSnapshot = tSnapshot;
    tError = checkFile(sSnapshot, mTimestamp->mSnapshot, pFile);
    return tError ? tError : checkIsCurrent(*mSnapshot);
}

Error TrustedSet::addSnapshot(const QByteArray& pFile)
{
    Snapshot tNew;
    Error tError = checkFile(sSnapshot, mTimestamp->mSnapshot, pFile);
    if (!tError) {
        tError = parseSnapshot(pFile, &tNew);
    }
    if (!tError) {
        tError = verifyByRoot(sSnapshot, tNew);
    }
    if (!tError) {
        tError = checkSnapshotRollback(tNew);
    }
    if (!tError) {
        tError = checkIsCurrent(tNew);
    }
    if (!tError) {
        mSnapshot = tNew;
    }
    return tError;
}

Error TrustedSet::checkSnapshotRollback(const Snapshot& pNew) const
{
    if (!mSnapshot) {
        return Error();
    }
    for (auto tOld = mSnapshot->mRoles.begin(); tOld != mSnapshot->mRoles.end(); ++tOld) {
        const auto tNew = pNew.mRoles.constFind(tOld.key());
        if (tNew == pNew.mRoles.constEnd()) {
            return untrusted(u"The new snapshot metadata leaves out the role %1"_s.arg(tOld.key()));
        }
        if (const Error tError = checkNotOlder(tOld.key(), tNew->mVersion, tOld->mVersion)) {
            return tError;
        }
    }
    return Error();
}

Error TrustedSet::checkIsCurrent(const Snapshot& pSnapshot) const
{
    const Error tError = checkVersion(sSnapshot, pSnapshot.mVersion, mTimestamp->mSnapshot.mVersion);
    return tError ? tError : checkExpiry(sSnapshot, pSnapshot);
}

Error TrustedSet::addTargets(const QByteArray& pFile, const QString& pRole, const QString& pDelegator)
{
    const auto tMeta = mSnapshot->mRoles.constFind(pRole);
    if (tMeta == mSnapshot->mRoles.constEnd()) {
        return untrusted(u"The snapshot metadata does not list the role %1"_s.arg(pRole));
    }
    auto tTargets = std::make_shared<Targets>();
    Error tError = checkFile(pRole, *tMeta, pFile);
    if (!tError) {
        tError = parseTargets(pFile, pRole, tTargets.get());
    }
    if (!tError) {
        tError = verifyByDelegator(pRole, pDelegator, *tTargets);
    }
    if (!tError) {
        tError = checkVersion(pRole, tTargets->mVersion, tMeta->mVersion);
    }
    if (!tError) {
        tError = checkExpiry(pRole, *tTargets);
    }
    if (!tError) {
        mTargets.insert(pRole, tTargets);
        mVerified.insert({pRole, pDelegator});
    }
    return tError;
}

Error TrustedSet::checkDelegator(const QString& pRole, const QString& pDelegator)
{
    if (mVerified.contains({pRole, pDelegator})) {
        return Error();
    }
    const Error tError = verifyByDelegator(pRole, pDelegator, *mTargets[pRole]);
    if (!tError) {
        mVerified.insert({pRole, pDelegator});
    }
    return tError;
}

} // namespace tarn::tuf

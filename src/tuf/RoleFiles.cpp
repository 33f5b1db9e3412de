#include "tuf/RoleFiles.h"

#include "tuf/Names.h"

#include <algorithm>
#include <initializer_list>

using namespace Qt::StringLiterals;

namespace tarn::tuf {

namespace {

const QString sTimestampFile = u"timestamp.json"_s;

QString rootName(qint64 pVersion)
{
    return u"%1.root.json"_s.arg(pVersion);
}

} // namespace

RoleFiles::RoleFiles(os::FileSystem& pFileSystem, const QString& pFolder, Fetcher& pFetcher,
                     const QDateTime& pNow, const Limits& pLimits)
    : mStore(pFileSystem, pFolder), mAhead(pFetcher), mNow(pNow), mLimits(pLimits), mTrusted(pNow)
{
}

Failure RoleFiles::refresh(const QByteArray& pTimestamp)
{
    mTrusted = TrustedSet(mNow);
    mAhead.clear();
    mRefreshed = false;
    mUnchanged = false;
    Failure tFailure = loadRoot();
    if (!tFailure) {
        askAhead(pTimestamp);
        tFailure = bringRoots();
    }
    tFailure = tFailure ? tFailure : mTrusted.checkRootExpiry();
    tFailure = tFailure ? tFailure : bringTimestamp();
    // Again: the timestamp may know better than the clock.
    tFailure = tFailure ? tFailure : mTrusted.checkRootExpiry();
    tFailure = tFailure ? tFailure : bringSnapshot();
    tFailure = tFailure ? tFailure : bringTargets(sTargets, sRoot);
    mRefreshed = !tFailure;
    return tFailure;
}

Failure RoleFiles::loadStored()
{
    const Failure tFailure = loadRoot();
    return tFailure ? tFailure : loadTimestamp();
}

Failure RoleFiles::loadRoot()
{
    const Result<QByteArray> tFile = mStore.load(sRoot, mLimits.mRootLength);
    const Failure tFailure = tFile ? mTrusted.setRoot(*tFile) : tFile.failure();
    return tFailure ? Failure{Failure::Kind::Damaged,
                              u"There is no trusted root to start from. "_s + tFailure.mText}
                    : tFailure;
}

Failure RoleFiles::loadTimestamp()
{
    const Result<QByteArray> tStored = mStore.load(sTimestamp, mLimits.mTimestampLength);
    if (tStored.failure().mKind == Failure::Kind::Damaged) {
        return tStored.failure();
    }
    mStoredTimestamp = tStored.valueOr({});
    if (tStored) {
        bool tSame = false;
        (void)mTrusted.addTimestamp(*tStored, &tSame); // one that is not valid counts as none
    }
    const Result<QByteArray> tRefused =
        mStore.load(sTimestamp, mLimits.mTimestampLength, MetadataStore::Copy::Refused);
    mTrusted.addRefusedTimestamp(tRefused.valueOr({}));
    return tRefused.failure().mKind == Failure::Kind::Damaged ? tRefused.failure() : Failure();
}

Failure RoleFiles::bringRoots()
{
    for (int i = 0; i < mLimits.mMaxRootRotations; ++i) {
        const Result<QByteArray> tFile = mAhead.fetch(nextRoot());
        if (tFile.failure().mKind == Failure::Kind::NotFound) {
            return {};
        }
        if (Failure tFailure = tFile ? takeRoot(*tFile) : tFile.failure()) {
            return tFailure;
        }
    }
    return {};
}

Failure RoleFiles::takeRoot(const QByteArray& pFile)
{
    bool tKeysRemoved = false;
    if (Failure tFailure = mTrusted.addRoot(pFile, &tKeysRemoved)) {
        return tFailure;
    }
    mAhead.clear(); // what was asked for by the word of an older root
    // An attacker with the old keys may have signed a very high version. Files signed by them are removed
    // first: a crash in between leaves the old root, and the next refresh repeats this.
    if (tKeysRemoved) {
        for (const QString& tRole : {sTimestamp, sSnapshot}) {
            if (Failure tFailure = mStore.remove(tRole)) {
                return tFailure;
            }
        }
    }
    return mStore.save(sRoot, pFile);
}

Failure RoleFiles::bringTimestamp()
{
    if (Failure tFailure = loadTimestamp()) {
        return tFailure;
    }
    const Result<QByteArray> tFile =
        mAhead.fetch({.mPath = sTimestampFile, .mMaxLength = mLimits.mTimestampLength});
    if (!tFile) {
        return tFile.failure();
    }
    bool tSame = false;
    if (Failure tFailure = judgeTimestamp(*tFile, &tSame)) {
        return tFailure;
    }
    mUnchanged = tSame;
    return tSame ? Failure() : mStore.save(sTimestamp, *tFile);
}

Failure RoleFiles::judgeTimestamp(const QByteArray& pFile, bool* pSame)
{
    Failure tFailure = mTrusted.addTimestamp(pFile, pSame);
    if (tFailure.mKind == Failure::Kind::Untrusted && serverLacksRoot()) {
        return Failure{Failure::Kind::OutOfDate,
                       u"It is out of date: it does not have version %1 of the root metadata, which "
                       "this machine has seen already"_s.arg(mTrusted.root()->mVersion)};
    }
    if (tFailure.mKind == Failure::Kind::Expired && mTrusted.isNewerThanRefused()) {
        // Of two with the same version the stored one is the one that counts. If this fails, the next run
        // refuses and stores it.
        (void)mStore.save(sTimestamp, *pSame ? mStoredTimestamp : pFile, MetadataStore::Copy::Refused);
    }
    return tFailure;
}

// An outdated server has neither the newest root nor files signed by its keys.
bool RoleFiles::serverLacksRoot()
{
    const qint64 tVersion = mTrusted.root()->mVersion;
    return tVersion > 1 &&
           mAhead.fetch({.mPath = rootName(tVersion), .mMaxLength = mLimits.mRootLength}).failure().mKind ==
               Failure::Kind::NotFound;
}

Failure RoleFiles::bringSnapshot()
{
    const Result<QByteArray> tStored = mStore.load(sSnapshot, mLimits.mSnapshotLength);
    if (tStored.failure().mKind == Failure::Kind::Damaged) {
        return tStored.failure();
    }
    if (tStored && !mTrusted.addLocalSnapshot(*tStored)) {
        return {};
    }
    mUnchanged = false;
    const FetchedFile tWanted =
        versioned(sSnapshot, mTrusted.timestamp()->mSnapshot, mLimits.mSnapshotLength);
    if (!mAhead.has(tWanted.mPath)) {
        mAhead.ask(behindTimestamp(mTrusted));
    }
    return fetch(tWanted, sSnapshot, [this](const QByteArray& pFile) { return mTrusted.addSnapshot(pFile); });
}

Failure RoleFiles::bringTargets(const QString& pRole, const QString& pDelegator)
{
    if (mTrusted.targets(pRole) != nullptr) {
        return mTrusted.checkDelegator(pRole, pDelegator);
    }
    const Result<QByteArray> tStored = mStore.load(pRole, mLimits.mTargetsLength);
    if (tStored.failure().mKind == Failure::Kind::Damaged) {
        return tStored.failure();
    }
    const Check tAdd = [&](const QByteArray& pFile) { return mTrusted.addTargets(pFile, pRole, pDelegator); };
    if (tStored && !tAdd(*tStored)) {
        return {};
    }
    mUnchanged = false;
    const QMap<QString, MetaFile>& tRoles = mTrusted.snapshot()->mRoles;
    if (!tRoles.contains(pRole)) {
        return Failure{Failure::Kind::Untrusted,
                       u"The snapshot metadata does not list the role %1"_s.arg(pRole)};
    }
    return fetch(versioned(pRole, tRoles[pRole], mLimits.mTargetsLength), pRole, tAdd);
}

// The server answers for a file that it sends in its turn, not for one that came before it was asked for.
Failure RoleFiles::fetch(const FetchedFile& pFile, const QString& pRole, const Check& pCheck)
{
    const bool tCameAhead = mAhead.has(pFile.mPath);
    Result<QByteArray> tFile = mAhead.fetch(pFile);
    Failure tFailure = tFile ? pCheck(*tFile) : tFile.failure();
    if (tCameAhead && tFailure.mKind == Failure::Kind::Untrusted) {
        tFile = mAhead.fetch(pFile);
        tFailure = tFile ? pCheck(*tFile) : tFile.failure();
    }
    return tFailure ? tFailure : mStore.save(pRole, *tFile);
}

// Each file of the metadata names the next one, so that they follow each other. Behind a timestamp that is
// here already, they need not.
void RoleFiles::askAhead(const QByteArray& pTimestamp)
{
    if (!pTimestamp.isNull()) {
        mAhead.put(sTimestampFile, pTimestamp);
        mAhead.ask(QList<FetchedFile>{nextRoot()} + behind(pTimestamp));
    }
}

// What will be wanted if the timestamp is accepted later. A next root may still refuse it.
QList<FetchedFile> RoleFiles::behind(const QByteArray& pTimestamp)
{
    TrustedSet tTrusted = mTrusted;
    bool tSame = false;
    if (const Result<QByteArray> tStored = mStore.load(sTimestamp, mLimits.mTimestampLength)) {
        (void)tTrusted.addTimestamp(*tStored, &tSame); // one that is not valid counts as none
    }
    if (tTrusted.addTimestamp(pTimestamp, &tSame) || tSame) {
        return {};
    }
    const Result<QByteArray> tSnapshot = mStore.load(sSnapshot, mLimits.mSnapshotLength);
    const bool tIsCurrent = tSnapshot && !tTrusted.addLocalSnapshot(*tSnapshot);
    return tIsCurrent ? QList<FetchedFile>() : behindTimestamp(tTrusted);
}

// The snapshot is the stored one, if there is any.
QList<FetchedFile> RoleFiles::behindTimestamp(const TrustedSet& pTrusted) const
{
    const Timestamp& tTimestamp = *pTrusted.timestamp();
    QList<FetchedFile> tWanted{versioned(sSnapshot, tTimestamp.mSnapshot, mLimits.mSnapshotLength)};
    // Without a trusted snapshot it takes the new one to tell if the stored targets are still good.
    const bool tAreNew = pTrusted.snapshot() == nullptr
                             ? tTimestamp.mTargetsVersion > 0 && !mStore.has(sTargets)
                             : tTimestamp.mTargetsVersion > pTrusted.snapshot()->mRoles[sTargets].mVersion;
    if (tAreNew && pTrusted.root()->mConsistentSnapshot) {
        MetaFile tTargets;
        tTargets.mVersion = tTimestamp.mTargetsVersion;
        tWanted.append(versioned(sTargets, tTargets, mLimits.mTargetsLength));
        tWanted.last().mIsGuess = true;
    }
    return tWanted;
}

FetchedFile RoleFiles::nextRoot() const
{
    return {.mPath = rootName(mTrusted.root()->mVersion + 1), .mMaxLength = mLimits.mRootLength};
}

FetchedFile RoleFiles::versioned(const QString& pRole, const MetaFile& pMeta, qint64 pLimit) const
{
    const QString tFile = encodeName(pRole) + ".json"_L1;
    const QString tName =
        mTrusted.root()->mConsistentSnapshot ? u"%1.%2"_s.arg(pMeta.mVersion).arg(tFile) : tFile;
    return {.mPath = tName, .mMaxLength = std::min(pMeta.mLength.value_or(pLimit), pLimit)};
}

} // namespace tarn::tuf

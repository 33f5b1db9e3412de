#include "tuf/Updater.h"

#include "tuf/DelegationSearch.h"
#include "tuf/MetadataStore.h"
#include "tuf/Names.h"
#include "tuf/TrustedSet.h"

#include <QtCore/QSet>

#include <algorithm>

using namespace Qt::StringLiterals;

namespace tarn::tuf {

class Updater::Private
{
public:
    Private(os::FileSystem& pFileSystem, const QString& pMetadataDir, Fetcher& pFetcher,
            const QDateTime& pNow, const Limits& pLimits)
        : mStore(pFileSystem, pMetadataDir), mFetcher(pFetcher), mNow(pNow), mLimits(pLimits), mTrusted(pNow)
    {
    }

    Error refresh();
    Error loadRoot();
    Error loadTimestamp();
    bool serverLacksRoot();
    Error updateRoot();
    Error takeRoot(const QByteArray& pFile);
    Error updateTimestamp();
    Error updateSnapshot();
    Error updateTargets(const QString& pRole, const QString& pDelegator);

    Error find(const QString& pPath, std::optional<TargetFile>* pTo);
    Error loadAllRoles(QStringList* pRoles);
    Error all(QList<TargetFile>* pTo);

    Error fetch(const QString& pName, qint64 pMaxLength, QByteArray* pTo);
    Error fetchVersioned(const QString& pRole, const MetaFile& pMeta, qint64 pLimit, QByteArray* pTo);
    TargetFile complete(TargetFile pTarget, const QString& pRole) const;

    MetadataStore mStore;
    Fetcher& mFetcher;
    QDateTime mNow;
    QByteArray mStoredTimestamp;
    Limits mLimits;
    TrustedSet mTrusted;
    bool mRefreshed = false;
    bool mUnchanged = false;
};

Error Updater::Private::fetch(const QString& pName, qint64 pMaxLength, QByteArray* pTo)
{
    pTo->clear();
    const Error tError = mFetcher.fetch(pName, pMaxLength, pTo);
    if (!tError && pTo->size() > pMaxLength) {
        return Error{ErrorKind::Untrusted,
                     u"The file %1 has more than %2 bytes"_s.arg(pName).arg(pMaxLength)};
    }
    return tError;
}

Error Updater::Private::fetchVersioned(const QString& pRole, const MetaFile& pMeta, qint64 pLimit,
                                       QByteArray* pTo)
{
    const QString tFile = encodeName(pRole) + ".json"_L1;
    const QString tName =
        mTrusted.root()->mConsistentSnapshot ? u"%1.%2"_s.arg(pMeta.mVersion).arg(tFile) : tFile;
    return fetch(tName, std::min(pMeta.mLength.value_or(pLimit), pLimit), pTo);
}

Error Updater::Private::refresh()
{
    mTrusted = TrustedSet(mNow);
    mRefreshed = false;
    mUnchanged = false;
    Error tError = loadRoot();
    if (!tError) {
        tError = updateRoot();
    }
    if (!tError) {
        tError = mTrusted.checkRootExpiry();
    }
    if (!tError) {
        tError = updateTimestamp();
    }
    if (!tError) {
        tError = mTrusted.checkRootExpiry(); // the timestamp may know better than the clock
    }
    if (!tError) {
        tError = updateSnapshot();
    }
    if (!tError) {
        tError = updateTargets(sTargets, sRoot);
    }
    mRefreshed = !tError;
    return tError;
}

Error Updater::Private::loadRoot()
{
    QByteArray tFile;
    Error tError = mStore.load(sRoot, mLimits.mRootLength, &tFile);
    if (!tError) {
        tError = mTrusted.setRoot(tFile);
    }
    if (tError) {
        tError = Error{ErrorKind::Local, u"There is no trusted root to start from. "_s + tError.mText};
    }
    return tError;
}

Error Updater::Private::updateRoot()
{
    for (int i = 0; i < mLimits.mMaxRootRotations; ++i) {
        QByteArray tFile;
        Error tError =
            fetch(u"%1.root.json"_s.arg(mTrusted.root()->mVersion + 1), mLimits.mRootLength, &tFile);
        if (tError.mKind == ErrorKind::NotFound) {
            return Error();
        }
        if (!tError) {
            tError = takeRoot(tFile);
        }
        if (tError) {
            return tError;
        }
    }
    return Error();
}

Error Updater::Private::takeRoot(const QByteArray& pFile)
{
    bool tKeysRemoved = false;
    Error tError = mTrusted.addRoot(pFile, &tKeysRemoved);
    // Whoever had the old keys may have signed a version that no honest one can ever reach. What they signed
    // goes first: a crash in between leaves the old root, and the next refresh does all of this again.
    if (!tError && tKeysRemoved) {
        tError = mStore.remove(sTimestamp);
        if (!tError) {
            tError = mStore.remove(sSnapshot);
        }
    }
    return tError ? tError : mStore.save(sRoot, pFile);
}

// What this machine has stored; files that aren't valid count as none.
Error Updater::Private::loadTimestamp()
{
    bool tSame = false;
    Error tError = mStore.load(sTimestamp, mLimits.mTimestampLength, &mStoredTimestamp);
    if (!tError) {
        mTrusted.addTimestamp(mStoredTimestamp, &tSame);
    }
    if (tError.mKind != ErrorKind::Local) {
        QByteArray tRefused;
        tError = mStore.load(sTimestamp, mLimits.mTimestampLength, &tRefused, MetadataStore::Copy::Refused);
        mTrusted.addRefusedTimestamp(tRefused);
    }
    return tError.mKind == ErrorKind::Local ? tError : Error();
}

// A server that was left behind has neither the newest root nor what is signed by its keys.
bool Updater::Private::serverLacksRoot()
{
    QByteArray tFile;
    const qint64 tVersion = mTrusted.root()->mVersion;
    return tVersion > 1 &&
           fetch(u"%1.root.json"_s.arg(tVersion), mLimits.mRootLength, &tFile).mKind == ErrorKind::NotFound;
}

Error Updater::Private::updateTimestamp()
{
    QByteArray tFile;
    bool tSame = false;
    Error tError = loadTimestamp();
    if (tError) {
        return tError;
    }
    tError = fetch(u"timestamp.json"_s, mLimits.mTimestampLength, &tFile);
    if (!tError) {
        tError = mTrusted.addTimestamp(tFile, &tSame);
        if (tError.mKind == ErrorKind::Untrusted && serverLacksRoot()) {
            return Error{ErrorKind::OutOfDate,
                         u"It is out of date: it does not have version %1 of the root metadata, which "
                         "this machine has seen already"_s.arg(mTrusted.root()->mVersion)};
        }
    }
    // Of two with the same version the stored one is the one that counts.
    const QByteArray& tCounts = tSame ? mStoredTimestamp : tFile;
    if (tError.mKind == ErrorKind::Expired && mTrusted.isNewerThanRefused()) {
        // Where this fails, the next run refuses and stores it.
        mStore.save(sTimestamp, tCounts, MetadataStore::Copy::Refused);
    }
    mUnchanged = tSame;
    return tError || tSame ? tError : mStore.save(sTimestamp, tFile);
}

Error Updater::Private::updateSnapshot()
{
    QByteArray tFile;
    Error tError = mStore.load(sSnapshot, mLimits.mSnapshotLength, &tFile);
    if (tError.mKind == ErrorKind::Local) {
        return tError;
    }
    if (!tError && !mTrusted.addLocalSnapshot(tFile)) {
        return Error();
    }
    mUnchanged = false;
    tError = fetchVersioned(sSnapshot, mTrusted.timestamp()->mSnapshot, mLimits.mSnapshotLength, &tFile);
    if (!tError) {
        tError = mTrusted.addSnapshot(tFile);
    }
    return tError ? tError : mStore.save(sSnapshot, tFile);
}

Error Updater::Private::updateTargets(const QString& pRole, const QString& pDelegator)
{
    if (mTrusted.targets(pRole) != nullptr) {
        return mTrusted.checkDelegator(pRole, pDelegator);
    }
    QByteArray tFile;
    Error tError = mStore.load(pRole, mLimits.mTargetsLength, &tFile);
    if (tError.mKind == ErrorKind::Local) {
        return tError;
    }
    if (!tError && !mTrusted.addTargets(tFile, pRole, pDelegator)) {
        return Error();
    }
    mUnchanged = false;
    const QMap<QString, MetaFile>& tRoles = mTrusted.snapshot()->mRoles;
    if (!tRoles.contains(pRole)) {
        return Error{ErrorKind::Untrusted, u"The snapshot metadata does not list the role %1"_s.arg(pRole)};
    }
    tError = fetchVersioned(pRole, tRoles[pRole], mLimits.mTargetsLength, &tFile);
    if (!tError) {
        tError = mTrusted.addTargets(tFile, pRole, pDelegator);
    }
    return tError ? tError : mStore.save(pRole, tFile);
}

TargetFile Updater::Private::complete(TargetFile pTarget, const QString& pRole) const
{
    pTarget.mRole = pRole;
    pTarget.mFetchPath =
        targetFetchPath(pTarget.mPath, pTarget.mHashes, mTrusted.root()->mConsistentSnapshot);
    return pTarget;
}

// Depth first, a role before those that it delegates to, these in their order.
Error Updater::Private::find(const QString& pPath, std::optional<TargetFile>* pTo)
{
    QList<std::pair<QString, QString>> tToVisit{{sTargets, sRoot}}; // role, delegator; the last one is next
    QSet<QString> tVisited;
    while (!tToVisit.isEmpty() && tVisited.size() <= mLimits.mMaxDelegations) {
        const auto [tRole, tDelegator] = tToVisit.takeLast();
        if (tVisited.contains(tRole)) {
            continue;
        }
        if (const Error tError = updateTargets(tRole, tDelegator)) {
            return tError;
        }
        tVisited.insert(tRole);
        const Targets* tTargets = mTrusted.targets(tRole);
        const auto tFound = tTargets->mTargets.constFind(pPath);
        if (tFound != tTargets->mTargets.constEnd()) {
            *pTo = complete(*tFound, tRole);
            return Error();
        }
        const QList<RoleChoice> tChoices = rolesForTarget(tTargets->mDelegations, pPath);
        if (!tChoices.isEmpty() && tChoices.last().mTerminating) {
            tToVisit.clear();
        }
        for (auto tIt = tChoices.crbegin(); tIt != tChoices.crend(); ++tIt) {
            tToVisit.append({tIt->mRole, tRole});
        }
    }
    return Error();
}

// In the order of find, as if every role could have what is searched for.
Error Updater::Private::loadAllRoles(QStringList* pRoles)
{
    QList<std::pair<QString, QString>> tToVisit{{sTargets, sRoot}};
    while (!tToVisit.isEmpty()) {
        const auto [tRole, tDelegator] = tToVisit.takeLast();
        if (const Error tError = updateTargets(tRole, tDelegator)) {
            return tError;
        }
        if (pRoles->contains(tRole)) {
            continue;
        }
        if (pRoles->size() > mLimits.mMaxDelegations) {
            return Error{ErrorKind::Untrusted,
                         u"The repository has more than %1 delegated roles"_s.arg(mLimits.mMaxDelegations)};
        }
        pRoles->append(tRole);
        const QStringList tNames =
            delegatedRoleNames(mTrusted.targets(tRole)->mDelegations, mLimits.mMaxDelegations + 1);
        for (auto tIt = tNames.crbegin(); tIt != tNames.crend(); ++tIt) {
            tToVisit.append({*tIt, tRole});
        }
    }
    return Error();
}

Error Updater::Private::all(QList<TargetFile>* pTo)
{
    QStringList tRoles;
    if (const Error tError = loadAllRoles(&tRoles)) {
        return tError;
    }
    QSet<QString> tPaths;
    for (const QString& tRole : tRoles) {
        for (const TargetFile& tTarget : mTrusted.targets(tRole)->mTargets) {
            tPaths.insert(tTarget.mPath);
        }
    }
    for (const QString& tPath : tPaths) {
        std::optional<TargetFile> tTarget;
        if (const Error tError = find(tPath, &tTarget)) {
            return tError;
        }
        if (tTarget) {
            tTarget->mRoleRank = static_cast<int>(tRoles.indexOf(tTarget->mRole));
            pTo->append(*tTarget);
        }
    }
    std::sort(pTo->begin(), pTo->end(),
              [](const TargetFile& pA, const TargetFile& pB) { return pA.mPath < pB.mPath; });
    return Error();
}

Updater::Updater(os::FileSystem& pFileSystem, const QString& pMetadataDir, Fetcher& pFetcher,
                 const QDateTime& pNow, const Limits& pLimits)
    : d(std::make_unique<Private>(pFileSystem, pMetadataDir, pFetcher, pNow, pLimits))
{
}

Updater::~Updater() = default;

Error Updater::initialize(os::FileSystem& pFileSystem, const QString& pMetadataDir, const QByteArray& pRoot)
{
    TrustedSet tTrusted{QDateTime()};
    if (Error tError = tTrusted.setRoot(pRoot)) {
        return tError;
    }
    MetadataStore tStore(pFileSystem, pMetadataDir);
    const Error tError = tStore.clear();
    return tError ? tError : tStore.save(sRoot, pRoot);
}

Error Updater::refresh()
{
    return d->refresh();
}

bool Updater::unchanged() const
{
    return d->mRefreshed && d->mUnchanged;
}

qint64 Updater::snapshotVersion() const
{
    return d->mRefreshed ? d->mTrusted.snapshot()->mVersion : 0;
}

QDateTime Updater::provenTime(os::FileSystem& pFileSystem, const QString& pMetadataDir)
{
    class NoFetcher : public Fetcher
    {
        Error fetch(const QString&, qint64, QByteArray*) override { return {ErrorKind::Unreachable, {}}; }
    };
    NoFetcher tFetcher;
    Private tStored(pFileSystem, pMetadataDir, tFetcher, QDateTime(), Limits());
    return tStored.loadRoot() || tStored.loadTimestamp() ? QDateTime() : tStored.mTrusted.provenTime();
}

Error Updater::findTarget(const QString& pPath, std::optional<TargetFile>* pTo)
{
    pTo->reset();
    if (!d->mRefreshed) {
        return Error{ErrorKind::Local, u"The metadata was not refreshed"_s};
    }
    return d->find(pPath, pTo);
}

Error Updater::allTargets(QList<TargetFile>* pTo)
{
    pTo->clear();
    if (!d->mRefreshed) {
        return Error{ErrorKind::Local, u"The metadata was not refreshed"_s};
    }
    return d->all(pTo);
}

} // namespace tarn::tuf

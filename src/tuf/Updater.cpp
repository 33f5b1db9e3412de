#include "tuf/Updater.h"

#include "tuf/DelegationSearch.h"
#include "tuf/FetchAhead.h"
#include "tuf/MetadataStore.h"
#include "tuf/Names.h"
#include "tuf/TrustedSet.h"

#include <QtCore/QSet>

#include <algorithm>
#include <functional>

using namespace Qt::StringLiterals;

namespace tarn::tuf {

namespace {

const QString sTimestampFile = u"timestamp.json"_s;

} // namespace

class Updater::Private
{
public:
    Private(os::FileSystem& pFileSystem, const QString& pMetadataDir, Fetcher& pFetcher,
            const QDateTime& pNow, const Limits& pLimits)
        : mStore(pFileSystem, pMetadataDir), mAhead(pFetcher), mNow(pNow), mLimits(pLimits), mTrusted(pNow)
    {
    }

    Failure refresh(const QByteArray& pTimestamp);
    void askAhead(const QByteArray& pTimestamp);
    QList<FetchedFile> behind(const QByteArray& pTimestamp);
    QList<FetchedFile> behindTimestamp(const TrustedSet& pTrusted) const;
    Failure loadRoot();
    Failure loadTimestamp();
    bool serverLacksRoot();
    Failure updateRoot();
    Failure takeRoot(const QByteArray& pFile);
    Failure updateTimestamp();
    Failure updateSnapshot();
    Failure updateTargets(const QString& pRole, const QString& pDelegator);

    Failure find(const QString& pPath, std::optional<TargetFile>* pTo);
    Failure loadAllRoles(QStringList* pRoles);
    Failure all(QList<TargetFile>* pTo);

    QString nextRoot() const;
    FetchedFile versioned(const QString& pRole, const MetaFile& pMeta, qint64 pLimit) const;
    Failure take(const FetchedFile& pFile, QByteArray* pTo,
                 const std::function<Failure(const QByteArray&)>& pCheck);
    TargetFile complete(TargetFile pTarget, const QString& pRole) const;

    MetadataStore mStore;
    FetchAhead mAhead;
    QDateTime mNow;
    QByteArray mStoredTimestamp;
    Limits mLimits;
    TrustedSet mTrusted;
    bool mRefreshed = false;
    bool mUnchanged = false;
};

QString Updater::Private::nextRoot() const
{
    return u"%1.root.json"_s.arg(mTrusted.root()->mVersion + 1);
}

FetchedFile Updater::Private::versioned(const QString& pRole, const MetaFile& pMeta, qint64 pLimit) const
{
    const QString tFile = encodeName(pRole) + ".json"_L1;
    const QString tName =
        mTrusted.root()->mConsistentSnapshot ? u"%1.%2"_s.arg(pMeta.mVersion).arg(tFile) : tFile;
    return {.mPath = tName, .mMaxLength = std::min(pMeta.mLength.value_or(pLimit), pLimit)};
}

// The server answers for a file that it sends in its turn, not for one that came before it was asked for.
Failure Updater::Private::take(const FetchedFile& pFile, QByteArray* pTo,
                               const std::function<Failure(const QByteArray&)>& pCheck)
{
    const bool tCameAhead = mAhead.has(pFile.mPath);
    Failure tFailure = mAhead.fetch(pFile.mPath, pFile.mMaxLength, pTo);
    tFailure = tFailure ? tFailure : pCheck(*pTo);
    if (tCameAhead && tFailure.mKind == Failure::Kind::Untrusted) {
        tFailure = mAhead.fetch(pFile.mPath, pFile.mMaxLength, pTo);
        tFailure = tFailure ? tFailure : pCheck(*pTo);
    }
    return tFailure;
}

Failure Updater::Private::refresh(const QByteArray& pTimestamp)
{
    mTrusted = TrustedSet(mNow);
    mAhead.clear();
    mRefreshed = false;
    mUnchanged = false;
    if (const Failure tFailure = loadRoot()) {
        return tFailure;
    }
    askAhead(pTimestamp);
    if (const Failure tFailure = updateRoot()) {
        return tFailure;
    }
    if (const Failure tFailure = mTrusted.checkRootExpiry()) {
        return tFailure;
    }
    if (const Failure tFailure = updateTimestamp()) {
        return tFailure;
    }
    // Again: the timestamp may know better than the clock.
    if (const Failure tFailure = mTrusted.checkRootExpiry()) {
        return tFailure;
    }
    if (const Failure tFailure = updateSnapshot()) {
        return tFailure;
    }
    if (const Failure tFailure = updateTargets(sTargets, sRoot)) {
        return tFailure;
    }
    mRefreshed = true;
    return {};
}

// Each file of the metadata names the next one, so that they follow each other. Behind a timestamp that is
// here already, they need not.
void Updater::Private::askAhead(const QByteArray& pTimestamp)
{
    if (!pTimestamp.isNull()) {
        mAhead.put(sTimestampFile, pTimestamp);
        mAhead.ask(QList<FetchedFile>{{.mPath = nextRoot(), .mMaxLength = mLimits.mRootLength}} +
                   behind(pTimestamp));
    }
}

// What will be wanted if the timestamp is accepted later. A next root may still refuse it.
QList<FetchedFile> Updater::Private::behind(const QByteArray& pTimestamp)
{
    TrustedSet tTrusted = mTrusted;
    QByteArray tStored;
    bool tSame = false;
    if (!mStore.load(sTimestamp, mLimits.mTimestampLength, &tStored)) {
        (void)tTrusted.addTimestamp(tStored, &tSame); // one that is not valid counts as none
    }
    if (tTrusted.addTimestamp(pTimestamp, &tSame) || tSame) {
        return {};
    }
    const bool tIsCurrent =
        !mStore.load(sSnapshot, mLimits.mSnapshotLength, &tStored) && !tTrusted.addLocalSnapshot(tStored);
    return tIsCurrent ? QList<FetchedFile>() : behindTimestamp(tTrusted);
}

// The snapshot is the stored one, if there is any.
QList<FetchedFile> Updater::Private::behindTimestamp(const TrustedSet& pTrusted) const
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

Failure Updater::Private::loadRoot()
{
    QByteArray tFile;
    Failure tFailure = mStore.load(sRoot, mLimits.mRootLength, &tFile);
    if (!tFailure) {
        tFailure = mTrusted.setRoot(tFile);
    }
    if (tFailure) {
        tFailure =
            Failure{Failure::Kind::Damaged, u"There is no trusted root to start from. "_s + tFailure.mText};
    }
    return tFailure;
}

Failure Updater::Private::updateRoot()
{
    for (int i = 0; i < mLimits.mMaxRootRotations; ++i) {
        QByteArray tFile;
        Failure tFailure = mAhead.fetch(nextRoot(), mLimits.mRootLength, &tFile);
        if (tFailure.mKind == Failure::Kind::NotFound) {
            return {};
        }
        if (!tFailure) {
            tFailure = takeRoot(tFile);
        }
        if (tFailure) {
            return tFailure;
        }
    }
    return {};
}

Failure Updater::Private::takeRoot(const QByteArray& pFile)
{
    bool tKeysRemoved = false;
    if (const Failure tFailure = mTrusted.addRoot(pFile, &tKeysRemoved)) {
        return tFailure;
    }
    mAhead.clear(); // what was asked for by the word of an older root
    // An attacker with the old keys may have signed a very high version. Files signed by them are removed
    // first: a crash in between leaves the old root, and the next refresh repeats this.
    if (tKeysRemoved) {
        for (const QString& tRole : {sTimestamp, sSnapshot}) {
            if (const Failure tFailure = mStore.remove(tRole)) {
                return tFailure;
            }
        }
    }
    return mStore.save(sRoot, pFile);
}

// Loads the stored files; invalid ones are ignored.
Failure Updater::Private::loadTimestamp()
{
    bool tSame = false;
    Failure tFailure = mStore.load(sTimestamp, mLimits.mTimestampLength, &mStoredTimestamp);
    if (!tFailure) {
        (void)mTrusted.addTimestamp(mStoredTimestamp, &tSame); // one that is not valid counts as none
    }
    if (tFailure.mKind != Failure::Kind::Damaged) {
        QByteArray tRefused;
        tFailure = mStore.load(sTimestamp, mLimits.mTimestampLength, &tRefused, MetadataStore::Copy::Refused);
        mTrusted.addRefusedTimestamp(tRefused);
    }
    return tFailure.mKind == Failure::Kind::Damaged ? tFailure : Failure();
}

// An outdated server has neither the newest root nor files signed by its keys.
bool Updater::Private::serverLacksRoot()
{
    QByteArray tFile;
    const qint64 tVersion = mTrusted.root()->mVersion;
    return tVersion > 1 && mAhead.fetch(u"%1.root.json"_s.arg(tVersion), mLimits.mRootLength, &tFile).mKind ==
                               Failure::Kind::NotFound;
}

Failure Updater::Private::updateTimestamp()
{
    QByteArray tFile;
    bool tSame = false;
    Failure tFailure = loadTimestamp();
    if (tFailure) {
        return tFailure;
    }
    tFailure = mAhead.fetch(sTimestampFile, mLimits.mTimestampLength, &tFile);
    if (!tFailure) {
        tFailure = mTrusted.addTimestamp(tFile, &tSame);
        if (tFailure.mKind == Failure::Kind::Untrusted && serverLacksRoot()) {
            return Failure{Failure::Kind::OutOfDate,
                           u"It is out of date: it does not have version %1 of the root metadata, which "
                           "this machine has seen already"_s.arg(mTrusted.root()->mVersion)};
        }
    }
    // Of two with the same version the stored one is the one that counts.
    const QByteArray& tCounts = tSame ? mStoredTimestamp : tFile;
    if (tFailure.mKind == Failure::Kind::Expired && mTrusted.isNewerThanRefused()) {
        // If this fails, the next run refuses and stores it.
        (void)mStore.save(sTimestamp, tCounts, MetadataStore::Copy::Refused);
    }
    mUnchanged = tSame;
    return tFailure || tSame ? tFailure : mStore.save(sTimestamp, tFile);
}

Failure Updater::Private::updateSnapshot()
{
    QByteArray tFile;
    Failure tFailure = mStore.load(sSnapshot, mLimits.mSnapshotLength, &tFile);
    if (tFailure.mKind == Failure::Kind::Damaged) {
        return tFailure;
    }
    if (!tFailure && !mTrusted.addLocalSnapshot(tFile)) {
        return {};
    }
    mUnchanged = false;
    const FetchedFile tWanted =
        versioned(sSnapshot, mTrusted.timestamp()->mSnapshot, mLimits.mSnapshotLength);
    if (!mAhead.has(tWanted.mPath)) {
        mAhead.ask(behindTimestamp(mTrusted));
    }
    tFailure = take(tWanted, &tFile, [this](const QByteArray& pFile) { return mTrusted.addSnapshot(pFile); });
    return tFailure ? tFailure : mStore.save(sSnapshot, tFile);
}

Failure Updater::Private::updateTargets(const QString& pRole, const QString& pDelegator)
{
    if (mTrusted.targets(pRole) != nullptr) {
        return mTrusted.checkDelegator(pRole, pDelegator);
    }
    QByteArray tFile;
    Failure tFailure = mStore.load(pRole, mLimits.mTargetsLength, &tFile);
    if (tFailure.mKind == Failure::Kind::Damaged) {
        return tFailure;
    }
    if (!tFailure && !mTrusted.addTargets(tFile, pRole, pDelegator)) {
        return {};
    }
    mUnchanged = false;
    const QMap<QString, MetaFile>& tRoles = mTrusted.snapshot()->mRoles;
    if (!tRoles.contains(pRole)) {
        return Failure{Failure::Kind::Untrusted,
                       u"The snapshot metadata does not list the role %1"_s.arg(pRole)};
    }
    tFailure = take(versioned(pRole, tRoles[pRole], mLimits.mTargetsLength), &tFile,
                    [&](const QByteArray& pFile) { return mTrusted.addTargets(pFile, pRole, pDelegator); });
    return tFailure ? tFailure : mStore.save(pRole, tFile);
}

TargetFile Updater::Private::complete(TargetFile pTarget, const QString& pRole) const
{
    pTarget.mRole = pRole;
    pTarget.mFetchPath =
        targetFetchPath(pTarget.mPath, pTarget.mHashes, mTrusted.root()->mConsistentSnapshot);
    return pTarget;
}

// Depth first, a role before those that it delegates to, these in their order.
Failure Updater::Private::find(const QString& pPath, std::optional<TargetFile>* pTo)
{
    QList<std::pair<QString, QString>> tToVisit{{sTargets, sRoot}}; // role, delegator; the last one is next
    QSet<QString> tVisited;
    while (!tToVisit.isEmpty() && tVisited.size() <= mLimits.mMaxDelegations) {
        const auto [tRole, tDelegator] = tToVisit.takeLast();
        if (tVisited.contains(tRole)) {
            continue;
        }
        if (const Failure tFailure = updateTargets(tRole, tDelegator)) {
            return tFailure;
        }
        tVisited.insert(tRole);
        const Targets* tTargets = mTrusted.targets(tRole);
        const auto tFound = tTargets->mTargets.constFind(pPath);
        if (tFound != tTargets->mTargets.constEnd()) {
            *pTo = complete(*tFound, tRole);
            return {};
        }
        const QList<RoleChoice> tChoices = rolesForTarget(tTargets->mDelegations, pPath);
        if (!tChoices.isEmpty() && tChoices.last().mTerminating) {
            tToVisit.clear();
        }
        for (auto tIt = tChoices.crbegin(); tIt != tChoices.crend(); ++tIt) {
            tToVisit.append({tIt->mRole, tRole});
        }
    }
    return {};
}

// In the order of find, as if every role might have the target.
Failure Updater::Private::loadAllRoles(QStringList* pRoles)
{
    QList<std::pair<QString, QString>> tToVisit{{sTargets, sRoot}};
    while (!tToVisit.isEmpty()) {
        const auto [tRole, tDelegator] = tToVisit.takeLast();
        if (const Failure tFailure = updateTargets(tRole, tDelegator)) {
            return tFailure;
        }
        if (pRoles->contains(tRole)) {
            continue;
        }
        if (pRoles->size() > mLimits.mMaxDelegations) {
            return Failure{Failure::Kind::Untrusted,
                           u"The repository has more than %1 delegated roles"_s.arg(mLimits.mMaxDelegations)};
        }
        pRoles->append(tRole);
        const QStringList tNames =
            delegatedRoleNames(mTrusted.targets(tRole)->mDelegations, mLimits.mMaxDelegations + 1);
        for (auto tIt = tNames.crbegin(); tIt != tNames.crend(); ++tIt) {
            tToVisit.append({*tIt, tRole});
        }
    }
    return {};
}

Failure Updater::Private::all(QList<TargetFile>* pTo)
{
    QStringList tRoles;
    if (const Failure tFailure = loadAllRoles(&tRoles)) {
        return tFailure;
    }
    QSet<QString> tPaths;
    for (const QString& tRole : tRoles) {
        for (const TargetFile& tTarget : mTrusted.targets(tRole)->mTargets) {
            tPaths.insert(tTarget.mPath);
        }
    }
    for (const QString& tPath : tPaths) {
        std::optional<TargetFile> tTarget;
        if (const Failure tFailure = find(tPath, &tTarget)) {
            return tFailure;
        }
        if (tTarget) {
            tTarget->mRoleRank = static_cast<int>(tRoles.indexOf(tTarget->mRole));
            pTo->append(*tTarget);
        }
    }
    std::sort(pTo->begin(), pTo->end(),
              [](const TargetFile& pA, const TargetFile& pB) { return pA.mPath < pB.mPath; });
    return {};
}

Updater::Updater(os::FileSystem& pFileSystem, const QString& pMetadataDir, Fetcher& pFetcher,
                 const QDateTime& pNow, const Limits& pLimits)
    : d(std::make_unique<Private>(pFileSystem, pMetadataDir, pFetcher, pNow, pLimits))
{
}

Updater::~Updater() = default;

Failure Updater::initialize(os::FileSystem& pFileSystem, const QString& pMetadataDir, const QByteArray& pRoot)
{
    TrustedSet tTrusted{QDateTime()};
    if (Failure tFailure = tTrusted.setRoot(pRoot)) {
        return tFailure;
    }
    MetadataStore tStore(pFileSystem, pMetadataDir);
    const Failure tFailure = tStore.clear();
    return tFailure ? tFailure : tStore.save(sRoot, pRoot);
}

Failure Updater::refresh(const QByteArray& pTimestamp)
{
    return d->refresh(pTimestamp);
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
        Failure fetch(const QString&, qint64, QByteArray*) override
        {
            return {Failure::Kind::Unreachable, {}};
        }
    };
    NoFetcher tFetcher;
    Private tStored(pFileSystem, pMetadataDir, tFetcher, QDateTime(), Limits());
    return tStored.loadRoot() || tStored.loadTimestamp() ? QDateTime() : tStored.mTrusted.provenTime();
}

Failure Updater::findTarget(const QString& pPath, std::optional<TargetFile>* pTo)
{
    pTo->reset();
    if (!d->mRefreshed) {
        return Failure{Failure::Kind::Damaged, u"The metadata was not refreshed"_s};
    }
    return d->find(pPath, pTo);
}

Failure Updater::allTargets(QList<TargetFile>* pTo)
{
    pTo->clear();
    if (!d->mRefreshed) {
        return Failure{Failure::Kind::Damaged, u"The metadata was not refreshed"_s};
    }
    return d->all(pTo);
}

} // namespace tarn::tuf

#include "publication/Publication.h"

#include "keys/Roles.h"
#include "keys/RootDocument.h"
#include "network/MetadataSource.h"
#include "publication/CatchUp.h"
#include "publication/ClockCheck.h"
#include "publication/FileMatch.h"
#include "publication/FolderFiles.h"
#include "publication/Layout.h"
#include "publication/NewRoot.h"
#include "publication/RepositoryState.h"
#include "publication/Unreferenced.h"

#include "os/FileSystem.h"
#include "os/FileTools.h"
#include "tuf/Metadata.h"

#include <QtCore/QHash>
#include <QtCore/QSet>

#include <algorithm>
#include <utility>

using namespace Qt::StringLiterals;

namespace tarn::vkpublish {

namespace {

constexpr mode_t sFileMode = 0644;
constexpr qint64 sMaxMetadata = 16 * 1024 * 1024;

// Sets what metadata says about a new file.
Failure take(const Result<QByteArray>& pFile, const QString& pRole, qint64 pVersion,
             const QDateTime& pExpires, NewMetadataFile* pTo)
{
    if (!pFile) {
        return pFile.failure();
    }
    if (pFile->size() > sMaxMetadata) {
        return Failure::content(u"The %1 metadata is too large: %2 bytes"_s.arg(pRole).arg(pFile->size()));
    }
    *pTo = {*pFile, {metaOf(pVersion, *pFile), pExpires}};
    return {};
}

// At least half of the lifetime that it would have now is left.
bool isFresh(const PublishedFile& pFile, const QDateTime& pExpires, const QDateTime& pNow)
{
    return pNow.secsTo(pFile.mExpires) >= pNow.secsTo(pExpires) / 2;
}

// pStated: "length" and "hashes", as in metadata.
bool isAsStated(const QString& pPath, const QJsonObject& pStated)
{
    return !fileMatches(pPath, pStated["length"_L1].toInteger(), {statedHash(pStated)});
}

} // namespace

Publication::Publication(os::FileSystem& pFileSystem, const QString& pRepository, KeyFolder& pKeys)
    : mFileSystem(pFileSystem), mRepository(pRepository), mKeys(pKeys)
{
}

// For files that were already published this only checks that they exist: "verify" does the rest.
Failure Publication::checkTargets()
{
    const TargetList& tPublished = mKeys.mRecord.mPublishedTargets;
    const QHash<QString, qint64> tThere = filesIn(targetsFolder(mRepository));
    QSet<QString> tNamed;
    for (auto tIt = offered().begin(); tIt != offered().end(); ++tIt) {
        const bool tKnown = tPublished.text(tIt.key()) == tIt.text();
        for (const TargetsFile& tFile : filesOf(tIt.key(), tIt.value().toObject())) {
            const auto tPath = [&] { return targetsFolder(mRepository) + u'/' + tFile.mName; };
            if (tKnown ? tThere.value(tFile.mName, -1) != tFile.mLength
                       : bool(fileMatches(tPath(), tFile.mLength, {tFile.mHash}))) {
                return Failure::content(u"%1 is missing or was changed: add the package again with "
                                        "--replace, or remove it"_s.arg(tPath()));
            }
            tNamed.insert(tFile.mName);
        }
    }
    mUnnamed = tThere.keys();
    mUnnamed.removeIf([&](const QString& pName) { return tNamed.contains(pName); });
    return {};
}

Failure Publication::catchUp()
{
    if (Failure tFailure = checkClock(mKeys.mRecord, QDateTime::currentDateTimeUtc())) {
        return tFailure;
    }
    if (Failure tFailure = mKeys.lockRepository(metadataFolder(mRepository))) {
        return tFailure;
    }
    FolderFetcher tFolder(mFileSystem, metadataFolder(mRepository));
    RepositoryState tSeen;
    // Metadata that cannot be verified is ignored, and written again.
    (void)readState(tFolder, mKeys.mRecord.mRoot, &tSeen);
    mForeign = checkLead(mKeys.mRecord, tSeen);
    return raiseVersions(mFileSystem, mRepository, &mKeys, tSeen, &mRaised);
}

Failure Publication::takeOver(tuf::Fetcher& pFrom)
{
    const Failure tFailure = mKeys.lockRepository(metadataFolder(mRepository));
    return tFailure ? tFailure : vkpublish::takeOver(mFileSystem, pFrom, mRepository, &mKeys, &mRaised);
}

QStringList Publication::notes() const
{
    return mRaised ? QStringList{u"Warning: the record is older than the published repository, and continued "
                                 u"above its versions. Repeat what was added or removed since; see "
                                 "\"vkpublish list\""_s} +
                         mNotes
                   : mNotes;
}

bool Publication::isUsable(const QString& pRole, const PublishedFile& pFile, const QDateTime& pNow) const
{
    const qint64 tVersion = pFile.mMeta["version"_L1].toInteger();
    return !pFile.mMeta.isEmpty() && pFile.mExpires > pNow &&
           isAsStated(versionedPath(mRepository, pRole, tVersion), pFile.mMeta);
}

Failure Publication::write(const QString& pPath, const QByteArray& pFile)
{
    return os::replaceFile(mFileSystem, pPath, pFile, sFileMode);
}

Failure Publication::writeVersioned(const QString& pRole, const NewMetadataFile& pFile, PublishedFile* pTo)
{
    if (pFile.mBytes.isEmpty()) {
        return {};
    }
    const qint64 tVersion = pFile.mPublished.mMeta["version"_L1].toInteger();
    if (Failure tFailure = write(versionedPath(mRepository, pRole, tVersion), pFile.mBytes)) {
        return tFailure;
    }
    *pTo = pFile.mPublished;
    return {};
}

Failure Publication::checkRootExpiry(const QDateTime& pNow) const
{
    const Result<RootDocument> tRoot = RootDocument::read(mKeys.mRecord.mRoot);
    if (!tRoot) {
        return tRoot.failure();
    }
    const QString tNext = mNotes.isEmpty() ? u": renew it with \"vkpublish payload DIR root\""_s
                                           : u". "_s + mNotes.join(u". "_s);
    return tRoot->expires() > pNow
               ? Failure()
               : Failure::content(u"The root has expired on %1, and machines refuse the repository%2"_s.arg(
                     tRoot->expires().toString(Qt::ISODate), tNext));
}

Failure Publication::run(const PublicationTimes& pTimes)
{
    Record& tRecord = mKeys.mRecord;
    tRecord.mRetiringKeys.removeIf([&](const RetiringKey& pOld) { return pOld.mUntil <= pTimes.mNow; });
    mNotes.clear();
    if (Failure tFailure = catchUp()) {
        return tFailure;
    }
    if (Failure tFailure = checkTargets()) {
        return tFailure;
    }
    const Result<std::optional<Draft>> tRoot = completeRoot(mKeys, pTimes.mNow, &mNotes);
    if (!tRoot) {
        return tRoot.failure();
    }
    if (!*tRoot) {
        mNotes += mForeign ? QStringList{mForeign.mText} : QStringList();
        return publish(pTimes);
    }
    const Record tBefore = tRecord;
    const QDateTime tSigned = tRecord.mTimestampExpires;
    const QDateTime tUntil = tSigned.isValid() ? std::max(tSigned, pTimes.mExpires) : pTimes.mExpires;
    if (Failure tFailure = adoptRoot(mFileSystem, &mKeys, mRepository, **tRoot, pTimes.mNow, tUntil)) {
        return tFailure;
    }
    const Failure tFailure = publish(pTimes);
    if (tFailure.mKind != Failure::Kind::Person) {
        return tFailure;
    }
    // The new root waits, and everything else goes on.
    tRecord = tBefore;
    mNotes.append(u"The new root is not published yet: "_s + tFailure.mText);
    return publish(pTimes);
}

Result<Publication::Changes> Publication::decide(const PublicationTimes& pTimes)
{
    const PublishedFile& tTargets = mKeys.mRecord.mPublishedTargetsFile;
    const PublishedFile& tSnapshot = mKeys.mRecord.mPublishedSnapshot;
    const Result<TargetsChoice> tChoice =
        chooseTargets(mKeys,
                      {.mOffered = offered(),
                       .mIsUsable = isUsable(tuf::sTargets, tTargets, pTimes.mNow),
                       .mIsFresh = isFresh(tTargets, pTimes.mTargetsExpires, pTimes.mNow),
                       .mNow = pTimes.mNow},
                      &mNotes);
    if (!tChoice) {
        return tChoice.failure();
    }
    return Changes{*tChoice, tChoice->isNew() || !isUsable(tuf::sSnapshot, tSnapshot, pTimes.mNow) ||
                                 !isFresh(tSnapshot, pTimes.mExpires, pTimes.mNow)};
}

// Sets the versions of what will be signed, and drops the old files, in the record.
Failure Publication::begin(const Changes& pChanges, const QDateTime& pNow, NewMetadata* pTo)
{
    Record& tRecord = mKeys.mRecord;
    if (pChanges.mTargets.isNew()) {
        tRecord.mPublishedTargetsFile = PublishedFile();
    }
    if (pChanges.mNewSnapshot) {
        ++tRecord.mVersions[tuf::sSnapshot];
        tRecord.mPublishedSnapshot = PublishedFile();
    }
    ++tRecord.mVersions[tuf::sTimestamp];
    if (pChanges.mTargets.mSource == TargetsChoice::Source::KeysHere) {
        ++tRecord.mVersions[tuf::sTargets];
    }
    if (pChanges.mTargets.mSource != TargetsChoice::Source::Draft) {
        return {};
    }
    const tuf::Signed tSigned = pChanges.mTargets.mDraft.toSigned();
    return take(fileOfDraft(mFileSystem, mKeys, mRepository, pChanges.mTargets.mDraft, pNow), tuf::sTargets,
                tSigned.mVersion, tSigned.mExpires, &pTo->mTargets);
}

Failure Publication::publish(const PublicationTimes& pTimes)
{
    Record& tRecord = mKeys.mRecord;
    if (Failure tFailure = checkRootExpiry(pTimes.mNow)) {
        return tFailure;
    }
    const Result<Changes> tChanges = decide(pTimes);
    if (!tChanges) {
        return tChanges.failure();
    }
    QStringList tRoles{tuf::sTimestamp};
    tRoles += tChanges->mNewSnapshot ? QStringList{tuf::sSnapshot} : QStringList();
    tRoles += tChanges->mTargets.mSource == TargetsChoice::Source::KeysHere ? QStringList{tuf::sTargets}
                                                                            : QStringList();
    const Result<RoleSigners> tSigners = readSigners(mKeys, tRoles, pTimes.mNow);
    if (!tSigners) {
        return tSigners.failure();
    }
    NewMetadata tFiles;
    if (Failure tFailure = begin(*tChanges, pTimes.mNow, &tFiles)) {
        return tFailure;
    }
    // All signatures come before the first change, which a missing one prevents.
    if (Failure tFailure = signFiles(pTimes, *tSigners, &tFiles)) {
        return tFailure;
    }
    // The versions are in the record, and the old files no longer, before anything is written. If this run is
    // interrupted, no later run signs other content under a version that a client may have seen, or returns
    // to an older file.
    if (Failure tFailure = mKeys.save()) {
        return tFailure;
    }
    if (Failure tFailure = writeFiles(tFiles)) {
        return tFailure;
    }
    // Clients that have the new root refuse what only the old keys signed, so it comes last.
    if (Failure tFailure = writeRoots(mFileSystem, mRepository, pTimes.mNow, &tRecord)) {
        return tFailure;
    }
    noteWithdrawn();
    tRecord.mTimestampExpires = pTimes.mExpires;
    tRecord.mSignedAt = QDateTime::currentDateTimeUtc();
    noteUnreferenced(mRepository, mUnnamed, pTimes.mNow, &tRecord);
    if (Failure tFailure = mKeys.save()) {
        return tFailure;
    }
    return dropPublishedDrafts(&mKeys);
}

// Signs the files that were dropped from the record, and the timestamp.
Failure Publication::signFiles(const PublicationTimes& pTimes, const RoleSigners& pSigners,
                               NewMetadata* pTo) const
{
    const Record& tRecord = mKeys.mRecord;
    const qint64 tTargetsVersion = tRecord.mVersions[tuf::sTargets];
    const qint64 tSnapshotVersion = tRecord.mVersions[tuf::sSnapshot];
    if (pTo->mTargets.mBytes.isEmpty()) {
        pTo->mTargets.mPublished = tRecord.mPublishedTargetsFile;
    }
    if (pTo->mTargets.mPublished.mMeta.isEmpty()) {
        const Result<QByteArray> tFile =
            makeTargets(tTargetsVersion, pTimes.mTargetsExpires, offered(), pSigners[tuf::sTargets]);
        if (Failure tFailure =
                take(tFile, tuf::sTargets, tTargetsVersion, pTimes.mTargetsExpires, &pTo->mTargets)) {
            return tFailure;
        }
    }
    pTo->mSnapshot.mPublished = tRecord.mPublishedSnapshot;
    if (pTo->mSnapshot.mPublished.mMeta.isEmpty()) {
        const Result<QByteArray> tFile = makeSnapshot(
            tSnapshotVersion, pTimes.mExpires, pTo->mTargets.mPublished.mMeta, pSigners[tuf::sSnapshot]);
        if (Failure tFailure =
                take(tFile, tuf::sSnapshot, tSnapshotVersion, pTimes.mExpires, &pTo->mSnapshot)) {
            return tFailure;
        }
    }
    const Result<QByteArray> tTimestamp =
        makeTimestamp(tRecord.mVersions[tuf::sTimestamp], pTimes.mExpires, pTo->mSnapshot.mPublished.mMeta,
                      pTo->mTargets.mPublished.mMeta["version"_L1].toInteger(), pSigners[tuf::sTimestamp]);
    if (tTimestamp) {
        pTo->mTimestamp = *tTimestamp;
    }
    return tTimestamp.failure();
}

Failure Publication::writeFiles(const NewMetadata& pFiles)
{
    Record& tRecord = mKeys.mRecord;
    if (Failure tFailure = writeVersioned(tuf::sTargets, pFiles.mTargets, &tRecord.mPublishedTargetsFile)) {
        return tFailure;
    }
    if (Failure tFailure = writeVersioned(tuf::sSnapshot, pFiles.mSnapshot, &tRecord.mPublishedSnapshot)) {
        return tFailure;
    }
    return write(timestampPath(mRepository), pFiles.mTimestamp);
}

void Publication::noteWithdrawn()
{
    Record& tRecord = mKeys.mRecord;
    const TargetList tBefore = std::exchange(tRecord.mPublishedTargets, offered());
    const QMap<QByteArray, QByteArray>& tTexts = tBefore.texts();
    for (auto tIt = tTexts.begin(); tIt != tTexts.end(); ++tIt) {
        if (!offered().texts().contains(tIt.key())) {
            tRecord.mWithdrawnTargets.insertText(tIt.key(), *tIt);
        }
    }
}

Failure Publication::prune(const QDateTime& pNow, qint64 pGrace)
{
    if (Failure tFailure = deleteUnreferenced(mFileSystem, mRepository, pNow, pGrace, &mKeys.mRecord)) {
        return tFailure;
    }
    return mKeys.save();
}

} // namespace tarn::vkpublish

#include "publication/Refresh.h"

#include "keys/Roles.h"
#include "network/MetadataSource.h"
#include "publication/CatchUp.h"
#include "publication/ClockCheck.h"
#include "publication/Layout.h"
#include "publication/NewRoot.h"
#include "publication/RoleSigners.h"

#include "os/FileSystem.h"
#include "os/FileTools.h"
#include "tuf/Metadata.h"
#include "tuf/TrustedSet.h"

#include <QtCore/QJsonDocument>

#include <algorithm>

using namespace Qt::StringLiterals;

namespace tarn::vkpublish {

namespace {

constexpr mode_t sFileMode = 0644;

const QStringList sOurRoles{tuf::sSnapshot, tuf::sTimestamp};

// The entry for the list of packages in a snapshot, as it was signed. Empty if there are others, too: no
// version of this program has made such a snapshot.
QJsonObject targetsEntry(const QByteArray& pSnapshot)
{
    const QJsonObject tMeta = QJsonDocument::fromJson(pSnapshot)["signed"_L1]["meta"_L1].toObject();
    return tMeta.size() == 1 ? tMeta["targets.json"_L1].toObject() : QJsonObject();
}

qint64 versionOf(const QJsonObject& pEntry)
{
    return pEntry["version"_L1].toInteger();
}

} // namespace

Refresh::Refresh(os::FileSystem& pFileSystem, const QString& pRepository, KeyFolder& pKeys)
    : mFileSystem(pFileSystem), mRepository(pRepository), mKeys(pKeys)
{
}

Failure Refresh::run(const PublicationTimes& pTimes)
{
    Record& tRecord = mKeys.mRecord;
    if (Failure tFailure = checkClock(tRecord, QDateTime::currentDateTimeUtc())) {
        return tFailure;
    }
    tRecord.mRetiringKeys.removeIf([&](const RetiringKey& pOld) { return pOld.mUntil <= pTimes.mNow; });
    if (Failure tFailure = mKeys.lockRepository(metadataFolder(mRepository))) {
        return tFailure;
    }
    if (Failure tFailure = readRepository()) {
        return tFailure;
    }
    const RepositoryState tBefore = mState;
    const QJsonObject tEntry = targetsEntry(mState.mSnapshot);
    if (Failure tFailure = checkTargets(tEntry)) {
        return tFailure;
    }
    if (Failure tFailure = sign(pTimes, tEntry)) {
        return tFailure;
    }
    if (Failure tFailure = prove(tBefore)) {
        return tFailure;
    }
    // Before anything is written: no later run signs other content under these versions.
    for (const QString& tRole : sOurRoles) {
        tRecord.mVersions[tRole] = mState.mVersions[tRole];
    }
    tRecord.mPublishedSnapshot = PublishedFile();
    tRecord.mCarriedTargets = {tEntry, mState.mExpires[tuf::sTargets]};
    if (Failure tFailure = mKeys.save()) {
        return tFailure;
    }
    FolderFetcher tFolder(mFileSystem, metadataFolder(mRepository));
    QByteArray tPresent;
    const Failure tGone = tFolder.fetch(u"timestamp.json"_s, tuf::Limits().mTimestampLength, &tPresent);
    if (tGone || tPresent != tBefore.mTimestamp) {
        return Failure::content(u"%1 was changed meanwhile: repeat this"_s.arg(timestampPath(mRepository)));
    }
    if (Failure tFailure = write()) {
        return tFailure;
    }
    // As after a publication that was interrupted before its last files.
    if (Failure tFailure = writeRoots(mFileSystem, mRepository, pTimes.mNow, &tRecord)) {
        return tFailure;
    }
    tRecord.mPublishedSnapshot = {metaOf(mState.mVersions[tuf::sSnapshot], mState.mSnapshot),
                                  mState.mExpires[tuf::sSnapshot]};
    tRecord.mTimestampExpires = pTimes.mExpires;
    tRecord.mSignedAt = QDateTime::currentDateTimeUtc();
    return mKeys.save();
}

Failure Refresh::readRepository()
{
    FolderFetcher tFolder(mFileSystem, metadataFolder(mRepository));
    if (Failure tFailure = readWithTargets(tFolder, mKeys.mRecord.mRoot, &mState)) {
        tFailure.mText += u". Only what is signed can be refreshed: see \"vkpublish verify\""_s;
        return tFailure;
    }
    if (Failure tFailure = checkLead(mKeys.mRecord, mState)) {
        return tFailure;
    }
    return mState.mNewRoots.isEmpty() ? Failure() : mKeys.takeRoot(mState.mRoot);
}

// A list that this publisher once signed is not good enough: it must be the newest that the record knows.
Failure Refresh::checkTargets(const QJsonObject& pEntry) const
{
    const Record& tRecord = mKeys.mRecord;
    if (pEntry.isEmpty()) {
        return Failure::content(u"The snapshot names other files than the list of packages"_s);
    }
    qint64 tLeast = 0;
    for (const PublishedFile& tKnown : {tRecord.mPublishedTargetsFile, tRecord.mCarriedTargets}) {
        tLeast = std::max(tLeast, versionOf(tKnown.mMeta));
        if (versionOf(tKnown.mMeta) == versionOf(pEntry) && tKnown.mMeta != pEntry) {
            return Failure::content(u"Version %1 of the list of packages differs from the one in the record: "
                                    "two publishers have used the same keys"_s.arg(versionOf(pEntry)));
        }
    }
    tLeast = tLeast > 0 ? tLeast : tRecord.mVersions[tuf::sTargets];
    if (versionOf(pEntry) < tLeast) {
        return Failure::content(
            u"The repository has gone back: its list of packages has version %1, and the "
            "record knows %2. \"vkpublish publish\" makes it good"_s.arg(versionOf(pEntry))
                .arg(tLeast));
    }
    return {};
}

// Only the newest one that was ever signed can stay.
bool Refresh::isSnapshotFresh(const PublicationTimes& pTimes) const
{
    const QDateTime tExpires = mState.mExpires[tuf::sSnapshot];
    return mState.mVersions[tuf::sSnapshot] >= mKeys.mRecord.mVersions[tuf::sSnapshot] &&
           tExpires > pTimes.mNow && pTimes.mNow.secsTo(tExpires) >= pTimes.mNow.secsTo(pTimes.mExpires) / 2;
}

// Replaces what is renewed in mState.
Failure Refresh::sign(const PublicationTimes& pTimes, const QJsonObject& pTargetsEntry)
{
    const auto tNext = [this](const QString& pRole) {
        return std::max(mState.mVersions[pRole], mKeys.mRecord.mVersions[pRole]) + 1;
    };
    mHasNewSnapshot = !isSnapshotFresh(pTimes);
    const auto tSigners =
        readSigners(mKeys, mHasNewSnapshot ? sOurRoles : QStringList{tuf::sTimestamp}, pTimes.mNow);
    if (!tSigners) {
        return tSigners.failure();
    }
    if (mHasNewSnapshot) {
        mState.mVersions[tuf::sSnapshot] = tNext(tuf::sSnapshot);
        mState.mExpires[tuf::sSnapshot] = pTimes.mExpires;
        const auto tFile = makeSnapshot(mState.mVersions[tuf::sSnapshot], pTimes.mExpires, pTargetsEntry,
                                        (*tSigners)[tuf::sSnapshot]);
        if (!tFile) {
            return tFile.failure();
        }
        mState.mSnapshot = *tFile;
    }
    mState.mVersions[tuf::sTimestamp] = tNext(tuf::sTimestamp);
    mState.mExpires[tuf::sTimestamp] = pTimes.mExpires;
    const auto tFile = makeTimestamp(mState.mVersions[tuf::sTimestamp], pTimes.mExpires,
                                     metaOf(mState.mVersions[tuf::sSnapshot], mState.mSnapshot),
                                     versionOf(pTargetsEntry), (*tSigners)[tuf::sTimestamp]);
    mState.mTimestamp = tFile.valueOr({});
    return tFile.failure();
}

// What a machine does that has seen the state before.
Failure Refresh::prove(const RepositoryState& pBefore) const
{
    tuf::TrustedSet tTrusted(QDateTime::currentDateTimeUtc());
    bool tIsSame = false;
    if (Failure tFailure = tTrusted.setRoot(mState.mRoot)) {
        return tFailure;
    }
    if (Failure tFailure = tTrusted.checkRootExpiry()) {
        return tFailure;
    }
    (void)tTrusted.addTimestamp(pBefore.mTimestamp, &tIsSame); // they may have expired
    (void)tTrusted.addLocalSnapshot(pBefore.mSnapshot);
    if (Failure tFailure = tTrusted.addTimestamp(mState.mTimestamp, &tIsSame)) {
        return tFailure;
    }
    if (Failure tFailure = tTrusted.addSnapshot(mState.mSnapshot)) {
        return tFailure;
    }
    return tTrusted.addTargets(mState.mTargets, tuf::sTargets, tuf::sRoot);
}

Failure Refresh::write()
{
    if (mHasNewSnapshot) {
        const QString tPath = versionedPath(mRepository, tuf::sSnapshot, mState.mVersions[tuf::sSnapshot]);
        if (Failure tFailure = os::replaceFile(mFileSystem, tPath, mState.mSnapshot, sFileMode)) {
            return tFailure;
        }
    }
    return os::replaceFile(mFileSystem, timestampPath(mRepository), mState.mTimestamp, sFileMode);
}

} // namespace tarn::vkpublish

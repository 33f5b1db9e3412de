#include "Publication.h"

#include "CatchUp.h"
#include "FileMatch.h"
#include "Layout.h"
#include "MetadataSource.h"
#include "RepositoryState.h"
#include "Roles.h"

#include "os/FileSystem.h"
#include "tuf/AtomicFile.h"
#include "tuf/Metadata.h"

#include <QtCore/QDir>
#include <QtCore/QFile>

#include <algorithm>
#include <cerrno>
#include <system_error>
#include <utility>

using namespace Qt::StringLiterals;

namespace tarn::vkpublish {

namespace {

constexpr mode_t sFileMode = 0644;
constexpr qint64 sMaxMetadata = 16 * 1024 * 1024;

// pStated: "length" and "hashes", as metadata states them.
bool isAsStated(const QString& pPath, const QJsonObject& pStated)
{
    QString tReason;
    return fileMatches(pPath, pStated["length"_L1].toInteger(), {statedHash(pStated)}, &tReason);
}

} // namespace

Publication::Publication(os::FileSystem& pFileSystem, const QString& pRepository, KeyFolder& pKeys)
    : mFileSystem(pFileSystem), mRepository(pRepository), mKeys(pKeys)
{
}

// What was published once is looked at only for its presence: "verify" is there for the rest.
bool Publication::checkTarget(const QString& pName, QString* pError) const
{
    const Record& tRecord = mKeys.mRecord;
    const QJsonObject tTarget = tRecord.mTargets[pName].toObject();
    const QString tPath = targetPath(mRepository, pName, tTarget);
    const bool tPublished = tRecord.mPublishedTargets[pName].toObject() == tTarget;
    if (tPublished ? QFileInfo(tPath).size() == tTarget["length"_L1].toInteger()
                   : isAsStated(tPath, tTarget)) {
        return true;
    }
    *pError =
        u"%1 is missing or was changed: add the package again with --replace, or remove it"_s.arg(tPath);
    return false;
}

bool Publication::checkTargets(QString* pError) const
{
    for (const QString& tName : mKeys.mRecord.mTargets.keys()) {
        if (!checkTarget(tName, pError)) {
            return false;
        }
    }
    return true;
}

bool Publication::catchUp(QString* pError)
{
    FolderFetcher tFolder(mFileSystem, metadataFolder(mRepository));
    RepositoryState tSeen;
    // What can't be verified says nothing, and is written again.
    (void)readState(tFolder, mKeys.mRecord.mRoot, &tSeen);
    return raiseVersions(&mKeys, tSeen, &mRaised, pError);
}

bool Publication::readKeys(QString* pError)
{
    mSigners.clear();
    for (const QString& tRole : {tuf::sTargets, tuf::sSnapshot, tuf::sTimestamp}) {
        if (!mKeys.readSigners(tRole, &mSigners[tRole], pError)) {
            return false;
        }
    }
    return true;
}

bool Publication::isFresh(const QString& pRole, const PublishedFile& pFile, const QDateTime& pExpires,
                          const PublicationTimes& pTimes) const
{
    const qint64 tVersion = pFile.mMeta["version"_L1].toInteger();
    return !pFile.mMeta.isEmpty() && pFile.mExpires > pTimes.mNow &&
           pTimes.mNow.secsTo(pFile.mExpires) >= pTimes.mNow.secsTo(pExpires) / 2 &&
           isAsStated(versionedPath(mRepository, pRole, tVersion), pFile.mMeta);
}

bool Publication::write(const QString& pPath, const QByteArray& pFile, QString* pError)
{
    if (pFile.isEmpty() || pFile.size() > sMaxMetadata) {
        *pError = u"%1 can't be signed, or is too large"_s.arg(pPath);
        return false;
    }
    const Failure tError = tuf::writeFileAtomically(mFileSystem, pPath, pFile, sFileMode);
    *pError = tError.mText;
    return !tError;
}

bool Publication::writeVersioned(const QString& pRole, const QByteArray& pFile, const QDateTime& pExpires,
                                 PublishedFile* pTo, QString* pError)
{
    const qint64 tVersion = mKeys.mRecord.mVersions[pRole];
    if (!write(versionedPath(mRepository, pRole, tVersion), pFile, pError)) {
        return false;
    }
    *pTo = PublishedFile{metaOf(tVersion, pFile), pExpires};
    return true;
}

bool Publication::writeRoot(QString* pError)
{
    const QString tPath = versionedPath(mRepository, tuf::sRoot, mKeys.mRecord.mVersions[tuf::sRoot]);
    QByteArray tPresent;
    const Failure tError = tuf::readWholeFile(mFileSystem, tPath, sMaxMetadata, &tPresent);
    return (!tError && tPresent == mKeys.mRecord.mRoot) || write(tPath, mKeys.mRecord.mRoot, pError);
}

bool Publication::run(const PublicationTimes& pTimes, QString* pError)
{
    Record& tRecord = mKeys.mRecord;
    tRecord.mRetiring.removeIf([&](const RetiringKey& pKey) { return pKey.mUntil <= pTimes.mNow; });
    if (!catchUp(pError) || !checkTargets(pError) || !readKeys(pError)) {
        return false;
    }
    const bool tNewTargets =
        tRecord.mTargets != tRecord.mPublishedTargets ||
        !isFresh(tuf::sTargets, tRecord.mPublishedTargetsFile, pTimes.mTargetsExpires, pTimes);
    const bool tNewSnapshot =
        tNewTargets || !isFresh(tuf::sSnapshot, tRecord.mPublishedSnapshot, pTimes.mExpires, pTimes);

    // The versions are taken, and the old files given up, before anything is written: if this run is cut off,
    // no later one signs other content under a version that a client may have seen, or goes back to an older
    // file.
    if (tNewTargets) {
        ++tRecord.mVersions[tuf::sTargets];
        tRecord.mPublishedTargetsFile = PublishedFile();
    }
    if (tNewSnapshot) {
        ++tRecord.mVersions[tuf::sSnapshot];
        tRecord.mPublishedSnapshot = PublishedFile();
    }
    ++tRecord.mVersions[tuf::sTimestamp];
    // Clients that have the new root refuse what only the old keys signed, so it comes last.
    if (!mKeys.save(pError) || !signFiles(pTimes, pError) || !writeRoot(pError)) {
        return false;
    }
    noteWithdrawn();
    tRecord.mTimestampExpires = pTimes.mExpires;
    noteUnreferenced(pTimes.mNow);
    return mKeys.save(pError);
}

// Those that were given up, and the timestamp.
bool Publication::signFiles(const PublicationTimes& pTimes, QString* pError)
{
    Record& tRecord = mKeys.mRecord;
    if (tRecord.mPublishedTargetsFile.mMeta.isEmpty() &&
        !writeVersioned(tuf::sTargets,
                        makeTargets(tRecord.mVersions[tuf::sTargets], pTimes.mTargetsExpires,
                                    tRecord.mTargets, mSigners[tuf::sTargets]),
                        pTimes.mTargetsExpires, &tRecord.mPublishedTargetsFile, pError)) {
        return false;
    }
    if (tRecord.mPublishedSnapshot.mMeta.isEmpty() &&
        !writeVersioned(tuf::sSnapshot,
                        makeSnapshot(tRecord.mVersions[tuf::sSnapshot], pTimes.mExpires,
                                     tRecord.mPublishedTargetsFile.mMeta, mSigners[tuf::sSnapshot]),
                        pTimes.mExpires, &tRecord.mPublishedSnapshot, pError)) {
        return false;
    }
    return write(timestampPath(mRepository),
                 makeTimestamp(tRecord.mVersions[tuf::sTimestamp], pTimes.mExpires,
                               tRecord.mPublishedSnapshot.mMeta, mSigners[tuf::sTimestamp]),
                 pError);
}

// Relative to the repository.
QSet<QString> Publication::referencedFiles() const
{
    const Record& tRecord = mKeys.mRecord;
    QStringList tPaths{timestampPath(mRepository)};
    for (const auto& [tRole, tFile] : {std::pair(tuf::sTargets, tRecord.mPublishedTargetsFile),
                                       std::pair(tuf::sSnapshot, tRecord.mPublishedSnapshot)}) {
        tPaths.append(versionedPath(mRepository, tRole, tFile.mMeta["version"_L1].toInteger()));
    }
    for (const QString& tName : tRecord.mTargets.keys()) {
        tPaths.append(targetPath(mRepository, tName, tRecord.mTargets[tName].toObject()));
    }
    QSet<QString> tFiles;
    for (const QString& tPath : tPaths) {
        tFiles.insert(tPath.mid(mRepository.size() + 1));
    }
    return tFiles;
}

void Publication::noteWithdrawn()
{
    Record& tRecord = mKeys.mRecord;
    const QJsonObject tBefore = std::exchange(tRecord.mPublishedTargets, tRecord.mTargets);
    for (const QString& tName : tBefore.keys()) {
        if (!tRecord.mTargets.contains(tName)) {
            tRecord.mWithdrawnTargets.insert(tName, tBefore[tName]);
        }
    }
}

void Publication::noteUnreferenced(const QDateTime& pNow)
{
    const QSet<QString> tReferenced = referencedFiles();
    const QMap<QString, QDateTime> tKnown = std::exchange(mKeys.mRecord.mUnreferenced, {});
    for (const QString& tFolder : {metadataFolder(mRepository), targetsFolder(mRepository)}) {
        for (const QFileInfo& tFile : QDir(tFolder).entryInfoList(QDir::Files | QDir::Hidden)) {
            const QString tName = (tFolder + u'/' + tFile.fileName()).mid(mRepository.size() + 1);
            // Every root stays: a client that slept for years climbs them one by one.
            if (!tReferenced.contains(tName) && !tName.endsWith(".root.json"_L1)) {
                mKeys.mRecord.mUnreferenced.insert(tName, std::min(tKnown.value(tName, pNow), pNow));
            }
        }
    }
}

bool Publication::prune(const QDateTime& pNow, qint64 pGrace, QString* pError)
{
    QMap<QString, QDateTime>& tUnreferenced = mKeys.mRecord.mUnreferenced;
    for (auto tIt = tUnreferenced.begin(); tIt != tUnreferenced.end();) {
        const QString tPath = mRepository + u'/' + tIt.key();
        if (tIt.value().secsTo(pNow) < pGrace) {
            ++tIt;
        } else if (mFileSystem.unlink(QFile::encodeName(tPath)) == 0 || errno == ENOENT) {
            tIt = tUnreferenced.erase(tIt);
        } else {
            *pError = u"%1 can't be removed: %2"_s.arg(
                tPath, QString::fromStdString(std::generic_category().message(errno)));
            return false;
        }
    }
    return mKeys.save(pError);
}

} // namespace tarn::vkpublish

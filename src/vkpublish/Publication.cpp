#include "Publication.h"

#include "FileMatch.h"
#include "Layout.h"
#include "Roles.h"

#include "os/FileSystem.h"
#include "tuf/AtomicFile.h"
#include "tuf/Metadata.h"

#include <QtCore/QDir>
#include <QtCore/QFile>

#include <cerrno>
#include <system_error>

namespace tarn::vkpublish {

namespace {

constexpr mode_t sFileMode = 0644;
constexpr qint64 sMaxMetadata = 16 * 1024 * 1024;

// pStated: "length" and "hashes", as metadata states them.
bool isAsStated(const QString& pPath, const QJsonObject& pStated)
{
    QString tReason;
    return fileMatches(pPath, pStated[QLatin1String("length")].toInteger(), {statedHash(pStated)}, &tReason);
}

} // namespace

Publication::Publication(vkservice::os::FileSystem& pFileSystem, const QString& pRepository, KeyFolder& pKeys)
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
    if (tPublished ? QFileInfo(tPath).size() == tTarget[QLatin1String("length")].toInteger()
                   : isAsStated(tPath, tTarget)) {
        return true;
    }
    *pError =
        QStringLiteral("%1 is missing or was changed: add the package again with --replace, or remove it")
            .arg(tPath);
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

bool Publication::readKeys(QString* pError)
{
    for (const QString& tRole : {tuf::sTargets, tuf::sSnapshot, tuf::sTimestamp}) {
        std::optional<tuf::SigningKey> tKey;
        if (!mKeys.readKey(tRole, &tKey, pError)) {
            return false;
        }
        mSigners.insert(tRole, *tKey);
    }
    return true;
}

bool Publication::isFresh(const QString& pRole, const PublishedFile& pFile, const QDateTime& pExpires,
                          const PublicationTimes& pTimes) const
{
    const qint64 tVersion = pFile.mMeta[QLatin1String("version")].toInteger();
    return !pFile.mMeta.isEmpty() && pFile.mExpires > pTimes.mNow &&
           pTimes.mNow.secsTo(pFile.mExpires) >= pTimes.mNow.secsTo(pExpires) / 2 &&
           isAsStated(versionedPath(mRepository, pRole, tVersion), pFile.mMeta);
}

bool Publication::write(const QString& pPath, const QByteArray& pFile, QString* pError)
{
    if (pFile.isEmpty() || pFile.size() > sMaxMetadata) {
        *pError = QStringLiteral("%1 can't be signed, or is too big").arg(pPath);
        return false;
    }
    const tuf::Error tError = tuf::writeFileAtomically(mFileSystem, pPath, pFile, sFileMode);
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
    const tuf::Error tError = tuf::readWholeFile(mFileSystem, tPath, sMaxMetadata, &tPresent);
    return (!tError && tPresent == mKeys.mRecord.mRoot) || write(tPath, mKeys.mRecord.mRoot, pError);
}

bool Publication::run(const PublicationTimes& pTimes, QString* pError)
{
    if (!checkTargets(pError) || !readKeys(pError)) {
        return false;
    }
    Record& tRecord = mKeys.mRecord;
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
    if (!mKeys.save(pError)) {
        return false;
    }
    if (tNewTargets && !writeVersioned(tuf::sTargets,
                                       makeTargets(tRecord.mVersions[tuf::sTargets], pTimes.mTargetsExpires,
                                                   tRecord.mTargets, mSigners.find(tuf::sTargets).value()),
                                       pTimes.mTargetsExpires, &tRecord.mPublishedTargetsFile, pError)) {
        return false;
    }
    if (tNewSnapshot && !writeVersioned(tuf::sSnapshot,
                                        makeSnapshot(tRecord.mVersions[tuf::sSnapshot], pTimes.mExpires,
                                                     tRecord.mPublishedTargetsFile.mMeta,
                                                     mSigners.find(tuf::sSnapshot).value()),
                                        pTimes.mExpires, &tRecord.mPublishedSnapshot, pError)) {
        return false;
    }
    // A root that changes keys comes as late as it can, for clients that have it refuse the old timestamp.
    if (!writeRoot(pError) ||
        !write(timestampPath(mRepository),
               makeTimestamp(tRecord.mVersions[tuf::sTimestamp], pTimes.mExpires,
                             tRecord.mPublishedSnapshot.mMeta, mSigners.find(tuf::sTimestamp).value()),
               pError)) {
        return false;
    }
    tRecord.mPublishedTargets = tRecord.mTargets;
    tRecord.mTimestampExpires = pTimes.mExpires;
    return mKeys.save(pError);
}

bool Publication::prune(QString* pError)
{
    const Record& tRecord = mKeys.mRecord;
    QStringList tKept{timestampPath(mRepository)};
    for (const auto& [tRole, tFile] : {std::pair(tuf::sTargets, tRecord.mPublishedTargetsFile),
                                       std::pair(tuf::sSnapshot, tRecord.mPublishedSnapshot)}) {
        tKept.append(versionedPath(mRepository, tRole, tFile.mMeta[QLatin1String("version")].toInteger()));
    }
    for (const QString& tName : tRecord.mTargets.keys()) {
        tKept.append(targetPath(mRepository, tName, tRecord.mTargets[tName].toObject()));
    }
    const QSet<QString> tKeep(tKept.begin(), tKept.end());
    for (const QString& tFolder : {metadataFolder(mRepository), targetsFolder(mRepository)}) {
        for (const QFileInfo& tFile : QDir(tFolder).entryInfoList(QDir::Files | QDir::Hidden)) {
            const QString tPath = tFolder + QLatin1Char('/') + tFile.fileName();
            // Every root stays: a client that slept for years climbs them one by one.
            if (!tKeep.contains(tPath) && !tFile.fileName().endsWith(QLatin1String(".root.json")) &&
                mFileSystem.unlink(QFile::encodeName(tPath)) != 0) {
                *pError = QStringLiteral("%1 can't be removed: %2")
                              .arg(tPath, QString::fromStdString(std::generic_category().message(errno)));
                return false;
            }
        }
    }
    return true;
}

} // namespace tarn::vkpublish

#include "mirror/Mirror.h"

#include "mirror/Origin.h"
#include "mirror/RootChain.h"
#include "publication/FileMatch.h"
#include "publication/Layout.h"

#include "os/Descriptor.h"
#include "os/FileSystem.h"
#include "os/FileTools.h"

#include <QtCore/QFile>
#include <QtCore/QFileInfo>

#include <sys/stat.h>

#include <algorithm>
#include <utility>

using namespace Qt::StringLiterals;

namespace tarn::vkpublish {

namespace {

constexpr mode_t sFileMode = 0644;

QString metadataPath(const QString& pName)
{
    return metadataFolder({}).mid(1) + u'/' + pName;
}

// Without a look at the content: it was proven before the file got its name.
bool isThere(const QString& pPath, qint64 pLength)
{
    struct stat tStat;
    return ::lstat(QFile::encodeName(pPath).constData(), &tStat) == 0 && S_ISREG(tStat.st_mode) &&
           (pLength < 0 || tStat.st_size == pLength);
}

QSet<QString> namesOf(const WholeState& pState, const QList<MetadataFile>& pRoots)
{
    QSet<QString> tNames{metadataPath(pState.mTimestamp.mName)};
    for (const MetadataFile& tFile : pRoots + pState.mLists) {
        tNames.insert(metadataPath(tFile.mName));
    }
    for (const SignedFile& tFile : pState.mTargets) {
        tNames.insert(tFile.mPath);
    }
    return tNames;
}

} // namespace

Mirror::Mirror(os::FileSystem& pFileSystem, const QString& pFolder, Origin& pOrigin)
    : mFileSystem(pFileSystem), mFolder(pFileSystem, pFolder), mOrigin(pOrigin)
{
}

Failure Mirror::run(const MirrorJob& pJob, MirrorReport* pReport)
{
    if (Failure tFailure = mFolder.open()) {
        return tFailure;
    }
    if (Failure tFailure = trust(pJob.mRoot)) {
        return tFailure;
    }
    const Result<bool> tUpToDate = isUpToDate(pJob, pReport);
    if (!tUpToDate) {
        return tUpToDate.failure();
    }
    const QStringList tUnnamed = mFolder.mRecord.mUnnamed.keys();
    Failure tFailure = *tUpToDate ? Failure() : copy(pJob, pReport);
    if (tFailure.mKind == Failure::Kind::Damaged) {
        tFailure.mText +=
            u". If this stays, remove the folder %1: the next run begins again with the first root"_s.arg(
                mFolder.trust());
    }
    if (tFailure || !pJob.mPruneSeconds) {
        return tFailure;
    }
    // What only the state before this one names stays for one more run.
    QSet<QString> tKept;
    for (const QString& tPath : mFolder.mRecord.mUnnamed.keys()) {
        if (!tUnnamed.contains(tPath)) {
            tKept.insert(tPath);
        }
    }
    pReport->mForeign = mFolder.foreignFiles();
    return mFolder.prune(pJob.mNow, *pJob.mPruneSeconds, tKept, &pReport->mPruned);
}

Failure Mirror::trust(const QByteArray& pRoot)
{
    MirrorRecord& tRecord = mFolder.mRecord;
    if (tRecord.mRoot.isEmpty() && pRoot.isEmpty()) {
        return {Failure::Kind::Person,
                u"%1 is a new mirror: name the root that you trust with --root"_s.arg(mFolder.path())};
    }
    if (!tRecord.mRoot.isEmpty() && !pRoot.isEmpty() && tRecord.mRoot != pRoot) {
        return {
            Failure::Kind::Person,
            u"%1 began with another root than that of --root: use a new folder for another repository"_s.arg(
                mFolder.path())};
    }
    const bool tIsNew = tRecord.mRoot.isEmpty();
    if (tIsNew || !QFileInfo::exists(mFolder.trust() + "/root.json"_L1)) {
        const QByteArray tRoot = tIsNew ? pRoot : tRecord.mRoot;
        if (Failure tFailure = tuf::Updater::initialize(mFileSystem, mFolder.trust(), tRoot)) {
            return tFailure;
        }
    }
    tRecord.mRoot = tIsNew ? pRoot : tRecord.mRoot;
    Failure tFailure = tIsNew ? mFolder.save() : Failure();
    tFailure = tFailure ? tFailure : mFolder.makeFolder(metadataFolder({}).mid(1));
    tFailure = tFailure ? tFailure : mFolder.makeFolder(targetsFolder({}).mid(1));
    tFailure = tFailure ? tFailure : os::syncDir(mFileSystem, mFolder.path());
    return tFailure ? tFailure : mFolder.lockRepository();
}

// Asks for one small file. Only a copy that was complete, and whose files are still there, can be up to date.
Result<bool> Mirror::isUpToDate(const MirrorJob& pJob, MirrorReport* pReport)
{
    const MirrorRecord& tRecord = mFolder.mRecord;
    if (pJob.mCheck || tRecord.mComplete.isEmpty() ||
        !std::all_of(tRecord.mNamed.begin(), tRecord.mNamed.end(), [this](const QString& pPath) {
            return isThere(mFolder.pathOf(pPath), -1) && !mFolder.leadsOut(pPath);
        })) {
        return false;
    }
    const qint64 tMost = tuf::Limits().mTimestampLength;
    QByteArray tFile;
    if (Failure tFailure = mOrigin.metadata().fetch(u"timestamp.json"_s, tMost, &tFile)) {
        return tFailure;
    }
    pReport->mExpires = tRecord.mExpires;
    return tuf::sha256(tFile) == tRecord.mComplete && tRecord.mExpires > pJob.mNow &&
           holds(timestampPath(mFolder.path()), tFile);
}

Failure Mirror::copy(const MirrorJob& pJob, MirrorReport* pReport)
{
    const Result<WholeState> tState =
        readWholeState(mFileSystem, mFolder.trust(), mOrigin.metadata(), pJob.mNow);
    if (!tState) {
        return tState.failure();
    }
    const Result<QList<MetadataFile>> tRoots =
        readRootChain(mFileSystem, metadataFolder(mFolder.path()), mOrigin.metadata(), mFolder.mRecord.mRoot,
                      tState->mRoot);
    if (!tRoots) {
        return tRoots.failure();
    }
    const QSet<QString> tNamed = namesOf(*tState, *tRoots);
    Failure tFailure = begin(tNamed);
    tFailure = tFailure ? tFailure : bringTargets(*tState, pJob, pReport);
    tFailure = tFailure ? tFailure : writeMetadata(*tState, *tRoots, pJob);
    if (tFailure) {
        return tFailure;
    }
    pReport->mPackages = tState->mPackageCount;
    pReport->mExpires = tState->mExpires;
    for (const QByteArray& tLeft : mFolder.incoming().names()) {
        (void)mFolder.incoming().remove(tLeft); // of a state that nobody sees any more
    }
    // The clock may be slow, and --prune relies on this time.
    mFolder.mRecord.setNamed(tNamed, std::max(pJob.mNow, tState->mSignedAt));
    mFolder.mRecord.mComplete = tuf::sha256(tState->mTimestamp.mBytes);
    mFolder.mRecord.mExpires = tState->mExpires;
    return mFolder.save();
}

// Before the first file, so that none is ever in the folder that the record does not know.
Failure Mirror::begin(const QSet<QString>& pNamed)
{
    MirrorRecord& tRecord = mFolder.mRecord;
    tRecord.mNamed += pNamed;
    tRecord.mUnnamed.removeIf([&](const auto& pEntry) { return pNamed.contains(pEntry.key()); });
    tRecord.mComplete.clear();
    return mFolder.save();
}

Failure Mirror::bringTargets(const WholeState& pState, const MirrorJob& pJob, MirrorReport* pReport)
{
    for (const SignedFile& tFile : pState.mTargets) {
        const QString tPath = mFolder.pathOf(tFile.mPath);
        if (Failure tFailure = mFolder.makeFolder(QFileInfo(tFile.mPath).path())) {
            return tFailure;
        }
        if (isThere(tPath, tFile.mLength) &&
            !(pJob.mCheck && fileMatches(tPath, tFile.mLength, tFile.mHashes))) {
            continue;
        }
        Arrival tArrival(mFileSystem, mFolder.incoming(), tFile);
        const Failure tFailure = tArrival.bring(mOrigin, tPath, pJob.mWait);
        pReport->mBytes += tArrival.transferred();
        if (tFailure) {
            return tFailure;
        }
        ++pReport->mFiles;
    }
    return syncFolders(pState);
}

// Also of files that were there: a killed run may have left their names unsynced.
Failure Mirror::syncFolders(const WholeState& pState)
{
    QSet<QString> tFolders{targetsFolder(mFolder.path())};
    for (const SignedFile& tFile : pState.mTargets) {
        QString tFolder = QFileInfo(mFolder.pathOf(tFile.mPath)).path();
        for (; !tFolders.contains(tFolder); tFolder = QFileInfo(tFolder).path()) {
            tFolders.insert(tFolder);
        }
    }
    for (const QString& tFolder : tFolders) {
        if (Failure tFailure = os::syncDir(mFileSystem, tFolder)) {
            return tFailure;
        }
    }
    return {};
}

Failure Mirror::writeMetadata(const WholeState& pState, const QList<MetadataFile>& pRoots,
                              const MirrorJob& pJob)
{
    // A machine takes all roots that it finds, and then wants a state that is valid under the last one. A
    // publisher who changes a key lets both keys sign for a while; then roots come last. Who does not makes a
    // moment unavoidable in which machines wait; then roots come first.
    QList<MetadataFile> tNewRoots;
    QByteArray tSeen;
    for (const MetadataFile& tRoot : pRoots) {
        const QString tPath = mFolder.pathOf(metadataPath(tRoot.mName));
        holds(tPath, tRoot.mBytes) ? void(tSeen = tRoot.mBytes) : tNewRoots.append(tRoot);
    }
    bool tLast = !tSeen.isEmpty() && isValidUnder(tSeen, pState, pJob.mNow);
    for (const MetadataFile& tRoot : tNewRoots) {
        tLast = tLast && isValidUnder(tRoot.mBytes, pState, pJob.mNow);
    }
    QList<MetadataFile> tFiles = pState.mLists + QList{pState.mTimestamp};
    tFiles = tLast ? tFiles + tNewRoots : tNewRoots + tFiles;
    for (const MetadataFile& tFile : std::as_const(tFiles)) {
        if (Failure tFailure = write(tFile)) {
            return tFailure;
        }
    }
    return {};
}

Failure Mirror::write(const MetadataFile& pFile)
{
    const QString tName = metadataPath(pFile.mName);
    const QString tPath = mFolder.pathOf(tName);
    const QString tFolder = QFileInfo(tName).path();
    if (Failure tFailure = mFolder.makeFolder(tFolder)) {
        return tFailure;
    }
    // A killed run may have left the name unsynced.
    return holds(tPath, pFile.mBytes) ? os::syncDir(mFileSystem, mFolder.pathOf(tFolder))
                                      : os::replaceFile(mFileSystem, tPath, pFile.mBytes, sFileMode);
}

// A link to such a file does not count.
bool Mirror::holds(const QString& pPath, const QByteArray& pBytes) const
{
    const os::Descriptor tFile = os::openRegular(mFileSystem, QFile::encodeName(pPath));
    return tFile.isOpen() &&
           os::readOpenFile(mFileSystem, tFile.fd(), pPath, pBytes.size()).valueOr(QByteArray()) == pBytes;
}

} // namespace tarn::vkpublish

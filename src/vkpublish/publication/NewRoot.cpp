#include "publication/NewRoot.h"

#include "keys/KeyFolder.h"
#include "publication/Drafts.h"
#include "publication/Layout.h"

#include "os/FileTools.h"

using namespace Qt::StringLiterals;

namespace tarn::vkpublish {

namespace {

constexpr mode_t sFileMode = 0644;
constexpr qint64 sMaxMetadata = 16 * 1024 * 1024;

bool isPublished(const Record& pRecord, const Draft& pDraft)
{
    tuf::Root tRoot;
    return !tuf::parseRoot(pRecord.mRoot, &tRoot) && tRoot.mMessage == pDraft.mPayload;
}

Failure parseFile(const QString& pRole, const QByteArray& pFile, tuf::Signed* pTo)
{
    tuf::Targets tTargets;
    tuf::Snapshot tSnapshot;
    const bool tIsTargets = pRole == tuf::sTargets;
    Failure tFailure =
        tIsTargets ? tuf::parseTargets(pFile, pRole, &tTargets) : tuf::parseSnapshot(pFile, &tSnapshot);
    *pTo = tIsTargets ? tuf::Signed(tTargets) : tuf::Signed(tSnapshot);
    return tFailure;
}

bool isSigned(os::FileSystem& pFileSystem, const KeyFolder& pKeys, const QString& pRepository,
              const QString& pRole, const PublishedFile& pFile, const QDateTime& pNow)
{
    const QString tPath = versionedPath(pRepository, pRole, pFile.mMeta["version"_L1].toInteger());
    const Result<QByteArray> tFile = os::readFile(pFileSystem, tPath, sMaxMetadata);
    tuf::Signed tSigned;
    return tFile && !parseFile(pRole, *tFile, &tSigned) &&
           SignatureNeeds::of(pKeys, pRole, pNow).areMet(tSigned);
}

QString rootPath(const QString& pRepository, const QByteArray& pRoot)
{
    tuf::Root tRoot;
    (void)tuf::parseRoot(pRoot, &tRoot); // it is the record's
    return versionedPath(pRepository, tuf::sRoot, tRoot.mVersion);
}

bool isWritten(os::FileSystem& pFileSystem, const QString& pRepository, const QByteArray& pRoot)
{
    return os::readFile(pFileSystem, rootPath(pRepository, pRoot), sMaxMetadata).valueOr({}) == pRoot;
}

} // namespace

Result<std::optional<Draft>> completeRoot(const KeyFolder& pKeys, const QDateTime& pNow, QStringList* pNotes)
{
    Result<std::optional<Draft>> tDraft = pKeys.draft(tuf::sRoot);
    if (!tDraft || !*tDraft || isPublished(pKeys.mRecord, **tDraft)) {
        return tDraft ? std::optional<Draft>() : tDraft;
    }
    if (Failure tUnfit = checkFit(pKeys, **tDraft, {}, pNow)) {
        pNotes->append(tUnfit.mText);
        return std::optional<Draft>();
    }
    const SignatureNeeds tNeeds = SignatureNeeds::ofRoot(pKeys, unsignedFile((*tDraft)->mPayload));
    const int tMissing = tNeeds.missing((*tDraft)->toSigned(), pKeys.here(tNeeds.keyIds()));
    if (tMissing > 0) {
        pNotes->append(
            u"The draft of the root waits, %1: see \"vkpublish show DIR root\""_s.arg(missingText(tMissing)));
        return std::optional<Draft>();
    }
    if (Failure tFailure = signHere(pKeys, tNeeds, &**tDraft)) {
        return tFailure;
    }
    return tDraft;
}

void dropUnsigned(os::FileSystem& pFileSystem, KeyFolder* pKeys, const QString& pRepository,
                  const QDateTime& pNow)
{
    Record& tRecord = pKeys->mRecord;
    if (!isSigned(pFileSystem, *pKeys, pRepository, tuf::sTargets, tRecord.mPublishedTargetsFile, pNow)) {
        tRecord.mPublishedTargetsFile = PublishedFile();
    }
    if (!isSigned(pFileSystem, *pKeys, pRepository, tuf::sSnapshot, tRecord.mPublishedSnapshot, pNow)) {
        tRecord.mPublishedSnapshot = PublishedFile();
    }
}

Failure adoptRoot(os::FileSystem& pFileSystem, KeyFolder* pKeys, const QString& pRepository,
                  const Draft& pRoot, const QDateTime& pNow, const QDateTime& pUntil)
{
    Record& tRecord = pKeys->mRecord;
    const QByteArray tReplaced = tRecord.mRoot;
    if (Failure tFailure = pKeys->replaceRoot(pRoot.file(), pUntil)) {
        return tFailure;
    }
    // Only the record has it.
    if (!isWritten(pFileSystem, pRepository, tReplaced) &&
        (tRecord.mRetiringRoots.isEmpty() || tRecord.mRetiringRoots.last().mRoot != tReplaced)) {
        tRecord.mRetiringRoots.append({tReplaced, pUntil});
    }
    dropUnsigned(pFileSystem, pKeys, pRepository, pNow);
    return {};
}

Failure writeRoots(os::FileSystem& pFileSystem, const QString& pRepository, const QDateTime& pNow,
                   Record* pRecord)
{
    QList<QByteArray> tRoots;
    for (const RetiringRoot& tReplaced : pRecord->mRetiringRoots) {
        tRoots.append(tReplaced.mRoot);
    }
    for (const QByteArray& tRoot : tRoots << pRecord->mRoot) {
        if (isWritten(pFileSystem, pRepository, tRoot)) {
            continue;
        }
        if (Failure tFailure = os::replaceFile(pFileSystem, rootPath(pRepository, tRoot), tRoot, sFileMode)) {
            return tFailure;
        }
    }
    pRecord->mRetiringRoots.removeIf([&](const RetiringRoot& pOld) { return pOld.mUntil <= pNow; });
    return {};
}

Failure dropPublishedDrafts(KeyFolder* pKeys)
{
    const Record& tRecord = pKeys->mRecord;
    const Result<std::optional<Draft>> tRoot = pKeys->draft(tuf::sRoot);
    const Result<std::optional<Draft>> tTargets = pKeys->draft(tuf::sTargets);
    if (!tRoot || !tTargets) {
        return tRoot ? tTargets.failure() : tRoot.failure();
    }
    const qint64 tVersion = tRecord.mPublishedTargetsFile.mMeta["version"_L1].toInteger();
    if (*tTargets && (*tTargets)->toSigned().mVersion <= tVersion) {
        if (Failure tFailure = pKeys->dropDraft(tuf::sTargets)) {
            return tFailure;
        }
    }
    return *tRoot && isPublished(tRecord, **tRoot) ? pKeys->dropDraft(tuf::sRoot) : Failure();
}

} // namespace tarn::vkpublish

#include "publication/Recovery.h"

#include "keys/KeyFolder.h"
#include "keys/Roles.h"
#include "keys/RootDocument.h"
#include "network/MetadataSource.h"
#include "publication/Expiry.h"
#include "publication/Layout.h"
#include "publication/RepositoryState.h"
#include "publication/Verification.h"

#include "os/FileSystem.h"
#include "tuf/Metadata.h"
#include "tuf/TrustedSet.h"

#include <QtCore/QJsonDocument>

using namespace Qt::StringLiterals;

namespace tarn::vkpublish {

namespace {

// Compared with a time this early, nothing has expired.
const QDateTime sBeforeAll = QDateTime::fromSecsSinceEpoch(0);

QJsonObject signedOf(const QByteArray& pFile)
{
    return QJsonDocument::fromJson(pFile)["signed"_L1].toObject();
}

// The entry for a file in the file above it.
PublishedFile published(const QByteArray& pAbove, const QString& pRole, const RepositoryState& pState)
{
    return {signedOf(pAbove)["meta"_L1][pRole + ".json"_L1].toObject(), pState.mExpires[pRole]};
}

// The state satisfies them, too, so machines that have one of them may be using it.
QList<RetiringRoot> replacedRoots(const QByteArray& pFirst, const RepositoryState& pState)
{
    QList<RetiringRoot> tReplaced;
    for (const QByteArray& tRoot : QList<QByteArray>{pFirst} + pState.mNewRoots) {
        tuf::TrustedSet tTrusted(sBeforeAll);
        bool tIsSame = false;
        if (tRoot != pState.mRoot && !tTrusted.setRoot(tRoot) &&
            !tTrusted.addTimestamp(pState.mTimestamp, &tIsSame) && !tTrusted.addSnapshot(pState.mSnapshot) &&
            !tTrusted.addTargets(pState.mTargets, tuf::sTargets, tuf::sRoot)) {
            tReplaced.append({tRoot, pState.mExpires[tuf::sTimestamp]});
        }
    }
    return tReplaced;
}

// The roles for which the folder has too few keys. pHas: those for which it has some.
QStringList missingRoles(const KeyFolder& pKeys, const RootDocument& pRoot, QStringList* pHas)
{
    QStringList tMissing;
    for (const QString& tRole : roleNames()) {
        if (!pKeys.here(pRoot.keyIds(tRole)).isEmpty()) {
            pHas->append(tRole);
        }
        if (!pKeys.canSign(pRoot, tRole)) {
            tMissing.append(tRole);
        }
    }
    return tMissing;
}

Failure findKeys(const QByteArray& pFirst, const RepositoryState& pState, RecordUse pUse, KeyFolder* pKeys,
                 QStringList* pMissing)
{
    const Result<RootDocument> tRoot = RootDocument::read(pState.mRoot);
    if (!tRoot) {
        return tRoot.failure();
    }
    if (Failure tFailure = pKeys->beginWith(pState.mRoot, replacedRoots(pFirst, pState))) {
        return tFailure;
    }
    QStringList tHas;
    *pMissing = missingRoles(*pKeys, *tRoot, &tHas);
    if (pUse == RecordUse::Publishing) {
        return {};
    }
    for (const QString& tRole : {tuf::sRoot, tuf::sTargets}) {
        if (tHas.contains(tRole)) {
            return Failure::content(
                u"%1 has a key of the role %2, which a folder for refreshing must not have"_s.arg(
                    pKeys->path(), tRole));
        }
    }
    for (const QString& tRole : {tuf::sSnapshot, tuf::sTimestamp}) {
        if (pMissing->contains(tRole)) {
            return Failure::content(u"%1 does not have the key of the role %2"_s.arg(pKeys->path(), tRole));
        }
    }
    return {};
}

void verify(const QString& pRepository, const QByteArray& pRoot, Recovered* pTo)
{
    const VerificationResult tResult = verifyRepository(pRepository, pRoot, sBeforeAll);
    pTo->mProblems = tResult.mProblems;
    for (const QString& tPath : tResult.mUnused) {
        if (tPath.startsWith(targetsFolder(pRepository))) {
            pTo->mUnnamed.append(tPath.mid(pRepository.size() + 1));
        }
    }
}

} // namespace

Failure recoverRecord(os::FileSystem& pFileSystem, const QString& pRepository, const QByteArray& pRoot,
                      RecordUse pUse, KeyFolder* pKeys, Recovered* pTo)
{
    const bool tIsForRefresh = pUse == RecordUse::RefreshingOnly;
    FolderFetcher tFolder(pFileSystem, metadataFolder(pRepository));
    RepositoryState tState;
    if (Failure tFailure = readWithTargets(tFolder, pRoot, &tState)) {
        return tFailure;
    }
    if (!tIsForRefresh) {
        verify(pRepository, pRoot, pTo);
    }
    if (!pTo->mProblems.isEmpty()) {
        return {};
    }
    if (Failure tFailure = findKeys(pRoot, tState, pUse, pKeys, &pTo->mMissingRoles)) {
        return tFailure;
    }
    Record& tRecord = pKeys->mRecord;
    tRecord.mVersions = tState.mVersions;
    const PublishedFile tTargets = published(tState.mSnapshot, tuf::sTargets, tState);
    tRecord.mPublishedSnapshot = published(tState.mTimestamp, tuf::sSnapshot, tState);
    tRecord.mTimestampExpires = tState.mExpires[tuf::sTimestamp];
    if (tIsForRefresh) {
        tRecord.mCarriedTargets = tTargets;
    } else {
        tRecord.mPublishedTargetsFile = tTargets;
        tRecord.mTargets = signedOf(tState.mTargets)["targets"_L1].toObject();
        tRecord.mPublishedTargets = tRecord.mTargets;
        pTo->mPackages = tRecord.mTargets.size();
    }
    pTo->mExpires = firstExpiry(tState);
    return {};
}

} // namespace tarn::vkpublish

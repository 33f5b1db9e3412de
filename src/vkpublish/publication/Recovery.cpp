#include "publication/Recovery.h"

#include "keys/KeyFolder.h"
#include "keys/Roles.h"
#include "network/MetadataSource.h"
#include "publication/Expiry.h"
#include "publication/Layout.h"
#include "publication/RepositoryState.h"
#include "publication/Verification.h"

#include "os/FileSystem.h"
#include "tuf/Metadata.h"

#include <QtCore/QJsonArray>
#include <QtCore/QJsonDocument>

using namespace Qt::StringLiterals;

namespace tarn::vkpublish {

namespace {

// Compared with a time this early, nothing has expired.
const QDateTime sBeforeAll = QDateTime::fromSecsSinceEpoch(0);

QJsonObject signedPart(const QByteArray& pFile)
{
    return QJsonDocument::fromJson(pFile)["signed"_L1].toObject();
}

QStringList signersOf(const QByteArray& pFile)
{
    QStringList tIds;
    const QJsonArray tSignatures = QJsonDocument::fromJson(pFile)["signatures"_L1].toArray();
    for (const QJsonValue tSignature : tSignatures) {
        tIds.append(tSignature["keyid"_L1].toString());
    }
    return tIds;
}

// The entry for a file in the file above it.
PublishedFile published(const QByteArray& pAbove, const QString& pRole, const RepositoryState& pState)
{
    return {signedPart(pAbove)["meta"_L1][pRole + ".json"_L1].toObject(), pState.mExpires[pRole]};
}

// A key that has signed the state, but is not in the root any more, signs until that state has expired.
Failure findRetiring(const RepositoryState& pState, KeyFolder* pKeys)
{
    tuf::Root tRoot;
    if (Failure tFailure = tuf::parseRoot(pState.mRoot, &tRoot)) {
        return tFailure;
    }
    for (const auto& [tRole, tFile] :
         {std::pair(tuf::sTargets, pState.mTargets), std::pair(tuf::sSnapshot, pState.mSnapshot),
          std::pair(tuf::sTimestamp, pState.mTimestamp)}) {
        QStringList tOld = signersOf(tFile);
        const QStringList tCurrent = tRoot.mRoles[tRole].mKeyIds;
        tOld.removeIf([&](const QString& pId) { return tCurrent.contains(pId); });
        const QString tName = pKeys->findKeyFile(tRole, tOld);
        if (!tName.isEmpty()) {
            pKeys->mRecord.mRetiring.append({tRole, tName, pState.mExpires[tuf::sTimestamp]});
        }
    }
    return {};
}

Failure refuseOtherKeys(const KeyFolder& pKeys)
{
    for (const QString& tRole : {tuf::sRoot, tuf::sTargets}) {
        if (pKeys.mRecord.mKeyFiles.contains(tRole)) {
            return Failure::content(
                u"%1/%2 is a key of the role %3, which a folder for refreshing must not have"_s.arg(
                    pKeys.path(), pKeys.mRecord.mKeyFiles[tRole], tRole));
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
    const QStringList tNeeded = tIsForRefresh ? QStringList{tuf::sSnapshot, tuf::sTimestamp} : QStringList();
    if (Failure tFailure = pKeys->takeRoot(tState.mRoot, tNeeded)) {
        return tFailure;
    }
    if (Failure tFailure = tIsForRefresh ? refuseOtherKeys(*pKeys) : findRetiring(tState, pKeys)) {
        return tFailure;
    }
    Record& tRecord = pKeys->mRecord;
    for (const QString& tRole : roleNames()) {
        if (!tRecord.mKeyFiles.contains(tRole)) {
            pTo->mMissingRoles.append(tRole);
        }
    }
    tRecord.mVersions = tState.mVersions;
    const PublishedFile tTargets = published(tState.mSnapshot, tuf::sTargets, tState);
    tRecord.mPublishedSnapshot = published(tState.mTimestamp, tuf::sSnapshot, tState);
    tRecord.mTimestampExpires = tState.mExpires[tuf::sTimestamp];
    if (tIsForRefresh) {
        tRecord.mCarriedTargets = tTargets;
    } else {
        tRecord.mPublishedTargetsFile = tTargets;
        tRecord.mTargets = signedPart(tState.mTargets)["targets"_L1].toObject();
        tRecord.mPublishedTargets = tRecord.mTargets;
        pTo->mPackages = tRecord.mTargets.size();
    }
    pTo->mExpires = firstExpiry(tState);
    return {};
}

} // namespace tarn::vkpublish

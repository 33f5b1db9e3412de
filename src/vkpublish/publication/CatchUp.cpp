#include "publication/CatchUp.h"

#include "keys/KeyFolder.h"
#include "keys/Roles.h"
#include "network/MetadataSource.h"
#include "publication/Layout.h"
#include "publication/NewRoot.h"
#include "publication/RepositoryState.h"

#include "os/FileTools.h"
#include "tuf/Metadata.h"

#include <QtCore/QJsonDocument>

using namespace Qt::StringLiterals;

namespace tarn::vkpublish {

namespace {

constexpr mode_t sFileMode = 0644;
// No backup is that old. A larger lead means that somebody stole a key and tries to exhaust the version
// numbers.
constexpr qint64 sMaxLead = 1'000'000;

bool isFarAhead(const Record& pRecord, const RepositoryState& pSeen, const QString& pRole)
{
    return pSeen.mVersions.value(pRole) - pRecord.mVersions.value(pRole) > sMaxLead;
}

// A repository folder with the root of the record, which is missing if a rotate-key was interrupted.
class WithRootOfRecord : public FolderFetcher
{
public:
    WithRootOfRecord(os::FileSystem& pFileSystem, const QString& pRepository, const Record& pRecord)
        : FolderFetcher(pFileSystem, metadataFolder(pRepository)),
          mName(versionedName(tuf::sRoot, pRecord.mVersions[tuf::sRoot])), mRoot(pRecord.mRoot)
    {
    }

    Failure fetch(const QString& pPath, qint64 pMaxLength, QByteArray* pTo) override
    {
        if (pPath != mName) {
            return FolderFetcher::fetch(pPath, pMaxLength, pTo);
        }
        *pTo = mRoot;
        return {};
    }

private:
    QString mName;
    QByteArray mRoot;
};

// The first root, if the repository has it and its roots lead to that of the record: the root online may be
// older than that. Else the root of the record.
QByteArray rootToStartFrom(os::FileSystem& pFileSystem, const QString& pRepository, const Record& pRecord)
{
    WithRootOfRecord tFolder(pFileSystem, pRepository, pRecord);
    QByteArray tFirst;
    RepositoryState tState;
    if (!tFolder.fetch(versionedName(tuf::sRoot, 1), tuf::Limits().mRootLength, &tFirst)) {
        (void)readState(tFolder, tFirst, &tState); // only its roots matter
    }
    return tState.mNewRoots.contains(pRecord.mRoot) ? tFirst : pRecord.mRoot;
}

// Keeps only the roots after that of the record. False if the repository has another root of that version.
bool dropKnownRoots(const Record& pRecord, RepositoryState* pSeen)
{
    const qint64 tKnown = pRecord.mVersions[tuf::sRoot];
    qint64 tVersion = pSeen->mVersions[tuf::sRoot] - pSeen->mNewRoots.size();
    while (++tVersion <= tKnown && !pSeen->mNewRoots.isEmpty()) {
        if (pSeen->mNewRoots.takeFirst() != pRecord.mRoot && tVersion == tKnown) {
            return false;
        }
    }
    return true;
}

Failure writeRoots(os::FileSystem& pFileSystem, const RepositoryState& pSeen, const QString& pRepository)
{
    qint64 tVersion = pSeen.mVersions[tuf::sRoot] - pSeen.mNewRoots.size();
    for (const QByteArray& tRoot : pSeen.mNewRoots) {
        const QString tPath = versionedPath(pRepository, tuf::sRoot, ++tVersion);
        if (Failure tFailure = os::replaceFile(pFileSystem, tPath, tRoot, sFileMode)) {
            return tFailure;
        }
    }
    return {};
}

// The list of packages of this version in the repository, if it has what the record has: then only its expiry
// was renewed. Whether it is signed is to be checked.
PublishedFile sameList(os::FileSystem& pFileSystem, const QString& pRepository, const Record& pRecord,
                       qint64 pVersion)
{
    const QString tPath = versionedPath(pRepository, tuf::sTargets, pVersion);
    const QByteArray tFile = os::readFile(pFileSystem, tPath, tuf::Limits().mTargetsLength).valueOr({});
    const QJsonObject tTargets = QJsonDocument::fromJson(tFile)["signed"_L1]["targets"_L1].toObject();
    tuf::Targets tList;
    return !tuf::parseTargets(tFile, tuf::sTargets, &tList) &&
                   TargetList(tTargets) == pRecord.mPublishedTargets
               ? PublishedFile{metaOf(pVersion, tFile), tList.mExpires}
               : PublishedFile();
}

} // namespace

Failure raiseVersions(os::FileSystem& pFileSystem, const QString& pRepository, KeyFolder* pKeys,
                      const RepositoryState& pSeen, bool* pRaised)
{
    Record& tRecord = pKeys->mRecord;
    const bool tNewRoot = !pSeen.mNewRoots.isEmpty();
    bool tNewTargets = false;
    bool tNewSnapshot = false;
    if (tNewRoot) {
        if (Failure tFailure = pKeys->takeRoot(pSeen.mNewRoots.last())) {
            return tFailure;
        }
    }
    for (auto tIt = pSeen.mVersions.begin(); tIt != pSeen.mVersions.end(); ++tIt) {
        if (tIt.value() > tRecord.mVersions[tIt.key()] && !isFarAhead(tRecord, pSeen, tIt.key())) {
            tRecord.mVersions[tIt.key()] = tIt.value();
            tNewTargets = tNewTargets || tIt.key() == tuf::sTargets;
            tNewSnapshot = tNewSnapshot || tIt.key() != tuf::sTimestamp;
        }
    }
    if (tNewTargets) {
        tRecord.mPublishedTargetsFile =
            sameList(pFileSystem, pRepository, tRecord, tRecord.mVersions[tuf::sTargets]);
    }
    if (tNewSnapshot) {
        tRecord.mPublishedSnapshot = PublishedFile();
    }
    if (tNewRoot || tNewTargets) {
        dropUnsigned(pFileSystem, pKeys, pRepository, QDateTime::currentDateTimeUtc());
        *pRaised = true;
    }
    return {};
}

Failure checkLead(const Record& pRecord, const RepositoryState& pSeen)
{
    for (const QString& tRole : pSeen.mVersions.keys()) {
        if (isFarAhead(pRecord, pSeen, tRole)) {
            return Failure::content(
                u"Version %1 of the %2 metadata was not signed by this publisher: its key "
                "was stolen. Replace it: vkpublish rotate-key DIR %2"_s.arg(pSeen.mVersions[tRole])
                    .arg(tRole));
        }
    }
    return {};
}

Failure takeOver(os::FileSystem& pFileSystem, tuf::Fetcher& pFrom, const QString& pRepository,
                 KeyFolder* pKeys, bool* pRaised)
{
    RepositoryState tSeen;
    const QByteArray tRoot = rootToStartFrom(pFileSystem, pRepository, pKeys->mRecord);
    if (Failure tFailure = readState(pFrom, tRoot, &tSeen)) {
        return tFailure;
    }
    if (!dropKnownRoots(pKeys->mRecord, &tSeen)) {
        return Failure::content(u"Version %1 of the root there differs from the one in the record: a key was "
                                "replaced twice, from the same backup. Restore the later key folder"_s.arg(
                                    pKeys->mRecord.mVersions[tuf::sRoot]));
    }
    if (Failure tFailure = checkLead(pKeys->mRecord, tSeen)) {
        return tFailure;
    }
    if (Failure tFailure = writeRoots(pFileSystem, tSeen, pRepository)) {
        return tFailure;
    }
    return raiseVersions(pFileSystem, pRepository, pKeys, tSeen, pRaised);
}

} // namespace tarn::vkpublish

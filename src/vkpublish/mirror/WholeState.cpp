#include "mirror/WholeState.h"

#include "publication/Layout.h"

#include "tuf/DelegationSearch.h"
#include "tuf/MetadataStore.h"
#include "tuf/Names.h"
#include "tuf/TrustedSet.h"

#include <QtCore/QMap>
#include <QtCore/QUrl>

#include <algorithm>

using namespace Qt::StringLiterals;

namespace tarn::vkpublish {

namespace {

// The path of a file below its folder; none for one that would lead anywhere else.
std::optional<QString> plainPath(const QString& pEncoded)
{
    const QString tPath = QUrl::fromPercentEncoding(pEncoded.toLatin1());
    const QStringList tParts = tPath.split(u'/');
    const bool tIsPlain = std::none_of(tParts.begin(), tParts.end(), [](const QString& pPart) {
        return pPart.isEmpty() || pPart == "."_L1 || pPart == ".."_L1 || pPart.contains(QChar(0)) ||
               pPart.contains(QChar::ReplacementCharacter);
    });
    return tIsPlain ? std::optional(tPath) : std::nullopt;
}

Failure unusable(const QString& pName)
{
    return Failure::untrusted(u"\"%1\" is not the name of a file in a repository"_s.arg(pName));
}

// The state that tuf::Updater has just left in its folder.
class Reader
{
public:
    Reader(os::FileSystem& pFileSystem, const QString& pTrust) : mStore(pFileSystem, pTrust) {}

    Failure read();
    Failure addTargets(const QList<tuf::TargetFile>& pTargets);

    WholeState mState;

private:
    Failure load(const QString& pRole, qint64 pLimit, QByteArray* pTo)
    {
        const Result<QByteArray> tFile = mStore.load(pRole, pLimit);
        *pTo = tFile.valueOr({});
        return tFile.failure();
    }
    Failure readRoles();
    Failure addList(const QString& pRole, qint64 pVersion, const QByteArray& pBytes);
    Failure addFile(const QString& pFetchPath, qint64 pLength, const tuf::HashList& pHashes);

    tuf::MetadataStore mStore;
    tuf::Limits mLimits;
    QMap<QString, tuf::MetaFile> mVersions;
};

Failure Reader::read()
{
    tuf::Root tRoot;
    tuf::Timestamp tTimestamp;
    tuf::Snapshot tSnapshot;
    QByteArray tSnapshotFile;
    mState.mTimestamp.mName = u"timestamp.json"_s;
    Failure tFailure = load(tuf::sRoot, mLimits.mRootLength, &mState.mRoot);
    tFailure = tFailure ? tFailure : tuf::parseRoot(mState.mRoot, &tRoot);
    tFailure =
        tFailure ? tFailure : load(tuf::sTimestamp, mLimits.mTimestampLength, &mState.mTimestamp.mBytes);
    tFailure = tFailure ? tFailure : tuf::parseTimestamp(mState.mTimestamp.mBytes, &tTimestamp);
    tFailure = tFailure ? tFailure : load(tuf::sSnapshot, mLimits.mSnapshotLength, &tSnapshotFile);
    tFailure = tFailure ? tFailure : tuf::parseSnapshot(tSnapshotFile, &tSnapshot);
    if (tFailure) {
        return tFailure;
    }
    if (!tRoot.mConsistentSnapshot) {
        return Failure::content(
            u"The repository can't be mirrored: its files have no versions in their names, so "
            "machines would see some of the old state and some of the new one"_s);
    }
    mState.mSignedAt = tTimestamp.mSignedAt;
    mState.mExpires = std::min({tRoot.mExpires, tTimestamp.mExpires, tSnapshot.mExpires});
    mVersions = tSnapshot.mRoles;
    tFailure = readRoles();
    return tFailure ? tFailure : addList(tuf::sSnapshot, tSnapshot.mVersion, tSnapshotFile);
}

// All roles that targets lead to, those that others delegate to first.
Failure Reader::readRoles()
{
    QStringList tRoles{tuf::sTargets};
    QList<MetadataFile> tFound;
    for (qsizetype i = 0; i < tRoles.size(); ++i) {
        QByteArray tFile;
        tuf::Targets tTargets;
        Failure tFailure = load(tRoles[i], mLimits.mTargetsLength, &tFile);
        tFailure = tFailure ? tFailure : tuf::parseTargets(tFile, tRoles[i], &tTargets);
        if (tFailure) {
            return tFailure;
        }
        tFound.append({tRoles[i], tFile});
        mState.mExpires = std::min(mState.mExpires, tTargets.mExpires);
        for (const QString& tName :
             tuf::delegatedRoleNames(tTargets.mDelegations, mLimits.mMaxDelegations + 1)) {
            if (!tRoles.contains(tName)) {
                tRoles.append(tName);
            }
        }
    }
    for (auto tIt = tFound.crbegin(); tIt != tFound.crend(); ++tIt) {
        if (Failure tFailure = addList(tIt->mName, mVersions.value(tIt->mName).mVersion, tIt->mBytes)) {
            return tFailure;
        }
    }
    return {};
}

Failure Reader::addList(const QString& pRole, qint64 pVersion, const QByteArray& pBytes)
{
    const std::optional<QString> tName = plainPath(versionedName(tuf::encodeName(pRole), pVersion));
    if (!tName) {
        return unusable(pRole);
    }
    mState.mLists.append({*tName, pBytes});
    return {};
}

Failure Reader::addFile(const QString& pFetchPath, qint64 pLength, const tuf::HashList& pHashes)
{
    const std::optional<QString> tPath = plainPath(pFetchPath);
    if (!tPath) {
        return unusable(pFetchPath);
    }
    mState.mTargets.append({targetsFolder({}).mid(1) + u'/' + *tPath, pFetchPath, pLength, pHashes});
    return {};
}

Failure Reader::addTargets(const QList<tuf::TargetFile>& pTargets)
{
    mState.mPackageCount = static_cast<int>(pTargets.size());
    for (const tuf::TargetFile& tTarget : pTargets) {
        if (Failure tFailure = addFile(tTarget.mFetchPath, tTarget.mLength, tTarget.mHashes)) {
            return tFailure;
        }
        for (const TargetsFile& tFile : sideFiles(QJsonObject{{u"custom"_s, tTarget.mCustom}})) {
            if (Failure tFailure = addFile(tFile.mName, tFile.mLength, {tFile.mHash})) {
                return tFailure;
            }
        }
    }
    return {};
}

} // namespace

Result<WholeState> readWholeState(os::FileSystem& pFileSystem, const QString& pTrust, tuf::Fetcher& pFrom,
                                  const QDateTime& pNow)
{
    tuf::Updater tUpdater(pFileSystem, pTrust, pFrom, pNow);
    QList<tuf::TargetFile> tTargets;
    Reader tReader(pFileSystem, pTrust);
    Failure tFailure = tUpdater.refresh();
    tFailure = tFailure ? tFailure : tUpdater.allTargets(&tTargets);
    tFailure = tFailure ? tFailure : tReader.read();
    tFailure = tFailure ? tFailure : tReader.addTargets(tTargets);
    if (tFailure) {
        return tFailure;
    }
    return tReader.mState;
}

bool isValidUnder(const QByteArray& pRoot, const WholeState& pState, const QDateTime& pNow)
{
    tuf::TrustedSet tTrusted(pNow);
    bool tSame = false;
    // The last two: targets and snapshot.
    const QByteArray& tSnapshot = pState.mLists.last().mBytes;
    const QByteArray& tTargets = pState.mLists.at(pState.mLists.size() - 2).mBytes;
    return !tTrusted.setRoot(pRoot) && !tTrusted.addTimestamp(pState.mTimestamp.mBytes, &tSame) &&
           !tTrusted.addSnapshot(tSnapshot) && !tTrusted.addTargets(tTargets, tuf::sTargets, tuf::sRoot);
}

} // namespace tarn::vkpublish

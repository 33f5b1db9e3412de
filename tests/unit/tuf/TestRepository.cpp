#include "TestRepository.h"

#include "tuf/Hashes.h"
#include "tuf/Names.h"

#include <QtCore/QJsonArray>

using namespace tarn::tuf;
using tarn::Failure;

namespace {

QJsonObject hashesOf(const QByteArray& pFile)
{
    return {{q("sha256"), q(sha256(pFile))}};
}

bool isTargets(const QString& pRole)
{
    return pRole != sRootRole && pRole != sTimestampRole && pRole != sSnapshotRole;
}

QJsonObject keysJson(const QList<TestRepository::Key>& pKeys)
{
    QJsonObject tKeys;
    for (const TestRepository::Key& tKey : pKeys) {
        tKeys.insert(tKey.id(), tKey.publicJson());
    }
    return tKeys;
}

QJsonObject roleJson(const TestRepository::Role& pRole)
{
    return {{q("keyids"), QJsonArray::fromStringList(keysJson(pRole.mKeys).keys())},
            {q("threshold"), pRole.mThreshold}};
}

} // namespace

TestRepository::TestRepository(const QDateTime& pNow)
{
    for (const QString& tRole : {sRootRole, sTimestampRole, sSnapshotRole, sTargetsRole}) {
        mRoles[tRole].mKeys = {newKey()};
        mRoles[tRole].mExpires = pNow.addDays(30);
    }
    mRoles[sRootRole].mExpires = pNow.addDays(365);
    mRoles[sTargetsRole].mTargets.insert(q("hello"), "Hello\n");
    publishRoot();
    publish();
}

QString TestRepository::fileName(const QString& pRole) const
{
    const QString tName = encodeName(pRole) + q(".json");
    const bool tVersioned = pRole == sRootRole || (mConsistentSnapshot && pRole != sTimestampRole);
    return tVersioned ? q("%1.%2").arg(mRoles[pRole].mVersion).arg(tName) : tName;
}

QJsonObject TestRepository::signedPart(const QString& pRole) const
{
    return {{q("_type"), isTargets(pRole) ? sTargetsRole : pRole},
            {q("spec_version"), q("1.0.31")},
            {q("version"), mRoles[pRole].mVersion},
            {q("expires"), mRoles[pRole].mExpires.toString(Qt::ISODate)}};
}

QJsonObject TestRepository::rootJson() const
{
    QJsonObject tSigned = signedPart(sRootRole);
    QList<Key> tKeys;
    QJsonObject tRoles;
    for (const QString& tRole : {sRootRole, sTimestampRole, sSnapshotRole, sTargetsRole}) {
        tKeys += mRoles[tRole].mKeys;
        tRoles.insert(tRole, roleJson(mRoles[tRole]));
    }
    tSigned.insert(q("consistent_snapshot"), mConsistentSnapshot);
    tSigned.insert(q("keys"), keysJson(tKeys));
    tSigned.insert(q("roles"), tRoles);
    return tSigned;
}

QJsonObject TestRepository::targetsJson(const QString& pRole) const
{
    QJsonObject tTargets;
    const Role& tRole = *mRoles.constFind(pRole);
    for (auto tIt = tRole.mTargets.begin(); tIt != tRole.mTargets.end(); ++tIt) {
        QJsonObject tTarget{{q("length"), tIt->size()},
                            {q("hashes"), hashesOf(*tIt)},
                            {q("custom"), QJsonObject{{q("by"), pRole}}}};
        const QJsonObject tStated = mStated.value(tIt.key());
        for (const QString& tName : tStated.keys()) {
            tTarget.insert(tName, tStated[tName]);
        }
        tTargets.insert(tIt.key(), tTarget);
    }
    QJsonObject tSigned = signedPart(pRole);
    tSigned.insert(q("targets"), tTargets);
    if (!tRole.mDelegations.isEmpty()) {
        tSigned.insert(q("delegations"), tRole.mDelegations);
    }
    return tSigned;
}

QJsonObject TestRepository::metaOf(const QString& pRole) const
{
    QJsonObject tMeta{{q("version"), mRoles[pRole].mVersion}};
    if (mHashesInMeta) {
        const QByteArray tFile = mFiles.value(fileName(pRole));
        tMeta.insert(q("length"), tFile.size());
        tMeta.insert(q("hashes"), hashesOf(tFile));
    }
    return tMeta;
}

QJsonObject TestRepository::snapshotJson() const
{
    QJsonObject tMeta;
    for (const QString& tRole : mRoles.keys()) {
        if (isTargets(tRole)) {
            tMeta.insert(tRole + q(".json"), metaOf(tRole));
        }
    }
    QJsonObject tSigned = signedPart(sSnapshotRole);
    tSigned.insert(q("meta"), tMeta);
    return tSigned;
}

QJsonObject TestRepository::timestampJson() const
{
    QJsonObject tSigned = signedPart(sTimestampRole);
    tSigned.insert(q("meta"), QJsonObject{{q("snapshot.json"), metaOf(sSnapshotRole)}});
    if (mSignedAt.isValid()) {
        tSigned.insert(q("signed_at"), mSignedAt.toString(Qt::ISODate));
    }
    if (mStatedTargets != 0) {
        tSigned.insert(q("targets_version"), mStatedTargets);
    }
    return tSigned;
}

void TestRepository::serve(const QString& pRole, const QByteArray& pFile)
{
    mFiles[fileName(pRole)] = pFile;
}

QByteArray TestRepository::sign(const QString& pRole, const QJsonObject& pSigned) const
{
    return signMetadata(pSigned, mRoles[pRole].mKeys);
}

void TestRepository::publishRole(const QString& pRole, const QList<Key>& pAlsoSignedBy)
{
    ++mRoles[pRole].mVersion;
    const QJsonObject tSigned = pRole == sRootRole        ? rootJson()
                                : pRole == sSnapshotRole  ? snapshotJson()
                                : pRole == sTimestampRole ? timestampJson()
                                                          : targetsJson(pRole);
    serve(pRole, signMetadata(tSigned, mRoles[pRole].mKeys + pAlsoSignedBy));
}

void TestRepository::publish()
{
    for (const QString& tRole : {sTargetsRole, sSnapshotRole, sTimestampRole}) {
        publishRole(tRole);
    }
}

void TestRepository::delegate(const QString& pFrom, const QString& pTo, const QStringList& pPaths,
                              bool pTerminating)
{
    if (!mRoles.contains(pTo)) {
        mRoles[pTo].mKeys = {newKey()};
        mRoles[pTo].mExpires = now().addDays(30);
    }
    QJsonObject tRole = roleJson(mRoles[pTo]);
    tRole.insert(q("name"), pTo);
    tRole.insert(q("paths"), QJsonArray::fromStringList(pPaths));
    tRole.insert(q("terminating"), pTerminating);
    QJsonObject& tDelegations = mRoles[pFrom].mDelegations;
    QJsonArray tRoles = tDelegations[q("roles")].toArray();
    tRoles.append(tRole);
    QJsonObject tKeys = tDelegations[q("keys")].toObject();
    for (const Key& tKey : mRoles[pTo].mKeys) {
        tKeys.insert(tKey.id(), tKey.publicJson());
    }
    tDelegations = {{q("roles"), tRoles}, {q("keys"), tKeys}};
}

Failure TestRepository::fetch(const QString& pPath, qint64 pMaxLength, QByteArray* pTo)
{
    mRequests.append(pPath);
    mMaxLengths[pPath] = pMaxLength;
    if (mFailure) {
        return mFailure;
    }
    if (!mFiles.contains(pPath)) {
        return {Failure::Kind::NotFound, pPath};
    }
    // Also returns what is too long: the client must not rely on its fetcher.
    *pTo = mFiles[pPath];
    return {};
}

bool TestRepository::fetchTogether(QList<FetchedFile>* pFiles)
{
    ++mTogether;
    for (FetchedFile& tFile : *pFiles) {
        tFile.mFailure = fetch(tFile.mPath, tFile.mMaxLength, &tFile.mBytes);
        tFile.mBytes.replace(0, mSpoilTogether ? 1 : 0, "");
    }
    return true;
}

#include "tuf/Metadata.h"

#include "tuf/CanonicalJson.h"
#include "tuf/JsonReader.h"
#include "tuf/Names.h"

#include <QtCore/QJsonDocument>
#include <QtCore/QRegularExpression>
#include <QtCore/QSet>

#include <algorithm>
#include <limits>

using namespace Qt::StringLiterals;

namespace tarn::tuf {

namespace {

const QLatin1String sMetaSuffix(".json");
// Of a target's path and of patterns; matching takes time proportional to the product of their lengths.
constexpr qsizetype sMaxPath = 4096;
// Of objects and arrays in a file. The parser needs about 200 bytes for each, so a dense file would need many
// times its size. A package has fewer than ten.
constexpr qsizetype sMaxContainers = 500'000;

Failure untrusted(const QString& pRole, const QString& pProblem)
{
    return Failure{Failure::Kind::Untrusted, u"The %1 metadata is not valid: %2"_s.arg(pRole, pProblem)};
}

void checkSpecVersion(const QString& pVersion, JsonReader* pReader)
{
    static const QRegularExpression sFormat(u"\\A1(\\.[0-9]{1,9}){1,2}\\z"_s);
    if (!sFormat.match(pVersion).hasMatch()) {
        pReader->fail(u"it follows version \"%1\" of the standard, not version 1"_s.arg(pVersion.left(20)));
    }
}

QDateTime readDate(const QJsonObject& pFrom, const char* pName, JsonReader* pReader)
{
    static const QRegularExpression sFormat(
        u"\\A[0-9]{4}-[0-9]{2}-[0-9]{2}T[0-9]{2}:[0-9]{2}:[0-9]{2}Z\\z"_s);
    const QString tText = pReader->string(pFrom, pName);
    const QDateTime tDate = QDateTime::fromString(tText, Qt::ISODate);
    if (!sFormat.match(tText).hasMatch() || !tDate.isValid()) {
        pReader->fail(u"\"%1\" is not a date"_s.arg(QLatin1String(pName)));
    }
    return tDate;
}

QList<Signature> readSignatures(const QJsonArray& pArray, JsonReader* pReader)
{
    QList<Signature> tSignatures;
    QSet<QString> tSeen;
    for (const QJsonValue tValue : pArray) {
        const QJsonObject tObject = tValue.toObject();
        const QString tKeyId = pReader->string(tObject, "keyid");
        const QByteArray tHex = pReader->string(tObject, "sig").toLatin1();
        if (tSeen.contains(tKeyId)) {
            pReader->fail(u"it has two signatures of one key"_s);
        }
        tSeen.insert(tKeyId);
        tSignatures.append(Signature{tKeyId, QByteArray::fromHex(tHex)});
    }
    return tSignatures;
}

// Reads the common parts of all files and returns the "signed" object.
QJsonObject readSigned(const QByteArray& pFile, const QString& pType, JsonReader* pReader, Signed* pTo)
{
    // Brackets in texts count as well: legitimate files are far below the limit.
    if (pFile.count('{') + pFile.count('[') > sMaxContainers) {
        pReader->fail(u"it has more than %1 objects and arrays"_s.arg(sMaxContainers));
        return QJsonObject();
    }
    QJsonParseError tProblem;
    const QJsonDocument tDocument = QJsonDocument::fromJson(pFile, &tProblem);
    if (!tDocument.isObject()) {
        pReader->fail(tProblem.error != QJsonParseError::NoError ? tProblem.errorString()
                                                                 : u"it is not an object"_s);
        return QJsonObject();
    }
    pTo->mSignatures = readSignatures(pReader->array(tDocument.object(), "signatures"), pReader);
    const QJsonObject tSigned = pReader->object(tDocument.object(), "signed");
    if (pReader->string(tSigned, "_type") != pType) {
        pReader->fail(u"its type is not \"%1\""_s.arg(pType));
    }
    checkSpecVersion(pReader->string(tSigned, "spec_version"), pReader);
    pTo->mVersion = pReader->integer(tSigned, "version", 1);
    if (pTo->mVersion == std::numeric_limits<qint64>::max()) {
        pReader->fail(u"no version can follow on its own"_s);
    }
    pTo->mExpires = readDate(tSigned, "expires", pReader);
    if (!pReader->failed() && !canonicalJson(tSigned, &pTo->mMessage)) {
        pReader->fail(u"it has no canonical form"_s);
    }
    return tSigned;
}

KeyMap readKeys(const QJsonObject& pKeys, JsonReader* pReader)
{
    KeyMap tKeys;
    for (auto tIt = pKeys.begin(); tIt != pKeys.end(); ++tIt) {
        const QJsonObject tKey = tIt.value().toObject();
        const QString tType = pReader->string(tKey, "keytype");
        const QString tScheme = pReader->string(tKey, "scheme");
        // The format of the value depends on the type, and an unknown type is not an error.
        const QString tValue = pReader->object(tKey, "keyval").value("public"_L1).toString();
        tKeys.insert(tIt.key(), PublicKey(tType, tScheme, tValue));
    }
    return tKeys;
}

RoleKeys readRoleKeys(const QJsonObject& pRole, JsonReader* pReader)
{
    RoleKeys tKeys;
    tKeys.mKeyIds = pReader->strings(pRole, "keyids");
    tKeys.mThreshold = pReader->integer(pRole, "threshold", 1);
    if (QSet<QString>(tKeys.mKeyIds.begin(), tKeys.mKeyIds.end()).size() != tKeys.mKeyIds.size()) {
        pReader->fail(u"a role lists a key twice"_s);
    }
    return tKeys;
}

// Hashes of other algorithms are ignored.
HashList readHashes(const QJsonObject& pHashes, JsonReader* pReader)
{
    HashList tHashes;
    for (auto tIt = pHashes.begin(); tIt != pHashes.end(); ++tIt) {
        if (!tIt.value().isString()) {
            pReader->fail(u"a hash is not a text"_s);
        }
        const auto tAlgorithm = hashAlgorithm(tIt.key());
        if (!tAlgorithm) {
            continue;
        }
        if (const auto tHash = Hash::fromHex(*tAlgorithm, tIt.value().toString())) {
            tHashes.append(*tHash);
        } else {
            pReader->fail(u"a hash is invalid for its algorithm"_s);
        }
    }
    if (tHashes.isEmpty()) {
        pReader->fail(u"a file has no hash of a known kind"_s);
    }
    return tHashes;
}

MetaFile readMetaFile(const QJsonObject& pMeta, JsonReader* pReader)
{
    MetaFile tFile;
    tFile.mVersion = pReader->integer(pMeta, "version", 1);
    if (pMeta.contains("length"_L1)) {
        tFile.mLength = pReader->integer(pMeta, "length", 1);
    }
    if (pMeta.contains("hashes"_L1)) {
        tFile.mHashes = readHashes(pReader->object(pMeta, "hashes"), pReader);
    }
    return tFile;
}

DelegatedRole readDelegatedRole(const QJsonObject& pRole, JsonReader* pReader)
{
    DelegatedRole tRole;
    tRole.mName = pReader->string(pRole, "name");
    tRole.mKeys = readRoleKeys(pRole, pReader);
    tRole.mTerminating = pReader->boolean(pRole, "terminating");
    const bool tByPath = pRole.contains("paths"_L1);
    if (tByPath == pRole.contains("path_hash_prefixes"_L1)) {
        pReader->fail(u"a delegated role needs either \"paths\" or \"path_hash_prefixes\""_s);
    } else if (tByPath) {
        tRole.mPaths = pReader->strings(pRole, "paths");
    } else {
        tRole.mHashPrefixes = pReader->strings(pRole, "path_hash_prefixes");
    }
    if (std::any_of(tRole.mPaths.begin(), tRole.mPaths.end(),
                    [](const QString& pPattern) { return pPattern.size() > sMaxPath; })) {
        pReader->fail(u"it delegates by a path of more than %1 characters"_s.arg(sMaxPath));
    }
    if (!isDelegatedRoleName(tRole.mName)) {
        pReader->fail(u"\"%1\" can't be the name of a delegated role"_s.arg(tRole.mName.left(40)));
    }
    return tRole;
}

SuccinctRoles readSuccinctRoles(const QJsonObject& pRoles, JsonReader* pReader)
{
    SuccinctRoles tRoles;
    tRoles.mKeys = readRoleKeys(pRoles, pReader);
    tRoles.mNamePrefix = pReader->string(pRoles, "name_prefix");
    const qint64 tBits = pReader->integer(pRoles, "bit_length", 1);
    if (tBits > 32 || !isDelegatedRoleName(tRoles.mNamePrefix + "-00000000"_L1)) {
        pReader->fail(u"\"succinct_roles\" is not valid"_s);
        return tRoles;
    }
    tRoles.mBitLength = static_cast<int>(tBits);
    return tRoles;
}

Delegations readDelegations(const QJsonObject& pDelegations, JsonReader* pReader)
{
    Delegations tDelegations;
    tDelegations.mKeys = readKeys(pReader->object(pDelegations, "keys"), pReader);
    if (pDelegations.contains("succinct_roles"_L1)) {
        if (pDelegations.contains("roles"_L1)) {
            pReader->fail(u"it has both \"roles\" and \"succinct_roles\""_s);
        }
        tDelegations.mSuccinct = readSuccinctRoles(pReader->object(pDelegations, "succinct_roles"), pReader);
        return tDelegations;
    }
    QSet<QString> tNames;
    for (const QJsonValue tRole : pReader->array(pDelegations, "roles")) {
        tDelegations.mRoles.append(readDelegatedRole(tRole.toObject(), pReader));
        const QString& tName = tDelegations.mRoles.last().mName;
        if (tNames.contains(tName)) {
            pReader->fail(u"it delegates to \"%1\" twice"_s.arg(tName.left(40)));
        }
        tNames.insert(tName);
    }
    return tDelegations;
}

TargetFile readTarget(const QString& pPath, const QJsonObject& pTarget, JsonReader* pReader)
{
    TargetFile tTarget;
    tTarget.mPath = pPath;
    tTarget.mLength = pReader->integer(pTarget, "length", 0);
    tTarget.mHashes = readHashes(pReader->object(pTarget, "hashes"), pReader);
    if (pTarget.contains("custom"_L1)) {
        tTarget.mCustom = pReader->object(pTarget, "custom");
    }
    if (pPath.isEmpty() || pPath.size() > sMaxPath) {
        pReader->fail(u"a target has no path, or one of more than %1 characters"_s.arg(sMaxPath));
    }
    return tTarget;
}

Failure result(const JsonReader& pReader, const QString& pRole)
{
    return pReader.failed() ? untrusted(pRole, pReader.problem()) : Failure();
}

} // namespace

Failure parseRoot(const QByteArray& pFile, Root* pTo)
{
    JsonReader tReader;
    const QJsonObject tSigned = readSigned(pFile, sRoot, &tReader, pTo);
    if (tSigned.contains("consistent_snapshot"_L1)) {
        pTo->mConsistentSnapshot = tReader.boolean(tSigned, "consistent_snapshot");
    }
    pTo->mKeys = readKeys(tReader.object(tSigned, "keys"), &tReader);
    const QJsonObject tRoles = tReader.object(tSigned, "roles");
    for (auto tIt = tRoles.begin(); tIt != tRoles.end(); ++tIt) {
        pTo->mRoles.insert(tIt.key(), readRoleKeys(tIt.value().toObject(), &tReader));
    }
    for (const QString& tRole : {sRoot, sTimestamp, sSnapshot, sTargets}) {
        if (!pTo->mRoles.contains(tRole)) {
            tReader.fail(u"it names no keys for the role %1"_s.arg(tRole));
        }
    }
    return result(tReader, sRoot);
}

Failure parseTimestamp(const QByteArray& pFile, Timestamp* pTo)
{
    JsonReader tReader;
    const QJsonObject tSigned = readSigned(pFile, sTimestamp, &tReader, pTo);
    pTo->mSnapshot = readMetaFile(tReader.object(tReader.object(tSigned, "meta"), "snapshot.json"), &tReader);
    if (tSigned.contains("signed_at"_L1)) {
        const QDateTime tSignedAt = readDate(tSigned, "signed_at", &tReader);
        pTo->mSignedAt = tSignedAt < pTo->mExpires ? tSignedAt : QDateTime();
    }
    return result(tReader, sTimestamp);
}

Failure parseSnapshot(const QByteArray& pFile, Snapshot* pTo)
{
    JsonReader tReader;
    const QJsonObject tSigned = readSigned(pFile, sSnapshot, &tReader, pTo);
    const QJsonObject tMeta = tReader.object(tSigned, "meta");
    for (auto tIt = tMeta.begin(); tIt != tMeta.end(); ++tIt) {
        const MetaFile tFile = readMetaFile(tIt.value().toObject(), &tReader);
        if (tIt.key().endsWith(sMetaSuffix)) {
            pTo->mRoles.insert(tIt.key().chopped(sMetaSuffix.size()), tFile);
        }
    }
    if (!pTo->mRoles.contains(sTargets)) {
        tReader.fail(u"it does not list targets.json"_s);
    }
    return result(tReader, sSnapshot);
}

Failure parseTargets(const QByteArray& pFile, const QString& pRole, Targets* pTo)
{
    JsonReader tReader;
    const QJsonObject tSigned = readSigned(pFile, sTargets, &tReader, pTo);
    const QJsonObject tTargets = tReader.object(tSigned, "targets");
    for (auto tIt = tTargets.begin(); tIt != tTargets.end() && !tReader.failed(); ++tIt) {
        pTo->mTargets.insert(tIt.key(), readTarget(tIt.key(), tIt.value().toObject(), &tReader));
    }
    if (tSigned.contains("delegations"_L1)) {
        pTo->mDelegations = readDelegations(tReader.object(tSigned, "delegations"), &tReader);
    }
    return result(tReader, pRole);
}

} // namespace tarn::tuf

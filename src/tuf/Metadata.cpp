#include "tuf/Metadata.h"

#include "tuf/CanonicalJson.h"
#include "tuf/JsonReader.h"
#include "tuf/Names.h"

#include <QtCore/QJsonDocument>
#include <QtCore/QRegularExpression>
#include <QtCore/QSet>

#include <algorithm>
#include <limits>

namespace tarn::tuf {

namespace {

const QLatin1String sMetaSuffix(".json");
// Of a target's path and of the patterns it is held against, which takes time by the one length times the
// other.
constexpr qsizetype sMaxPath = 4096;
// Of objects and arrays in a file. The parser takes some 200 bytes for each, so that a file which holds
// little else would need many times its size. A package takes less than ten.
constexpr qsizetype sMaxContainers = 500'000;

Error untrusted(const QString& pRole, const QString& pProblem)
{
    return Error{ErrorKind::Untrusted,
                 QStringLiteral("The %1 metadata is not valid: %2").arg(pRole, pProblem)};
}

void checkSpecVersion(const QString& pVersion, JsonReader* pReader)
{
    static const QRegularExpression sFormat(QStringLiteral("\\A1(\\.[0-9]{1,9}){1,2}\\z"));
    if (!sFormat.match(pVersion).hasMatch()) {
        pReader->fail(QStringLiteral("it follows version \"%1\" of the standard, not version 1")
                          .arg(pVersion.left(20)));
    }
}

QDateTime readDate(const QJsonObject& pFrom, const char* pName, JsonReader* pReader)
{
    static const QRegularExpression sFormat(
        QStringLiteral("\\A[0-9]{4}-[0-9]{2}-[0-9]{2}T[0-9]{2}:[0-9]{2}:[0-9]{2}Z\\z"));
    const QString tText = pReader->string(pFrom, pName);
    const QDateTime tDate = QDateTime::fromString(tText, Qt::ISODate);
    if (!sFormat.match(tText).hasMatch() || !tDate.isValid()) {
        pReader->fail(QStringLiteral("\"%1\" is not a date").arg(QLatin1String(pName)));
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
            pReader->fail(QStringLiteral("it has two signatures of one key"));
        }
        tSeen.insert(tKeyId);
        tSignatures.append(Signature{tKeyId, QByteArray::fromHex(tHex)});
    }
    return tSignatures;
}

// Reads what all files have in common and gives the "signed" object.
QJsonObject readSigned(const QByteArray& pFile, const QString& pType, JsonReader* pReader, Signed* pTo)
{
    // Those in texts count as well: no file that is meant well comes near.
    if (pFile.count('{') + pFile.count('[') > sMaxContainers) {
        pReader->fail(QStringLiteral("it has more than %1 objects and arrays").arg(sMaxContainers));
        return QJsonObject();
    }
    QJsonParseError tProblem;
    const QJsonDocument tDocument = QJsonDocument::fromJson(pFile, &tProblem);
    if (!tDocument.isObject()) {
        pReader->fail(tProblem.error != QJsonParseError::NoError ? tProblem.errorString()
                                                                 : QStringLiteral("it is no object"));
        return QJsonObject();
    }
    pTo->mSignatures = readSignatures(pReader->array(tDocument.object(), "signatures"), pReader);
    const QJsonObject tSigned = pReader->object(tDocument.object(), "signed");
    if (pReader->string(tSigned, "_type") != pType) {
        pReader->fail(QStringLiteral("its type is not \"%1\"").arg(pType));
    }
    checkSpecVersion(pReader->string(tSigned, "spec_version"), pReader);
    pTo->mVersion = pReader->integer(tSigned, "version", 1);
    if (pTo->mVersion == std::numeric_limits<qint64>::max()) {
        pReader->fail(QStringLiteral("no version can follow on its own"));
    }
    pTo->mExpires = readDate(tSigned, "expires", pReader);
    if (!pReader->failed() && !canonicalJson(tSigned, &pTo->mMessage)) {
        pReader->fail(QStringLiteral("it has no canonical form"));
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
        // How the value is laid out depends on the type, and a type that isn't known is no error.
        const QString tValue = pReader->object(tKey, "keyval").value(QLatin1String("public")).toString();
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
        pReader->fail(QStringLiteral("a role lists a key twice"));
    }
    return tKeys;
}

// Hashes of other algorithms are for others; their text goes no further than here.
HashList readHashes(const QJsonObject& pHashes, JsonReader* pReader)
{
    HashList tHashes;
    for (auto tIt = pHashes.begin(); tIt != pHashes.end(); ++tIt) {
        if (!tIt.value().isString()) {
            pReader->fail(QStringLiteral("a hash is no text"));
        }
        const auto tAlgorithm = hashAlgorithm(tIt.key());
        if (!tAlgorithm) {
            continue;
        }
        if (const auto tHash = Hash::fromHex(*tAlgorithm, tIt.value().toString())) {
            tHashes.append(*tHash);
        } else {
            pReader->fail(QStringLiteral("a hash is not one of its algorithm"));
        }
    }
    if (tHashes.isEmpty()) {
        pReader->fail(QStringLiteral("a file has no hash of a known kind"));
    }
    return tHashes;
}

MetaFile readMetaFile(const QJsonObject& pMeta, JsonReader* pReader)
{
    MetaFile tFile;
    tFile.mVersion = pReader->integer(pMeta, "version", 1);
    if (pMeta.contains(QLatin1String("length"))) {
        tFile.mLength = pReader->integer(pMeta, "length", 1);
    }
    if (pMeta.contains(QLatin1String("hashes"))) {
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
    const bool tByPath = pRole.contains(QLatin1String("paths"));
    if (tByPath == pRole.contains(QLatin1String("path_hash_prefixes"))) {
        pReader->fail(QStringLiteral("a delegated role needs either \"paths\" or \"path_hash_prefixes\""));
    } else if (tByPath) {
        tRole.mPaths = pReader->strings(pRole, "paths");
    } else {
        tRole.mHashPrefixes = pReader->strings(pRole, "path_hash_prefixes");
    }
    if (std::any_of(tRole.mPaths.begin(), tRole.mPaths.end(),
                    [](const QString& pPattern) { return pPattern.size() > sMaxPath; })) {
        pReader->fail(QStringLiteral("it delegates by a path of more than %1 characters").arg(sMaxPath));
    }
    if (!isDelegatedRoleName(tRole.mName)) {
        pReader->fail(
            QStringLiteral("\"%1\" can't be the name of a delegated role").arg(tRole.mName.left(40)));
    }
    return tRole;
}

SuccinctRoles readSuccinctRoles(const QJsonObject& pRoles, JsonReader* pReader)
{
    SuccinctRoles tRoles;
    tRoles.mKeys = readRoleKeys(pRoles, pReader);
    tRoles.mNamePrefix = pReader->string(pRoles, "name_prefix");
    const qint64 tBits = pReader->integer(pRoles, "bit_length", 1);
    if (tBits > 32 || !isDelegatedRoleName(tRoles.mNamePrefix + QLatin1String("-00000000"))) {
        pReader->fail(QStringLiteral("\"succinct_roles\" is not valid"));
        return tRoles;
    }
    tRoles.mBitLength = static_cast<int>(tBits);
    return tRoles;
}

Delegations readDelegations(const QJsonObject& pDelegations, JsonReader* pReader)
{
    Delegations tDelegations;
    tDelegations.mKeys = readKeys(pReader->object(pDelegations, "keys"), pReader);
    if (pDelegations.contains(QLatin1String("succinct_roles"))) {
        if (pDelegations.contains(QLatin1String("roles"))) {
            pReader->fail(QStringLiteral("it has both \"roles\" and \"succinct_roles\""));
        }
        tDelegations.mSuccinct = readSuccinctRoles(pReader->object(pDelegations, "succinct_roles"), pReader);
        return tDelegations;
    }
    QSet<QString> tNames;
    for (const QJsonValue tRole : pReader->array(pDelegations, "roles")) {
        tDelegations.mRoles.append(readDelegatedRole(tRole.toObject(), pReader));
        const QString& tName = tDelegations.mRoles.last().mName;
        if (tNames.contains(tName)) {
            pReader->fail(QStringLiteral("it delegates to \"%1\" twice").arg(tName.left(40)));
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
    if (pTarget.contains(QLatin1String("custom"))) {
        tTarget.mCustom = pReader->object(pTarget, "custom");
    }
    if (pPath.isEmpty() || pPath.size() > sMaxPath) {
        pReader->fail(
            QStringLiteral("a target has no path, or one of more than %1 characters").arg(sMaxPath));
    }
    return tTarget;
}

Error result(const JsonReader& pReader, const QString& pRole)
{
    return pReader.failed() ? untrusted(pRole, pReader.problem()) : Error();
}

} // namespace

Error parseRoot(const QByteArray& pFile, Root* pTo)
{
    JsonReader tReader;
    const QJsonObject tSigned = readSigned(pFile, sRoot, &tReader, pTo);
    if (tSigned.contains(QLatin1String("consistent_snapshot"))) {
        pTo->mConsistentSnapshot = tReader.boolean(tSigned, "consistent_snapshot");
    }
    pTo->mKeys = readKeys(tReader.object(tSigned, "keys"), &tReader);
    const QJsonObject tRoles = tReader.object(tSigned, "roles");
    for (auto tIt = tRoles.begin(); tIt != tRoles.end(); ++tIt) {
        pTo->mRoles.insert(tIt.key(), readRoleKeys(tIt.value().toObject(), &tReader));
    }
    for (const QString& tRole : {sRoot, sTimestamp, sSnapshot, sTargets}) {
        if (!pTo->mRoles.contains(tRole)) {
            tReader.fail(QStringLiteral("it names no keys for the role %1").arg(tRole));
        }
    }
    return result(tReader, sRoot);
}

Error parseTimestamp(const QByteArray& pFile, Timestamp* pTo)
{
    JsonReader tReader;
    const QJsonObject tSigned = readSigned(pFile, sTimestamp, &tReader, pTo);
    pTo->mSnapshot = readMetaFile(tReader.object(tReader.object(tSigned, "meta"), "snapshot.json"), &tReader);
    if (tSigned.contains(QLatin1String("signed_at"))) {
        const QDateTime tSignedAt = readDate(tSigned, "signed_at", &tReader);
        pTo->mSignedAt = tSignedAt < pTo->mExpires ? tSignedAt : QDateTime();
    }
    return result(tReader, sTimestamp);
}

Error parseSnapshot(const QByteArray& pFile, Snapshot* pTo)
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
        tReader.fail(QStringLiteral("it does not list targets.json"));
    }
    return result(tReader, sSnapshot);
}

Error parseTargets(const QByteArray& pFile, const QString& pRole, Targets* pTo)
{
    JsonReader tReader;
    const QJsonObject tSigned = readSigned(pFile, sTargets, &tReader, pTo);
    const QJsonObject tTargets = tReader.object(tSigned, "targets");
    for (auto tIt = tTargets.begin(); tIt != tTargets.end() && !tReader.failed(); ++tIt) {
        pTo->mTargets.insert(tIt.key(), readTarget(tIt.key(), tIt.value().toObject(), &tReader));
    }
    if (tSigned.contains(QLatin1String("delegations"))) {
        pTo->mDelegations = readDelegations(tReader.object(tSigned, "delegations"), &tReader);
    }
    return result(tReader, pRole);
}

} // namespace tarn::tuf

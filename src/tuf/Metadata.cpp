#include "tuf/Metadata.h"

#include "internal/JsonReader.h"
#include "tuf/CanonicalJson.h"
#include "tuf/Names.h"

#include <QtCore/QJsonDocument>
#include <QtCore/QRegularExpression>
#include <QtCore/QSet>

#include <algorithm>
#include <limits>

using namespace Qt::StringLiterals;

namespace tarn::tuf {

using vkcore::JsonReader;

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

QDateTime readDate(const char* pName, JsonReader* pReader)
{
    static const QRegularExpression sFormat(
        u"\\A[0-9]{4}-[0-9]{2}-[0-9]{2}T[0-9]{2}:[0-9]{2}:[0-9]{2}Z\\z"_s);
    const QString tText = pReader->text(pName);
    const QDateTime tDate = QDateTime::fromString(tText, Qt::ISODate);
    pReader->require(sFormat.match(tText).hasMatch() && tDate.isValid(), pName, u"is not a date"_s);
    return tDate;
}

QList<Signature> readSignatures(JsonReader* pFile)
{
    QList<Signature> tSignatures;
    QSet<QString> tSeen;
    pFile->each("signatures", [&](JsonReader& pSignature) {
        const QString tKeyId = pSignature.text("keyid");
        const QByteArray tHex = pSignature.text("sig").toLatin1();
        pSignature.require(!tSeen.contains(tKeyId), "keyid", u"has signed twice"_s);
        tSeen.insert(tKeyId);
        tSignatures.append(Signature{tKeyId, QByteArray::fromHex(tHex)});
    });
    return tSignatures;
}

// Reads the common parts of all files and returns the "signed" object.
JsonReader readSigned(const QByteArray& pFile, const QString& pType, QString* pFault, Signed* pTo)
{
    // Brackets in texts count as well: legitimate files are far below the limit.
    if (pFile.count('{') + pFile.count('[') > sMaxContainers) {
        *pFault = u"it has more than %1 objects and arrays"_s.arg(sMaxContainers);
        return JsonReader({}, pFault);
    }
    QJsonParseError tProblem;
    const QJsonDocument tDocument = QJsonDocument::fromJson(pFile, &tProblem);
    if (tProblem.error != QJsonParseError::NoError) {
        *pFault = tProblem.errorString();
    }
    JsonReader tFile(tDocument.isObject() ? tDocument.object() : QJsonValue(), pFault);
    pTo->mSignatures = readSignatures(&tFile);
    JsonReader tSigned = tFile.object("signed");
    tSigned.require(tSigned.text("_type") == pType, "_type", u"is not \"%1\""_s.arg(pType));
    checkSpecVersion(tSigned.text("spec_version"), &tSigned);
    pTo->mVersion = tSigned.integer("version", 1);
    tSigned.require(pTo->mVersion < std::numeric_limits<qint64>::max(), "version",
                    u"leaves no number for the next one"_s);
    pTo->mExpires = readDate("expires", &tSigned);
    if (tSigned.ok() && !canonicalJson(tSigned.json(), &pTo->mMessage)) {
        tSigned.fail(u"it has no canonical form"_s);
    }
    return tSigned;
}

KeyMap readKeys(JsonReader pKeys)
{
    KeyMap tKeys;
    pKeys.eachMember([&](const QString& pId, JsonReader& pKey) {
        const QString tType = pKey.text("keytype");
        const QString tScheme = pKey.text("scheme");
        // The format of the value depends on the type, and an unknown type is not an error.
        const QString tValue = pKey.object("keyval").json().value("public"_L1).toString();
        tKeys.insert(pId, PublicKey(tType, tScheme, tValue));
    });
    return tKeys;
}

RoleKeys readRoleKeys(JsonReader* pReader)
{
    RoleKeys tKeys;
    tKeys.mKeyIds = pReader->texts("keyids");
    tKeys.mThreshold = pReader->integer("threshold", 1);
    if (QSet<QString>(tKeys.mKeyIds.begin(), tKeys.mKeyIds.end()).size() != tKeys.mKeyIds.size()) {
        pReader->fail(u"a role lists a key twice"_s);
    }
    return tKeys;
}

// Hashes of other algorithms are ignored.
HashList readHashes(JsonReader pReader)
{
    HashList tHashes;
    const QJsonObject& tObject = pReader.json();
    for (auto tIt = tObject.begin(); tIt != tObject.end(); ++tIt) {
        if (!tIt.value().isString()) {
            pReader.fail(u"a hash is not a text"_s);
        }
        const auto tAlgorithm = hashAlgorithm(tIt.key());
        if (!tAlgorithm) {
            continue;
        }
        if (const auto tHash = Hash::fromHex(*tAlgorithm, tIt.value().toString())) {
            tHashes.append(*tHash);
        } else {
            pReader.fail(u"a hash is invalid for its algorithm"_s);
        }
    }
    if (tHashes.isEmpty()) {
        pReader.fail(u"a file has no hash of a known kind"_s);
    }
    return tHashes;
}

MetaFile readMetaFile(JsonReader* pReader)
{
    MetaFile tFile;
    tFile.mVersion = pReader->integer("version", 1);
    if (pReader->has("length")) {
        tFile.mLength = pReader->integer("length", 1);
    }
    if (pReader->has("hashes")) {
        tFile.mHashes = readHashes(pReader->object("hashes"));
    }
    return tFile;
}

DelegatedRole readDelegatedRole(JsonReader* pReader)
{
    DelegatedRole tRole;
    tRole.mName = pReader->text("name");
    tRole.mKeys = readRoleKeys(pReader);
    tRole.mTerminating = pReader->boolean("terminating");
    const bool tByPath = pReader->has("paths");
    if (tByPath == pReader->has("path_hash_prefixes")) {
        pReader->fail(u"a delegated role needs either \"paths\" or \"path_hash_prefixes\""_s);
    } else if (tByPath) {
        tRole.mPaths = pReader->texts("paths");
    } else {
        tRole.mHashPrefixes = pReader->texts("path_hash_prefixes");
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

SuccinctRoles readSuccinctRoles(JsonReader* pReader)
{
    SuccinctRoles tRoles;
    tRoles.mKeys = readRoleKeys(pReader);
    tRoles.mNamePrefix = pReader->text("name_prefix");
    const qint64 tBits = pReader->integer("bit_length", 1);
    if (tBits > 32 || !isDelegatedRoleName(tRoles.mNamePrefix + "-00000000"_L1)) {
        pReader->fail(u"\"succinct_roles\" is not valid"_s);
        return tRoles;
    }
    tRoles.mBitLength = static_cast<int>(tBits);
    return tRoles;
}

Delegations readDelegations(JsonReader* pReader)
{
    Delegations tDelegations;
    tDelegations.mKeys = readKeys(pReader->object("keys"));
    if (pReader->has("succinct_roles")) {
        if (pReader->has("roles")) {
            pReader->fail(u"it has both \"roles\" and \"succinct_roles\""_s);
        }
        JsonReader tSuccinct = pReader->object("succinct_roles");
        tDelegations.mSuccinct = readSuccinctRoles(&tSuccinct);
        return tDelegations;
    }
    QSet<QString> tNames;
    pReader->each("roles", [&](JsonReader& pRole) {
        tDelegations.mRoles.append(readDelegatedRole(&pRole));
        const QString& tName = tDelegations.mRoles.last().mName;
        if (tNames.contains(tName)) {
            pRole.fail(u"it delegates to \"%1\" twice"_s.arg(tName.left(40)));
        }
        tNames.insert(tName);
    });
    return tDelegations;
}

TargetFile readTarget(const QString& pPath, JsonReader* pReader)
{
    TargetFile tTarget;
    tTarget.mPath = pPath;
    tTarget.mLength = pReader->integer("length", 0);
    tTarget.mHashes = readHashes(pReader->object("hashes"));
    if (pReader->has("custom")) {
        tTarget.mCustom = pReader->object("custom").json();
    }
    if (pPath.isEmpty() || pPath.size() > sMaxPath) {
        pReader->fail(u"a target has no path, or one of more than %1 characters"_s.arg(sMaxPath));
    }
    return tTarget;
}

Failure result(const QString& pFault, const QString& pRole)
{
    return pFault.isEmpty() ? Failure() : untrusted(pRole, pFault);
}

} // namespace

Failure parseRoot(const QByteArray& pFile, Root* pTo)
{
    QString tFault;
    JsonReader tSigned = readSigned(pFile, sRoot, &tFault, pTo);
    if (tSigned.has("consistent_snapshot")) {
        pTo->mConsistentSnapshot = tSigned.boolean("consistent_snapshot");
    }
    pTo->mKeys = readKeys(tSigned.object("keys"));
    tSigned.object("roles").eachMember(
        [pTo](const QString& pName, JsonReader& pRole) { pTo->mRoles.insert(pName, readRoleKeys(&pRole)); });
    for (const QString& tRole : {sRoot, sTimestamp, sSnapshot, sTargets}) {
        if (!pTo->mRoles.contains(tRole)) {
            tSigned.fail(u"it names no keys for the role %1"_s.arg(tRole));
        }
    }
    return result(tFault, sRoot);
}

Failure parseTimestamp(const QByteArray& pFile, Timestamp* pTo)
{
    QString tFault;
    JsonReader tSigned = readSigned(pFile, sTimestamp, &tFault, pTo);
    JsonReader tSnapshot = tSigned.object("meta").object("snapshot.json");
    pTo->mSnapshot = readMetaFile(&tSnapshot);
    if (tSigned.has("signed_at")) {
        const QDateTime tSignedAt = readDate("signed_at", &tSigned);
        pTo->mSignedAt = tSignedAt < pTo->mExpires ? tSignedAt : QDateTime();
    }
    pTo->mTargetsVersion = tSigned.json().value("targets_version"_L1).toInteger();
    return result(tFault, sTimestamp);
}

Failure parseSnapshot(const QByteArray& pFile, Snapshot* pTo)
{
    QString tFault;
    JsonReader tSigned = readSigned(pFile, sSnapshot, &tFault, pTo);
    tSigned.object("meta").eachMember([pTo](const QString& pName, JsonReader& pMeta) {
        const MetaFile tFile = readMetaFile(&pMeta);
        if (pName.endsWith(sMetaSuffix)) {
            pTo->mRoles.insert(pName.chopped(sMetaSuffix.size()), tFile);
        }
    });
    if (!pTo->mRoles.contains(sTargets)) {
        tSigned.fail(u"it does not list targets.json"_s);
    }
    return result(tFault, sSnapshot);
}

Failure parseTargets(const QByteArray& pFile, const QString& pRole, Targets* pTo)
{
    QString tFault;
    JsonReader tSigned = readSigned(pFile, sTargets, &tFault, pTo);
    tSigned.object("targets").eachMember([pTo](const QString& pPath, JsonReader& pTarget) {
        pTo->mTargets.insert(pPath, readTarget(pPath, &pTarget));
    });
    if (tSigned.has("delegations")) {
        JsonReader tDelegations = tSigned.object("delegations");
        pTo->mDelegations = readDelegations(&tDelegations);
    }
    return result(tFault, pRole);
}

} // namespace tarn::tuf

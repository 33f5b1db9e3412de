// The metadata files as values. Reading checks the format, not the signatures.
#pragma once

#include "internal/Failure.h"
#include "tuf/Hash.h"
#include "tuf/PublicKey.h"
#include "tuf/TargetFile.h"

#include <QtCore/QByteArray>
#include <QtCore/QDateTime>
#include <QtCore/QHash>
#include <QtCore/QList>
#include <QtCore/QMap>
#include <QtCore/QString>
#include <QtCore/QStringList>

#include <optional>

namespace tarn::tuf {

inline const QString sRoot = QStringLiteral("root");
inline const QString sTimestamp = QStringLiteral("timestamp");
inline const QString sSnapshot = QStringLiteral("snapshot");
inline const QString sTargets = QStringLiteral("targets");

using KeyMap = QHash<QString, PublicKey>; // key id -> key

// Who must sign a role.
struct RoleKeys
{
    QStringList mKeyIds; // each once; some may name no key
    qint64 mThreshold = 1;
};

struct Signature
{
    QString mKeyId;
    QByteArray mBytes;
};

// The common parts of every metadata file.
struct Signed
{
    qint64 mVersion = 0;
    QDateTime mExpires;
    QByteArray mMessage; // the bytes that the signatures are over
    QList<Signature> mSignatures;
};

struct Root : Signed
{
    bool mConsistentSnapshot = false;
    KeyMap mKeys;
    QMap<QString, RoleKeys> mRoles; // has the four top-level roles at least
};

// The reference from one metadata file to another.
struct MetaFile
{
    qint64 mVersion = 0;
    std::optional<qint64> mLength;
    HashList mHashes; // empty: not stated
};

struct Timestamp : Signed
{
    MetaFile mSnapshot;
    // The time of signing. Invalid if the file does not have it, or if it is not before its expiry.
    QDateTime mSignedAt;
    // Of the targets, so that they need not wait for the snapshot, which decides; 0: not stated.
    qint64 mTargetsVersion = 0;
};

struct Snapshot : Signed
{
    QMap<QString, MetaFile> mRoles; // role name -> its file
};

struct DelegatedRole
{
    QString mName;
    RoleKeys mKeys;
    bool mTerminating = false;
    QStringList mPaths;        // patterns; empty if the role is found by hash
    QStringList mHashPrefixes; // lower-case hex
};

// Delegation to 2^mBitLength roles, each responsible for the target paths whose hash begins with its number.
struct SuccinctRoles
{
    RoleKeys mKeys;
    int mBitLength = 0; // 1 to 32
    QString mNamePrefix;
};

struct Delegations
{
    KeyMap mKeys;
    QList<DelegatedRole> mRoles;            // in the order to search
    std::optional<SuccinctRoles> mSuccinct; // instead of mRoles
};

struct Targets : Signed
{
    QMap<QString, TargetFile> mTargets; // path -> file; mFetchPath is not set
    Delegations mDelegations;
};

// An error is always Failure::Kind::Untrusted, and *pTo is then of no use.
Failure parseRoot(const QByteArray& pFile, Root* pTo);
Failure parseTimestamp(const QByteArray& pFile, Timestamp* pTo);
Failure parseSnapshot(const QByteArray& pFile, Snapshot* pTo);
// pRole is for the error's text.
Failure parseTargets(const QByteArray& pFile, const QString& pRole, Targets* pTo);

} // namespace tarn::tuf

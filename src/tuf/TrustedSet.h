#pragma once

#include "tuf/Metadata.h"

#include <QtCore/QDateTime>
#include <QtCore/QHash>
#include <QtCore/QSet>

#include <memory>
#include <optional>

namespace tarn::tuf {

// The trusted metadata, and the rules for extending it. Knows neither files nor servers: it accepts or
// refuses bytes, in the order root, timestamp, snapshot, targets.
//
// Timestamp and snapshot may be loaded twice: first this machine's copy, which may be expired but still
// protects against rollback, then the server's. Only what was accepted without an error may be stored.
//
// Expiry is checked against the clock, or against a later time that signed files prove: the signing time of
// the trusted timestamp, or the expiry of one that was refused as expired. So a clock that is set back does
// not revive anything. A newer timestamp replaces the proof of the refused one, in case the clock was ahead
// when it was refused.
class TrustedSet
{
public:
    // pNow: the time of the clock.
    explicit TrustedSet(const QDateTime& pNow);

    Failure setRoot(const QByteArray& pFile);
    // The next root. *pKeysRemoved: it removes a key of the timestamp or the snapshot role, so that what the
    // old keys signed must be forgotten.
    Failure addRoot(const QByteArray& pFile, bool* pKeysRemoved);
    Failure checkRootExpiry() const;

    // *pSame: it has the version of the trusted one, which stays.
    Failure addTimestamp(const QByteArray& pFile, bool* pSame);
    // A timestamp that an earlier run refused as expired. One that isn't valid is passed over.
    void addRefusedTimestamp(const QByteArray& pFile);
    // Whether the trusted timestamp is newer than the refused one, or there is no refused one.
    bool isNewerThanRefused() const;
    // The time that the signed files prove to have passed; invalid: none.
    QDateTime provenTime() const;
    Failure addLocalSnapshot(const QByteArray& pFile);
    Failure addSnapshot(const QByteArray& pFile);
    // The top-level targets, or a delegated role by the word of pDelegator, which is already here. A role
    // that is here already is only checked against this delegator, without its file.
    Failure addTargets(const QByteArray& pFile, const QString& pRole, const QString& pDelegator);
    Failure checkDelegator(const QString& pRole, const QString& pDelegator);

    // The files that are trusted by now; null before.
    const Root* root() const;
    const Timestamp* timestamp() const;
    const Snapshot* snapshot() const;
    const Targets* targets(const QString& pRole) const;

private:
    Failure checkExpiry(const QString& pRole, const Signed& pSigned) const;
    Failure checkTimestampExpiry() const;
    Failure checkSnapshotRollback(const Snapshot& pNew) const;
    Failure checkIsCurrent(const Snapshot& pSnapshot) const;
    Failure verifyByRoot(const QString& pRole, const Signed& pSigned) const;
    Failure verifyByDelegator(const QString& pRole, const QString& pDelegator, const Signed& pSigned) const;

    QDateTime mNow;
    std::optional<Root> mRoot;
    std::optional<Timestamp> mRefused;
    std::optional<Timestamp> mTimestamp;
    std::optional<Snapshot> mSnapshot;
    QHash<QString, std::shared_ptr<const Targets>> mTargets;
    QSet<std::pair<QString, QString>> mVerified; // role, delegator
};

} // namespace tarn::tuf

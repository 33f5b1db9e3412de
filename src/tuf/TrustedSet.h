#pragma once

#include "tuf/Metadata.h"

#include <QtCore/QDateTime>
#include <QtCore/QHash>
#include <QtCore/QSet>

#include <memory>
#include <optional>

namespace tarn::tuf {

// The metadata that is trusted, and the rules by which more becomes so. Knows neither files nor servers:
// bytes go in, in the order root, timestamp, snapshot, targets, and are taken or refused.
//
// Timestamp and snapshot may go in twice: first the copy that this machine kept, which may be out of date and
// still says what must not be rolled back, then the server's. Only what was taken without an error may be
// stored.
//
// Expiry is measured against the clock, or against a later time that signed files prove: the trusted
// timestamp says when it was signed, and one that was refused because it had expired says until when it was
// good. So a clock that is set back brings nothing back to life. A newer timestamp puts an end to what the
// refused one says, which may have been refused by a clock that was ahead.
class TrustedSet
{
public:
    // pNow: what the clock says.
    explicit TrustedSet(const QDateTime& pNow);

    Failure setRoot(const QByteArray& pFile);
    // The next root. *pKeysRemoved: a key of the timestamp or the snapshot role is not theirs any more, so
    // that what the old keys signed must be forgotten.
    Failure addRoot(const QByteArray& pFile, bool* pKeysRemoved);
    Failure checkRootExpiry() const;

    // *pSame: it has the version of the trusted one, which stays.
    Failure addTimestamp(const QByteArray& pFile, bool* pSame);
    // A timestamp that an earlier run refused as expired. One that isn't valid is passed over.
    void addRefusedTimestamp(const QByteArray& pFile);
    // Whether the trusted timestamp is newer than the refused one, or there is no refused one.
    bool isNewerThanRefused() const;
    // What the signed files prove to have passed; invalid: nothing.
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

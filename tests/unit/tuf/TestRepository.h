#pragma once

#include "Text.h"
#include "tuf/SigningKey.h"
#include "tuf/Updater.h"

#include <QtCore/QDateTime>
#include <QtCore/QJsonObject>
#include <QtCore/QList>
#include <QtCore/QMap>
#include <QtCore/QStringList>

inline const QString sRootRole = q("root");
inline const QString sTimestampRole = q("timestamp");
inline const QString sSnapshotRole = q("snapshot");
inline const QString sTargetsRole = q("targets");

// A repository in memory that signs whatever a test wants, also invalid metadata, and records the requests of
// a client. Initially, version 1 of every top-level role is published.
class TestRepository : public tarn::tuf::Fetcher
{
public:
    using Key = tarn::tuf::SigningKey;

    struct Role
    {
        QList<Key> mKeys; // those in the delegating role
        int mThreshold = 1;
        qint64 mVersion = 0;
        QDateTime mExpires;
        QMap<QString, QByteArray> mTargets; // path -> content
        QJsonObject mDelegations;
    };

    explicit TestRepository(const QDateTime& pNow = now());

    static QDateTime now() { return {QDate(2026, 3, 1), QTime(12, 0), Qt::UTC}; }
    static Key newKey(const QString& pType = q("ed25519")) { return *Key::generate(pType); }

    // Each increments the role's version and serves the file, without publishing the others.
    void publishRole(const QString& pRole, const QList<Key>& pAlsoSignedBy = {});
    void publishRoot(const QList<Key>& pAlsoSignedBy = {}) { publishRole(sRootRole, pAlsoSignedBy); }
    void publishTargets(const QString& pRole = q("targets")) { publishRole(pRole); }
    void publishSnapshot() { publishRole(sSnapshotRole); }
    void publishTimestamp() { publishRole(sTimestampRole); }
    // Targets, snapshot and timestamp.
    void publish();

    QJsonObject rootJson() const;
    QJsonObject targetsJson(const QString& pRole) const;
    QJsonObject snapshotJson() const;
    QJsonObject timestampJson() const;
    // Serves a file under the role's versioned name (timestamp: its plain one).
    void serve(const QString& pRole, const QByteArray& pFile);
    // Signs with the role's keys.
    QByteArray sign(const QString& pRole, const QJsonObject& pSigned) const;

    // Adds a delegation to an existing role, and creates the new role if needed. Publishes neither.
    void delegate(const QString& pFrom, const QString& pTo, const QStringList& pPaths,
                  bool pTerminating = false);

    tarn::Failure fetch(const QString& pPath, qint64 pMaxLength, QByteArray* pTo) override;
    bool fetchTogether(QList<tarn::tuf::FetchedFile>* pFiles) override;

    QMap<QString, Role> mRoles;
    QMap<QString, QJsonObject> mStated; // path of a target -> false metadata for it
    bool mConsistentSnapshot = true;
    bool mHashesInMeta = true;
    QDateTime mSignedAt;               // of the timestamp; invalid: not stated
    qint64 mStatedTargets = 0;         // version in the timestamp; 0: not stated
    int mTogether = 0;                 // how often several files were asked for at once
    bool mSpoilTogether = false;       // changes them
    QMap<QString, QByteArray> mFiles;  // what is served: path -> content
    QStringList mRequests;             // paths, in order
    QMap<QString, qint64> mMaxLengths; // path -> the maximum length that the client requested
    tarn::Failure mFailure;            // if set, the failure of every fetch

private:
    QJsonObject signedPart(const QString& pRole) const;
    QJsonObject metaOf(const QString& pRole) const;
    QString fileName(const QString& pRole) const;
};

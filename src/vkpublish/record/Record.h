#pragma once

#include "record/Packages.h"

#include <QtCore/QByteArray>
#include <QtCore/QDateTime>
#include <QtCore/QJsonObject>
#include <QtCore/QList>
#include <QtCore/QMap>
#include <QtCore/QString>
#include <QtCore/QStringList>

namespace tarn::vkpublish {

// A published metadata file, as described in the file above it.
struct PublishedFile
{
    QJsonObject mMeta; // "version", "length", "hashes"; empty: none, or it must be signed again
    QDateTime mExpires;
};

// How this folder signs with a key.
struct KeySource
{
    QString mFile; // its name in the key folder
};

// A replaced root that machines may still have: until they can't, what is published satisfies it, too.
struct RetiringRoot
{
    QByteArray mRoot; // signed
    QDateTime mUntil;
};

// A replaced key from a record of format 1, which knew no replaced roots. It still signs for a while, in
// addition to the new one.
struct RetiringKey
{
    QString mRole;
    QString mFile; // its name in the key folder
    QDateTime mUntil;
};

// The publisher's data about a repository. It is authoritative, and the repository folder is generated from
// it: write access to the repository alone is not enough to get anything signed.
struct Record : Packages
{
    QMap<QString, KeySource> mKeys;  // key id -> how this folder signs; who may sign is in the root
    QStringList mLostKeys;           // ids of keys whose signature nobody waits for any longer
    QMap<QString, qint64> mVersions; // role -> the highest version ever used, published or not
    QByteArray mRoot;                // the newest root, signed
    PublishedFile mPublishedTargetsFile;
    PublishedFile mPublishedSnapshot;
    PublishedFile mCarriedTargets; // the newest list that a refresh has left in place: it may not go back
    QDateTime mTimestampExpires;
    QDateTime mSignedAt;                // when that was done, by the clock of this machine; null: unknown
    QList<RetiringRoot> mRetiringRoots; // the oldest first
    QList<RetiringKey> mRetiringKeys;
    QMap<QString, QDateTime>
        mUnreferenced; // file, relative to the repository -> when it lost its last reference

    // Without the packages, which are in files of their own: PackageLists.
    QByteArray toJson() const;
    // False if the text is not valid output of toJson(). The text of an earlier version has the packages.
    static bool fromJson(const QByteArray& pText, Record* pTo);
    // True if a later version of this program has written it.
    static bool isNewer(const QByteArray& pText);
};

} // namespace tarn::vkpublish

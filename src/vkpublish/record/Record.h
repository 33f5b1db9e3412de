#pragma once

#include <QtCore/QByteArray>
#include <QtCore/QDateTime>
#include <QtCore/QJsonObject>
#include <QtCore/QList>
#include <QtCore/QMap>
#include <QtCore/QString>

namespace tarn::vkpublish {

// A published metadata file, as described in the file above it.
struct PublishedFile
{
    QJsonObject mMeta; // "version", "length", "hashes"; empty: none, or it must be signed again
    QDateTime mExpires;
};

// A replaced key that still signs for a while, in addition to the new one: clients accept files with both
// signatures, whichever of the two roots they have.
struct RetiringKey
{
    QString mRole;
    QString mFile; // its name in the key folder
    QDateTime mUntil;
};

// The publisher's data about a repository. It is authoritative, and the repository folder is generated from
// it: write access to the repository alone is not enough to get anything signed.
struct Record
{
    QMap<QString, QString> mKeyFiles; // role -> name of its file in the key folder
    QMap<QString, qint64> mVersions;  // role -> the highest version ever used, published or not
    QByteArray mRoot;                 // the newest root, signed
    QJsonObject mTargets;             // name -> target, as the next publish will offer it
    QJsonObject mPublishedTargets;    // the same as the last publish offered it
    QJsonObject mWithdrawnTargets;    // as they were last published
    PublishedFile mPublishedTargetsFile;
    PublishedFile mPublishedSnapshot;
    PublishedFile mCarriedTargets; // the newest list that a refresh has left in place: it may not go back
    QDateTime mTimestampExpires;
    QList<RetiringKey> mRetiring;
    QMap<QString, QDateTime>
        mUnreferenced; // file, relative to the repository -> when it lost its last reference

    QByteArray toJson() const;
    // False if the text is not valid output of toJson().
    static bool fromJson(const QByteArray& pText, Record* pTo);
};

} // namespace tarn::vkpublish

#pragma once

#include <QtCore/QByteArray>
#include <QtCore/QDateTime>
#include <QtCore/QJsonObject>
#include <QtCore/QList>
#include <QtCore/QMap>
#include <QtCore/QString>

namespace tarn::vkpublish {

// A metadata file that was published, as the file above it states it.
struct PublishedFile
{
    QJsonObject mMeta; // "version", "length", "hashes"; empty: none, or it must be signed anew
    QDateTime mExpires;
};

// A key that was replaced and goes on signing for a while, beside the new one: machines accept what both have
// signed, whichever of the two roots they know.
struct RetiringKey
{
    QString mRole;
    QString mFile; // its name in the key folder
    QDateTime mUntil;
};

// What the publisher knows of a repository. It is the truth, and the repository folder is made from it:
// whoever can write there, but not here, gets nothing signed.
struct Record
{
    QMap<QString, QString> mKeyFiles; // role -> name of its file in the key folder
    QMap<QString, qint64> mVersions;  // role -> the highest version ever used, published or not
    QByteArray mRoot;                 // the newest root, signed
    QJsonObject mTargets;             // name -> target, as the next publish will offer it
    QJsonObject mPublishedTargets;    // the same as the last publish offered it
    QJsonObject mWithdrawnTargets;    // as they were published last
    PublishedFile mPublishedTargetsFile;
    PublishedFile mPublishedSnapshot;
    QDateTime mTimestampExpires;
    QList<RetiringKey> mRetiring;
    QMap<QString, QDateTime> mUnreferenced; // file, relative to the repository -> since when nothing names it

    QByteArray toJson() const;
    // False if the text isn't what toJson() writes.
    static bool fromJson(const QByteArray& pText, Record* pTo);
};

} // namespace tarn::vkpublish

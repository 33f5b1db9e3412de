#pragma once

#include "keys/KeyFolder.h"

#include "internal/Failure.h"
#include "packages/PackageInfo.h"

#include <QtCore/QStringList>

#include <memory>

namespace tarn::vkpublish {

class PackageVersion;

// Makes the deltas of the packages that the next publication offers for the first time: from each of the
// versions before, of the same name and language, that have an index and are still in the targets folder.
// The record's targets name them afterwards.
//
// Reads the indexes of both versions, and of their archives only the frames with the files that differ and
// with those that they were made from. Needs some 100 MiB up to 200,000 entries in each version and some 200
// bytes for each further pair of entries; and space for these files in the key folder, which nobody else can
// write to. Files that are damaged are a failure. What a killed run leaves is overwritten or removed by the
// next one.
class NewDeltas
{
public:
    // The key folder must be open.
    NewDeltas(os::FileSystem& pFileSystem, const QString& pRepository, KeyFolder& pKeys);
    ~NewDeltas();
    NewDeltas(const NewDeltas&) = delete;
    NewDeltas& operator=(const NewDeltas&) = delete;

    // From at most pCount versions each, 16 or fewer. Deltas that are there already are not made again, and
    // those of packages that were published before stay as they are, as long as their files do.
    Failure make(int pCount);

    int made() const { return mMade; }

private:
    struct Version
    {
        QString mArchive;
        qint64 mArchiveSize = 0;
        packages::PackageInfo mInfo;
    };

    std::optional<Version> versionOf(const QString& pName, const QJsonObject& pTarget) const;
    QList<Version> versionsBefore(const Version& pNew) const;
    bool isThere(const Version& pVersion) const;
    bool isThere(const packages::SideFile& pFile, const QString& pName) const;
    Failure makeFor(const QString& pName, int pCount);
    Failure makeAll(const Version& pNew, int pCount, QList<packages::DeltaFile>* pTo);
    Failure makeOne(const Version& pOld, PackageVersion& pNew, qint64 pMostBytes,
                    QList<packages::DeltaFile>* pTo);
    Failure open(const Version& pVersion, const QString& pScratch, PackageVersion* pTo);
    QString indexPath(const Version& pVersion) const;
    QString scratch() const;

    os::FileSystem& mFileSystem;
    QString mTargets;
    QString mRepository;
    KeyFolder& mKeys;
    int mMade = 0;
};

} // namespace tarn::vkpublish

#pragma once

#include "internal/Failure.h"
#include "internal/LogRecord.h"
#include "packages/PackageInfo.h"
#include "tuf/Hash.h"

#include <QtCore/QByteArray>
#include <QtCore/QDateTime>
#include <QtCore/QList>
#include <QtCore/QString>
#include <QtCore/QStringList>

namespace tarn::packages {

struct InstalledPackage
{
    PackageInfo mInfo;
    tuf::Hash mHash; // of its archive
    QString mFolder; // as PackageFolders::folder
    QString mParent; // null for a package of the top level
};

// The contents of a generation, stored as a file in it: the only record of what is installed. It includes the
// log records of its run, so a run that is killed after the switch loses none. docs/file-formats.md has an
// example.
struct Manifest
{
    qint64 mGeneration = 0; // 0: nothing is installed yet
    qint64 mPrevious = 0;   // the generation before it, which is kept as well
    QString mRunId;
    QDateTime mRunDate;
    QList<vkcore::LogRecord> mRecords;
    QList<InstalledPackage> mPackages;

    const InstalledPackage* find(const QString& pName) const;
    QStringList folders() const; // of its packages

    QByteArray toBytes() const;
    // A failure for bytes that are not from toBytes. On success, each folder has the form of
    // PackageFolders::place, with the name, the version and the hash of its package.
    static Result<Manifest> fromBytes(const QByteArray& pBytes);
};

inline QString manifestFileName()
{
    return QStringLiteral(".manifest.json");
}

} // namespace tarn::packages

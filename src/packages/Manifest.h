#pragma once

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
    tuf::Hash mHash; // of the archive it came from
    QString mFolder; // as PackageFolders::folder
    QString mParent; // null for a package of the top level
};

// What a generation holds, kept in it as a file: the one place that says what is installed. It carries the
// log records of the run that made it, so a run that is killed behind the switch loses none.
struct Manifest
{
    qint64 mGeneration = 0; // 0: nothing has been installed yet
    qint64 mPrevious = 0;   // the generation before it, which is kept as well
    QString mRunId;
    QDateTime mRunDate;
    QList<vkcore::LogRecord> mRecords;
    QList<InstalledPackage> mPackages;

    const InstalledPackage* find(const QString& pName) const;
    QStringList folders() const; // of its packages

    QByteArray toBytes() const;
    // False, with the reason in *pError, for bytes that toBytes did not make. Each folder then has the form
    // of PackageFolders::place, with the name, the version and the hash of its package.
    static bool fromBytes(const QByteArray& pBytes, Manifest* pTo, QString* pError);
};

inline QString manifestFileName()
{
    return QStringLiteral(".manifest.json");
}

} // namespace tarn::packages

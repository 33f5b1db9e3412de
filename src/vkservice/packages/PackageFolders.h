#pragma once

#include "packages/PackageInfo.h"
#include "tuf/Hash.h"

#include <QtCore/QString>
#include <QtCore/QStringList>

namespace tarn::vkservice::packages {

// Where things lie. Two roots, which may be one and the same folder:
//
//   ROOT/packages/NAME/VERSION-HASH/   an unpacked package, never changed once it stands here
//   ROOT/.staging/                     what a run is unpacking
//   INSTALLDIR/generations/N/NAME      a link to the package's folder
//   INSTALLDIR/current                 a link to generations/N, the generation that counts
//
// A package's folder is named in manifests as a path relative to the install folder where it lies
// below it, and as an absolute one otherwise.
class PackageFolders
{
public:
    // pDataDir empty: data packages lie below pInstallDir too. Both as absolute paths.
    PackageFolders(const QString& pInstallDir, const QString& pDataDir);

    const QString& installDir() const { return mInstallDir; }
    const QString& root(Kind pKind) const { return pKind == Kind::Data ? mDataDir : mInstallDir; }
    // The root folders, each once.
    QStringList roots() const;

    QString packagesDir(const QString& pRoot) const;
    QString stagingDir(const QString& pRoot) const;
    // Where a package is unpacked, before it is moved to its own folder.
    QString stagingFolder(const PackageInfo& pInfo, const tuf::Hash& pHash) const;

    // The package's own folder, in the form of manifests.
    QString folder(const PackageInfo& pInfo, const tuf::Hash& pHash) const;
    QString absolute(const QString& pFolder) const;

    QString generationsDir() const;
    QString generationDir(qint64 pNumber) const;
    QString currentLink() const;

private:
    QString mInstallDir;
    QString mDataDir;
};

} // namespace tarn::vkservice::packages

#pragma once

#include "packages/PackageInfo.h"
#include "tuf/Hash.h"

#include <QtCore/QString>
#include <QtCore/QStringList>

#include <optional>

namespace tarn::packages {

// The place of one package.
struct PackagePlace
{
    QString mRoot;    // empty for the install folder
    QString mName;    // of the package
    QString mVersion; // the folder's own name, VERSION-HASH[-rN]
    int mRepair = 0;  // N

    bool operator==(const PackagePlace&) const = default;
};

// The target of a generation's link to a package folder: relative inside the install folder, so that this can
// be moved.
QString linkToFolder(const QString& pFolder);
// The folder, in manifest form, that such a link names; none if it is not such a link.
std::optional<QString> folderOfLink(const QString& pLink);

// The layout of the two root folders, which may be the same:
//
//   ROOT/.vk-root                      the marker: which installation the folder belongs to (Roots)
//   ROOT/packages/NAME/VERSION-HASH/   an unpacked package, never changed once it stands here
//   ROOT/packages/NAME/VERSION-HASH-rN/  the same package after its Nth repair
//   ROOT/.staging/NAME-VERSION-HASH[-rN]/  what a run is unpacking
//   INSTALLDIR/generations/N/NAME      a link to the package's folder
//   INSTALLDIR/current                 a link to generations/N, the generation that counts
//   INSTALLDIR/.intent.json            what a run is about to unpack, so that a killed run's leftovers are
//   known
//   INSTALLDIR/.prepared.json          what stands unpacked and waits for its installation
//
// Manifests name a package's folder by a path relative to the install folder if it is below that, and
// otherwise by an absolute path.
class PackageFolders
{
public:
    // pDataDir empty: data packages are in pInstallDir, too. Both are absolute paths.
    PackageFolders(const QString& pInstallDir, const QString& pDataDir);

    const QString& installDir() const { return mInstallDir; }
    const QString& root(Kind pKind) const { return pKind == Kind::Data ? mDataDir : mInstallDir; }
    // The root folders, each once.
    QStringList roots() const;

    QString stagingDir(const QString& pRoot) const;
    // Where a package is unpacked before it is moved to its own folder. pRepair: the N of its folder, 0 for
    // one that was never repaired; the same below.
    QString stagingFolder(const PackageInfo& pInfo, const tuf::Hash& pHash, int pRepair = 0) const;

    // The package's own folder, in manifest form.
    QString folder(const PackageInfo& pInfo, const tuf::Hash& pHash, int pRepair = 0) const;
    QString absolute(const QString& pFolder) const;
    // The place of a folder in manifest form; none for a text of another form. Its root is not necessarily
    // one of this installation.
    static std::optional<PackagePlace> place(const QString& pFolder);
    // The N of a package's folder; 0 for a text of another form.
    static int repairOf(const QString& pFolder);
    // True if that place is the one of this package in some root, repaired or not.
    static bool isPlaceOf(const QString& pFolder, const PackageInfo& pInfo, const tuf::Hash& pHash);
    static QString below(const QString& pRoot, const PackagePlace& pPlace)
    {
        return QStringLiteral("%1/packages/%2/%3").arg(pRoot, pPlace.mName, pPlace.mVersion);
    }
    // The root of a place as an absolute path.
    QString rootOf(const PackagePlace& pPlace) const
    {
        return pPlace.mRoot.isEmpty() ? mInstallDir : pPlace.mRoot;
    }

    QString generationsDir() const;
    QString generationDir(qint64 pNumber) const;
    QString currentLink() const;
    // The link before it takes the place of the current one.
    QString newLink() const;
    QString intentFile() const;
    QString preparedFile() const;

private:
    QString mInstallDir;
    QString mDataDir;
};

} // namespace tarn::packages

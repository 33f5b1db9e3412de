#include "packages/Leftovers.h"

#include <QtCore/QDir>
#include <QtCore/QFileInfo>
#include <QtCore/QSet>

#include <algorithm>

namespace tarn::vkservice::packages {

namespace {

QStringList entries(const QString& pDir)
{
    QStringList tPaths;
    const auto tFilter = QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot;
    const QStringList tNames = QDir(pDir).entryList(tFilter, QDir::Name);
    for (const QString& tName : tNames) {
        tPaths.append(pDir + QLatin1Char('/') + tName);
    }
    return tPaths;
}

QSet<QString> foldersOf(const PackageFolders& pFolders, const Manifest& pManifest)
{
    QSet<QString> tPaths;
    for (const InstalledPackage& tPackage : pManifest.mPackages) {
        tPaths.insert(pFolders.absolute(tPackage.mFolder));
    }
    return tPaths;
}

// The unneeded versions below packages/, or the package's whole folder where none is needed.
QStringList unneededPackages(const QString& pPackagesDir, const QSet<QString>& pNeeded)
{
    QStringList tPaths;
    const QStringList tPackages = entries(pPackagesDir);
    for (const QString& tPackage : tPackages) {
        QStringList tVersions = entries(tPackage);
        const qsizetype tAll = tVersions.size();
        tVersions.removeIf([&pNeeded](const QString& pPath) { return pNeeded.contains(pPath); });
        tPaths += tVersions.size() == tAll ? QStringList{tPackage} : tVersions;
    }
    return tPaths;
}

} // namespace

bool refersTo(const Manifest& pManifest, const QString& pFolder)
{
    return std::any_of(pManifest.mPackages.begin(), pManifest.mPackages.end(),
                       [&pFolder](const InstalledPackage& pPackage) { return pPackage.mFolder == pFolder; });
}

QStringList findLeftovers(const PackageFolders& pFolders, const QList<Manifest>& pKept,
                          const std::function<bool(qint64, Manifest*)>& pReadManifest)
{
    QSet<QString> tNeeded;
    QSet<QString> tKeptGenerations;
    for (const Manifest& tManifest : pKept) {
        tNeeded += foldersOf(pFolders, tManifest);
        tKeptGenerations.insert(pFolders.generationDir(tManifest.mGeneration));
    }
    QStringList tPaths;
    const QStringList tRoots = pFolders.roots();
    for (const QString& tRoot : tRoots) {
        tPaths += entries(pFolders.stagingDir(tRoot));
        tPaths += unneededPackages(pFolders.packagesDir(tRoot), tNeeded);
    }
    const QStringList tGenerations = entries(pFolders.generationsDir());
    for (const QString& tGeneration : tGenerations) {
        if (tKeptGenerations.contains(tGeneration)) {
            continue;
        }
        Manifest tManifest;
        if (pReadManifest(QFileInfo(tGeneration).fileName().toLongLong(), &tManifest)) {
            const QSet<QString> tFolders = foldersOf(pFolders, tManifest) - tNeeded;
            tPaths += QStringList(tFolders.begin(), tFolders.end());
        }
        tPaths.append(tGeneration);
    }
    return tPaths;
}

} // namespace tarn::vkservice::packages

#include "packages/PackageFolders.h"

#include <QtCore/QDir>

namespace tarn::vkservice::packages {

namespace {

constexpr int sHashDigits = 16;

QString versionFolder(const PackageInfo& pInfo, const tuf::Hash& pHash)
{
    return QStringLiteral("%1-%2").arg(pInfo.mVersion.version().toString(),
                                       QString::fromLatin1(pHash.toHex().left(sHashDigits)));
}

} // namespace

PackageFolders::PackageFolders(const QString& pInstallDir, const QString& pDataDir)
    : mInstallDir(QDir::cleanPath(pInstallDir)),
      mDataDir(pDataDir.isEmpty() ? mInstallDir : QDir::cleanPath(pDataDir))
{
}

QStringList PackageFolders::roots() const
{
    return mDataDir == mInstallDir ? QStringList{mInstallDir} : QStringList{mInstallDir, mDataDir};
}

QString PackageFolders::packagesDir(const QString& pRoot) const
{
    return pRoot + QStringLiteral("/packages");
}

QString PackageFolders::stagingDir(const QString& pRoot) const
{
    return pRoot + QStringLiteral("/.staging");
}

QString PackageFolders::stagingFolder(const PackageInfo& pInfo, const tuf::Hash& pHash) const
{
    return QStringLiteral("%1/%2-%3")
        .arg(stagingDir(root(pInfo.mKind)), pInfo.mName, versionFolder(pInfo, pHash));
}

QString PackageFolders::folder(const PackageInfo& pInfo, const tuf::Hash& pHash) const
{
    const QString tBelow = QStringLiteral("packages/%1/%2").arg(pInfo.mName, versionFolder(pInfo, pHash));
    const QString& tRoot = root(pInfo.mKind);
    return tRoot == mInstallDir ? tBelow : tRoot + QLatin1Char('/') + tBelow;
}

QString PackageFolders::absolute(const QString& pFolder) const
{
    return QDir::isAbsolutePath(pFolder) ? pFolder : mInstallDir + QLatin1Char('/') + pFolder;
}

QString PackageFolders::generationsDir() const
{
    return mInstallDir + QStringLiteral("/generations");
}

QString PackageFolders::generationDir(qint64 pNumber) const
{
    return QStringLiteral("%1/%2").arg(generationsDir()).arg(pNumber);
}

QString PackageFolders::currentLink() const
{
    return mInstallDir + QStringLiteral("/current");
}

} // namespace tarn::vkservice::packages

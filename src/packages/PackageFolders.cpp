#include "packages/PackageFolders.h"

#include <QtCore/QDir>
#include <QtCore/QFile>
#include <QtCore/QRegularExpression>

#include <unistd.h>

#include <climits>

namespace tarn::packages {

namespace {

constexpr int sHashDigits = 16;

QString versionFolder(const PackageInfo& pInfo, const tuf::Hash& pHash)
{
    return QStringLiteral("%1-%2").arg(pInfo.mVersion.version().toString(),
                                       QString::fromLatin1(pHash.toHex().left(sHashDigits)));
}

constexpr QLatin1String sOutOfGeneration("../../");

} // namespace

QString linkToFolder(const QString& pFolder)
{
    return QDir::isAbsolutePath(pFolder) ? pFolder : sOutOfGeneration + pFolder;
}

std::optional<QString> folderOfLink(const QString& pLink)
{
    char tBuffer[PATH_MAX];
    const ssize_t tLength = ::readlink(QFile::encodeName(pLink).constData(), tBuffer, sizeof tBuffer);
    QString tText = QFile::decodeName(QByteArray(tBuffer, qMax<ssize_t>(tLength, 0)));
    if (tText.startsWith(sOutOfGeneration)) {
        tText.remove(0, sOutOfGeneration.size());
    } else if (!QDir::isAbsolutePath(tText)) {
        return std::nullopt;
    }
    return PackageFolders::place(tText) ? std::optional(tText) : std::nullopt;
}

PackageFolders::PackageFolders(const QString& pInstallDir, const QString& pDataDir)
    : mInstallDir(QDir::cleanPath(pInstallDir)),
      mDataDir(pDataDir.isEmpty() ? mInstallDir : QDir::cleanPath(pDataDir))
{
}

QStringList PackageFolders::roots() const
{
    return mDataDir == mInstallDir ? QStringList{mInstallDir} : QStringList{mInstallDir, mDataDir};
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

std::optional<PackagePlace> PackageFolders::place(const QString& pFolder)
{
    static const QRegularExpression sForm(
        QStringLiteral("\\A(?:(/[^\\0]*)/)?packages/([a-z0-9][a-z0-9._+-]{0,99})/"
                       "([0-9]{1,10}(?:\\.[0-9]{1,10}){0,3}-[0-9a-f]{16})\\z"));
    const QRegularExpressionMatch tMatch = sForm.match(pFolder);
    const QString tRoot = tMatch.captured(1);
    if (!tMatch.hasMatch() || (!tRoot.isEmpty() && QDir::cleanPath(tRoot) != tRoot)) {
        return std::nullopt;
    }
    return PackagePlace{tRoot, tMatch.captured(2), tMatch.captured(3)};
}

bool PackageFolders::isPlaceOf(const QString& pFolder, const PackageInfo& pInfo, const tuf::Hash& pHash)
{
    const auto tPlace = place(pFolder);
    return tPlace && tPlace->mName == pInfo.mName && tPlace->mVersion == versionFolder(pInfo, pHash);
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

QString PackageFolders::newLink() const
{
    return mInstallDir + QStringLiteral("/.current.new");
}

QString PackageFolders::intentFile() const
{
    return mInstallDir + QStringLiteral("/.intent.json");
}

} // namespace tarn::packages

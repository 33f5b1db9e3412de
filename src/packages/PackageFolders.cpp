#include "packages/PackageFolders.h"

#include <QtCore/QDir>
#include <QtCore/QFile>
#include <QtCore/QRegularExpression>

#include <unistd.h>

#include <climits>

using namespace Qt::StringLiterals;

namespace tarn::packages {

namespace {

constexpr int sHashDigits = 16;

QString versionFolder(const PackageInfo& pInfo, const tuf::Hash& pHash, int pRepair)
{
    const QString tName = u"%1-%2"_s.arg(pInfo.mVersion.version().toString(),
                                         QString::fromLatin1(pHash.toHex().left(sHashDigits)));
    return pRepair > 0 ? u"%1-r%2"_s.arg(tName).arg(pRepair) : tName;
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
    return pRoot + u"/.staging"_s;
}

QString PackageFolders::stagingFolder(const PackageInfo& pInfo, const tuf::Hash& pHash, int pRepair) const
{
    return u"%1/%2-%3"_s.arg(stagingDir(root(pInfo.mKind)), pInfo.mName,
                             versionFolder(pInfo, pHash, pRepair));
}

QString PackageFolders::folder(const PackageInfo& pInfo, const tuf::Hash& pHash, int pRepair) const
{
    const QString tBelow = u"packages/%1/%2"_s.arg(pInfo.mName, versionFolder(pInfo, pHash, pRepair));
    const QString& tRoot = root(pInfo.mKind);
    return tRoot == mInstallDir ? tBelow : tRoot + u'/' + tBelow;
}

QString PackageFolders::absolute(const QString& pFolder) const
{
    return QDir::isAbsolutePath(pFolder) ? pFolder : mInstallDir + u'/' + pFolder;
}

std::optional<PackagePlace> PackageFolders::place(const QString& pFolder)
{
    static const QRegularExpression sForm(
        u"\\A(?:(/[^\\0]*)/)?packages/([a-z0-9][a-z0-9._+-]{0,99})/"
        "([0-9]{1,10}(?:\\.[0-9]{1,10}){0,3}-[0-9a-f]{16}(?:-r([1-9][0-9]{0,7}))?)\\z"_s);
    const QRegularExpressionMatch tMatch = sForm.match(pFolder);
    const QString tRoot = tMatch.captured(1);
    if (!tMatch.hasMatch() || (!tRoot.isEmpty() && QDir::cleanPath(tRoot) != tRoot)) {
        return std::nullopt;
    }
    return PackagePlace{tRoot, tMatch.captured(2), tMatch.captured(3), tMatch.captured(4).toInt()};
}

int PackageFolders::repairOf(const QString& pFolder)
{
    const auto tPlace = place(pFolder);
    return tPlace ? tPlace->mRepair : 0;
}

bool PackageFolders::isPlaceOf(const QString& pFolder, const PackageInfo& pInfo, const tuf::Hash& pHash)
{
    const auto tPlace = place(pFolder);
    return tPlace && tPlace->mName == pInfo.mName &&
           tPlace->mVersion == versionFolder(pInfo, pHash, tPlace->mRepair);
}

QString PackageFolders::generationsDir() const
{
    return mInstallDir + u"/generations"_s;
}

QString PackageFolders::generationDir(qint64 pNumber) const
{
    return u"%1/%2"_s.arg(generationsDir()).arg(pNumber);
}

QString PackageFolders::currentLink() const
{
    return mInstallDir + u"/current"_s;
}

QString PackageFolders::newLink() const
{
    return mInstallDir + u"/.current.new"_s;
}

QString PackageFolders::intentFile() const
{
    return mInstallDir + u"/.intent.json"_s;
}

QString PackageFolders::preparedFile() const
{
    return mInstallDir + u"/.prepared.json"_s;
}

} // namespace tarn::packages

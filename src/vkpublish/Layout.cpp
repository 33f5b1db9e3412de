#include "Layout.h"

#include <QtCore/QDir>
#include <QtCore/QFileInfo>

namespace tarn::vkpublish {

namespace {

// Links are resolved as far as the path exists.
QString realPath(const QString& pPath)
{
    QString tExisting = QDir::cleanPath(QFileInfo(pPath).absoluteFilePath());
    QString tRest;
    while (!QFileInfo::exists(tExisting) && tExisting != QLatin1String("/")) {
        tRest.prepend(QLatin1Char('/') + QFileInfo(tExisting).fileName());
        tExisting = QFileInfo(tExisting).absolutePath();
    }
    const QString tReal = QFileInfo(tExisting).canonicalFilePath();
    return QDir::cleanPath(tReal + tRest);
}

} // namespace

QString metadataFolder(const QString& pRepository)
{
    return pRepository + QLatin1String("/metadata");
}

QString targetsFolder(const QString& pRepository)
{
    return pRepository + QLatin1String("/targets");
}

QString versionedName(const QString& pRole, qint64 pVersion)
{
    return QStringLiteral("%1.%2.json").arg(pVersion).arg(pRole);
}

QString versionedPath(const QString& pRepository, const QString& pRole, qint64 pVersion)
{
    return metadataFolder(pRepository) + QLatin1Char('/') + versionedName(pRole, pVersion);
}

QString timestampPath(const QString& pRepository)
{
    return metadataFolder(pRepository) + QLatin1String("/timestamp.json");
}

tuf::Hash statedHash(const QJsonObject& pStated)
{
    const QString tHex = pStated[QLatin1String("hashes")].toObject()[QLatin1String("sha256")].toString();
    return tuf::Hash::fromHex(tuf::HashAlgorithm::Sha256, tHex).value_or(tuf::Hash());
}

QString targetPath(const QString& pRepository, const QString& pName, const QJsonObject& pTarget)
{
    return QStringLiteral("%1/%2.%3")
        .arg(targetsFolder(pRepository), QString::fromLatin1(statedHash(pTarget).toHex()), pName);
}

bool isInside(const QString& pPath, const QString& pFolder)
{
    const QString tFolder = realPath(pFolder);
    return (realPath(pPath) + QLatin1Char('/'))
        .startsWith(tFolder.endsWith(QLatin1Char('/')) ? tFolder : tFolder + QLatin1Char('/'));
}

} // namespace tarn::vkpublish

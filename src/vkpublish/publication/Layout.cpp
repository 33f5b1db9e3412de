#include "publication/Layout.h"

#include <QtCore/QDir>
#include <QtCore/QFileInfo>

using namespace Qt::StringLiterals;

namespace tarn::vkpublish {

namespace {

// Links are resolved as far as the path exists.
QString realPath(const QString& pPath)
{
    QString tExisting = QDir::cleanPath(QFileInfo(pPath).absoluteFilePath());
    QString tRest;
    while (!QFileInfo::exists(tExisting) && tExisting != "/"_L1) {
        tRest.prepend(u'/' + QFileInfo(tExisting).fileName());
        tExisting = QFileInfo(tExisting).absolutePath();
    }
    const QString tReal = QFileInfo(tExisting).canonicalFilePath();
    return QDir::cleanPath(tReal + tRest);
}

QString hashedName(const tuf::Hash& pHash, const QString& pName)
{
    return QString::fromLatin1(pHash.toHex()) + u'.' + pName;
}

} // namespace

QString metadataFolder(const QString& pRepository)
{
    return pRepository + "/metadata"_L1;
}

QString targetsFolder(const QString& pRepository)
{
    return pRepository + "/targets"_L1;
}

QString versionedName(const QString& pRole, qint64 pVersion)
{
    return u"%1.%2.json"_s.arg(pVersion).arg(pRole);
}

QString versionedPath(const QString& pRepository, const QString& pRole, qint64 pVersion)
{
    return metadataFolder(pRepository) + u'/' + versionedName(pRole, pVersion);
}

QString timestampPath(const QString& pRepository)
{
    return metadataFolder(pRepository) + "/timestamp.json"_L1;
}

tuf::Hash statedHash(const QJsonObject& pStated)
{
    const QString tHex = pStated["hashes"_L1].toObject()["sha256"_L1].toString();
    return tuf::Hash::fromHex(tuf::HashAlgorithm::Sha256, tHex).value_or(tuf::Hash());
}

QString targetPath(const QString& pRepository, const QString& pName, const QJsonObject& pTarget)
{
    return targetsFolder(pRepository) + u'/' + hashedName(statedHash(pTarget), pName);
}

QList<TargetsFile> sideFiles(const QJsonObject& pTarget)
{
    const std::optional<packages::PackageInfo> tInfo = infoOf(pTarget);
    if (!tInfo) {
        return {};
    }
    QList<TargetsFile> tFiles;
    const auto tAdd = [&](const packages::SideFile& pFile, const QString& pName) {
        tFiles.append({pName, pFile.mLength, pFile.mHash});
    };
    if (tInfo->mIndex) {
        tAdd(tInfo->mIndex->mFile, tInfo->mIndex->name());
    }
    for (const packages::DeltaFile& tDelta : tInfo->mDeltas) {
        tAdd(tDelta.mFile, tDelta.name());
    }
    for (const packages::Attachment& tAttachment : tInfo->mAttachments) {
        tAdd(tAttachment.mFile, tAttachment.name());
    }
    return tFiles;
}

QList<TargetsFile> filesOf(const QString& pName, const QJsonObject& pTarget)
{
    const tuf::Hash tHash = statedHash(pTarget);
    return QList<TargetsFile>{{hashedName(tHash, pName), pTarget["length"_L1].toInteger(), tHash}} +
           sideFiles(pTarget);
}

std::optional<packages::PackageInfo> infoOf(const QJsonObject& pTarget)
{
    const auto tInfo = packages::PackageInfo::fromJson(pTarget["custom"_L1].toObject());
    return tInfo ? std::optional(*tInfo) : std::nullopt;
}

QJsonObject withInfo(QJsonObject pTarget, const packages::PackageInfo& pInfo)
{
    pTarget.insert("custom"_L1, pInfo.toJson());
    return pTarget;
}

QJsonObject asAdded(const QJsonObject& pTarget)
{
    std::optional<packages::PackageInfo> tInfo = infoOf(pTarget);
    if (!tInfo) {
        return pTarget;
    }
    tInfo->mDeltas.clear();
    tInfo->mRelease.mPhase.reset();
    tInfo->mRelease.mHalted.reset();
    return withInfo(pTarget, *tInfo);
}

bool isInside(const QString& pPath, const QString& pFolder)
{
    const QString tFolder = realPath(pFolder);
    return (realPath(pPath) + u'/').startsWith(tFolder.endsWith(u'/') ? tFolder : tFolder + u'/');
}

} // namespace tarn::vkpublish

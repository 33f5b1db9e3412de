// The paths in a repository folder.
#pragma once

#include "packages/PackageInfo.h"
#include "tuf/Hash.h"

#include <QtCore/QJsonObject>
#include <QtCore/QList>
#include <QtCore/QString>

#include <optional>

namespace tarn::vkpublish {

QString metadataFolder(const QString& pRepository);
QString targetsFolder(const QString& pRepository);
QString versionedName(const QString& pRole, qint64 pVersion);
QString versionedPath(const QString& pRepository, const QString& pRole, qint64 pVersion);
QString timestampPath(const QString& pRepository);
// The hash from "hashes" in pStated, a file entry in metadata; Hash() if no known algorithm is listed.
tuf::Hash statedHash(const QJsonObject& pStated);
// pTarget: as in the targets metadata. Its hash is part of the file's name.
QString targetPath(const QString& pRepository, const QString& pName, const QJsonObject& pTarget);

struct TargetsFile
{
    QString mName; // in the targets folder
    qint64 mLength = 0;
    tuf::Hash mHash;
};

// The index, the deltas and the attachments that the target names.
QList<TargetsFile> sideFiles(const QJsonObject& pTarget);
// All files that the target names: the archive and those.
QList<TargetsFile> filesOf(const QString& pName, const QJsonObject& pTarget);
// What the target describes; none if it is no package.
std::optional<packages::PackageInfo> infoOf(const QJsonObject& pTarget);
QJsonObject withInfo(QJsonObject pTarget, const packages::PackageInfo& pInfo);
// The target as "add" makes it: without what comes later, deltas, phase and halt.
QJsonObject asAdded(const QJsonObject& pTarget);

// True if pPath is pFolder or inside it, also by way of links; neither needs to exist.
bool isInside(const QString& pPath, const QString& pFolder);

} // namespace tarn::vkpublish

// Where things lie in a repository folder.
#pragma once

#include "tuf/Hash.h"

#include <QtCore/QJsonObject>
#include <QtCore/QString>

namespace tarn::vkpublish {

QString metadataFolder(const QString& pRepository);
QString targetsFolder(const QString& pRepository);
QString versionedName(const QString& pRole, qint64 pVersion);
QString versionedPath(const QString& pRepository, const QString& pRole, qint64 pVersion);
QString timestampPath(const QString& pRepository);
// Of "hashes" in pStated, an object as metadata states it; Hash() where it has none of ours.
tuf::Hash statedHash(const QJsonObject& pStated);
// pTarget: as in the targets metadata. Its hash is part of the file's name.
QString targetPath(const QString& pRepository, const QString& pName, const QJsonObject& pTarget);

// Whether pPath is pFolder or lies in it, also by way of links; neither needs to exist.
bool isInside(const QString& pPath, const QString& pFolder);

} // namespace tarn::vkpublish

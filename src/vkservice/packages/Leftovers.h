#pragma once

#include "packages/Manifest.h"
#include "packages/PackageFolders.h"

#include <QtCore/QStringList>

#include <functional>

namespace tarn::vkservice::packages {

bool refersTo(const Manifest& pManifest, const QString& pFolder);

// The absolute paths that no kept generation needs, in the order to remove them: a generation that is not
// kept goes after its packages, since only its manifest knows those that lie in an earlier data folder.
QStringList findLeftovers(const PackageFolders& pFolders, const QList<Manifest>& pKept,
                          const std::function<bool(qint64, Manifest*)>& pReadManifest);

} // namespace tarn::vkservice::packages

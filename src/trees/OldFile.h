#pragma once

#include "os/Descriptor.h"
#include "tuf/Hash.h"

#include <QtCore/QByteArray>
#include <QtCore/QString>

#include <sys/stat.h>

namespace tarn::trees {

// Opens a regular file of an installed package. No link is followed below the package's folder, so nothing
// can lead out of it. Not open, with errno, if there is no such file.
os::Descriptor openInstalled(os::FileSystem& pFileSystem, const QString& pFolder, const QByteArray& pPath,
                             struct stat* pStat);

// The SHA-256 of a file from its begin; none if it cannot be read.
std::optional<tuf::Hash> hashOf(os::FileSystem& pFileSystem, int pFd);

} // namespace tarn::trees

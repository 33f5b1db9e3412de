#pragma once

#include "os/Descriptor.h"
#include "tuf/Hash.h"

#include <QtCore/QByteArray>
#include <QtCore/QString>

#include <functional>
#include <optional>
#include <sys/stat.h>

namespace tarn::os {
class AbortFlag;
}

namespace tarn::trees {

// Opens a regular file of an installed package, which belongs to this user. No link is followed below the
// package's folder, so nothing can lead out of it. Not open if there is no such file.
os::Descriptor openInstalled(os::FileSystem& pFileSystem, const QString& pFolder, const QByteArray& pPath,
                             struct stat* pStat);

// The SHA-256 of a file from its begin; none if it cannot be read, and after a stop request. pAbort may be
// null; pProgress gets the bytes since its last call.
std::optional<tuf::Hash> hashOf(os::FileSystem& pFileSystem, int pFd, const os::AbortFlag* pAbort,
                                const std::function<void(qint64)>& pProgress = nullptr);

} // namespace tarn::trees

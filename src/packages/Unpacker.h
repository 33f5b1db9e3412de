#pragma once

#include "internal/Failure.h"

#include <QtCore/QString>

#include <functional>

namespace tarn::os {
class AbortFlag;
class FileSystem;
} // namespace tarn::os

namespace tarn::packages {

struct UnpackLimits
{
    qint64 mMaxBytes = 0; // of all files together
    int mMaxEntries = 1000 * 1000;
    int mMaxDepth = 64; // folders above a file
};

// Unpacks a .tar.zst into a folder that must not exist yet. Accepts regular files, folders and symbolic links
// that stay inside; refuses an archive with anything else, or with a path that points outside. Files
// become 0444 or 0555 and keep their times, folders become 0555 but for the top one, which is 0755 to be
// moved; owner, group, set-id bits and extended attributes are ignored.
//
// No other user may have write access to the folder's parent. Nothing is synced. On failure the caller has to
// remove the folder.
class Unpacker
{
public:
    explicit Unpacker(os::FileSystem& pFileSystem, const os::AbortFlag* pAbort = nullptr)
        : mFileSystem(pFileSystem), mAbort(pAbort)
    {
    }

    // pProgress gets the bytes written since its last call.
    Failure unpack(const QString& pArchive, const QString& pFolder, const UnpackLimits& pLimits,
                   const std::function<void(qint64)>& pProgress = nullptr);

private:
    os::FileSystem& mFileSystem;
    const os::AbortFlag* mAbort;
};

} // namespace tarn::packages

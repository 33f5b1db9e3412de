#pragma once

#include "FolderScan.h"

#include "tuf/Hash.h"

#include <QtCore/QDateTime>
#include <QtCore/QString>

#include <vector>

namespace tarn::os {
class FileSystem;
}

namespace tarn::vkpublish {

struct PackResult
{
    qint64 mLength = 0; // bytes of the archive
    tuf::HashList mHashes;
    qint64 mInstalledSize = 0; // bytes of the files in it
};

// Packs the entries of a folder into a .tar.zst that only depends on their names, contents, permissions and
// times: owner and group are 0, only the owner has write permission, times are whole seconds and not later
// than pLatest. The archive is on disk when this returns; after a failure there is none.
Failure packFolder(os::FileSystem& pFileSystem, const QString& pFolder,
                   const std::vector<FolderEntry>& pEntries, const QDateTime& pLatest, int pLevel,
                   const QString& pArchive, PackResult* pTo);

} // namespace tarn::vkpublish

#pragma once

#include "packing/FolderScan.h"

#include "trees/IndexEntry.h"
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
    std::vector<trees::Frame> mFrames;
    std::vector<trees::IndexEntry> mEntries; // in the order of the archive
};

struct PackOptions
{
    QDateTime mLatest; // no entry gets a later time
    int mLevel = 19;
    int mThreads = 1;
};

// Packs the entries of a folder, as scanFolder() lists them, into a .tar.zst that only depends on them (see
// TarStream) and on the level. It is made of frames (see FrameCutter and FrameSize), each of which can be
// unpacked by itself. The archive is on disk when this returns; after a failure there is none.
//
// Memory: with frames of N MiB, each thread takes 90 MiB (at level 19) and up to 2 N MiB. The frames of most
// packages have 4 to 16 MiB, and none has more than 64.
Failure packFolder(os::FileSystem& pFileSystem, const QString& pFolder,
                   const std::vector<FolderEntry>& pEntries, const PackOptions& pOptions,
                   const QString& pArchive, PackResult* pTo);

} // namespace tarn::vkpublish

#pragma once

#include "internal/Failure.h"

#include <QtCore/QByteArray>
#include <QtCore/QString>

#include <sys/stat.h>

#include <vector>

namespace tarn::vkpublish {

struct FolderEntry
{
    QByteArray mPath; // relative to the folder that was scanned
    struct stat mStat
    {
    };
    QByteArray mLinkTarget; // of a symbolic link
};

// Lists what is in a folder, each folder before its content and sorted by bytes, so that the same folder
// always makes the same package. A failure for what can't be in a package: special files, links
// that lead out of the folder, set-user-ID and set-group-ID files, names that aren't UTF-8.
Failure scanFolder(const QString& pFolder, std::vector<FolderEntry>* pTo);

} // namespace tarn::vkpublish

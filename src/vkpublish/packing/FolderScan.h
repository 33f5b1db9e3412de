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

// Lists the content of a folder, each folder before its content and sorted by bytes, so that the same folder
// always gives the same package. A failure for content that a package cannot have: special files, links that
// point outside the folder, set-user-ID and set-group-ID files, names that are not UTF-8.
Failure scanFolder(const QString& pFolder, std::vector<FolderEntry>* pTo);

} // namespace tarn::vkpublish

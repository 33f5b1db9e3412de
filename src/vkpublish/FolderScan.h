#pragma once

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
// always makes the same package. False with a reason for what can't be in a package: special files, links
// that lead out of the folder, set-user-ID and set-group-ID files, names that aren't UTF-8.
bool scanFolder(const QString& pFolder, std::vector<FolderEntry>* pTo, QString* pError);

} // namespace tarn::vkpublish

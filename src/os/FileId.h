#pragma once

#include <QtCore/QFile>
#include <QtCore/QString>

#include <sys/stat.h>

#include <compare>
#include <optional>

namespace tarn::os {

// Identifies a file independently of its path. Ordered by the inode first.
struct FileId
{
    ino_t mInode = 0;
    dev_t mDevice = 0;

    auto operator<=>(const FileId&) const = default;
};

// Of the file or folder at the path, following links; none if there is nothing.
inline std::optional<FileId> fileIdAt(const QByteArray& pPath)
{
    struct stat tStat;
    return ::stat(pPath.constData(), &tStat) == 0 ? std::optional(FileId{tStat.st_ino, tStat.st_dev})
                                                  : std::nullopt;
}

} // namespace tarn::os

#pragma once

#include "internal/Failure.h"

#include <QtCore/QByteArray>
#include <QtCore/QString>

namespace tarn::os {
class Descriptor;
class FileSystem;
} // namespace tarn::os

namespace tarn::vkservice::metrics {

// The file in a collector's folder. An administrator names it, and the service may be root: so the folder is
// no link, belongs to root or the service's user, and no other user may write to it; what has the file's name
// is replaced, not followed or written to.
class MetricsFile
{
public:
    MetricsFile(os::FileSystem& pFileSystem, const QString& pPath);

    // Replaces the file by one that everybody may read. It is not forced to the disk: a restart writes it
    // again, and nobody has to wake a disk for it.
    Failure write(const QByteArray& pText) const;
    Failure remove() const;

private:
    Failure openFolder(os::Descriptor* pTo) const;
    Failure writeNew(const os::Descriptor& pFolder, const QByteArray& pText) const;

    os::FileSystem& mFileSystem;
    QString mPath;
    QString mFolder;
    QByteArray mName;
};

} // namespace tarn::vkservice::metrics

#pragma once

#include <QtCore/QDateTime>
#include <QtCore/QString>

#include <ctime>

namespace tarn::os {
class FileSystem;
}

namespace tarn::vkservice::update {

// When the trusted metadata of the last run expires. Reads it again only if a file of it was replaced.
class TrustExpiry
{
public:
    explicit TrustExpiry(os::FileSystem& pFileSystem) : mFileSystem(pFileSystem) {}

    // Invalid if that is not known: before the first run, or if a file can't be read.
    QDateTime of(const QString& pStateDir);

private:
    os::FileSystem& mFileSystem;
    QString mPath;
    timespec mChanged = {}; // the folder, when it was read
    QDateTime mExpiry;
};

} // namespace tarn::vkservice::update

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

// A regular file of an installed package, which belongs to this user.
struct OldFile
{
    os::Descriptor mFile; // not open if there is no such file
    struct stat mStat = {};
    std::optional<tuf::Hash> mHash; // if it was read
};

// Opens files of installed packages. No link is followed below a package's folder, so nothing can lead out of
// it. The folder of the last file stays open, because its neighbours mostly follow. For one thread.
class OldFiles
{
public:
    explicit OldFiles(os::FileSystem& pFileSystem) : mFileSystem(pFileSystem) {}

    OldFile open(const QString& pPackage, const QByteArray& pPath);

private:
    void enter(const QString& pPackage, const QByteArray& pBelow);

    os::FileSystem& mFileSystem;
    QString mPackage;
    QByteArray mBelow;
    os::Descriptor mFolder;
};

// The SHA-256 of a file from its begin; none if it cannot be read, and after a stop request. pAbort may be
// null; pProgress gets the bytes since its last call.
std::optional<tuf::Hash> hashOf(os::FileSystem& pFileSystem, int pFd, const os::AbortFlag* pAbort,
                                const std::function<void(qint64)>& pProgress = nullptr);

} // namespace tarn::trees

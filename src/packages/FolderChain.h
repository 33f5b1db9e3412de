#pragma once

#include "internal/Failure.h"
#include "os/Descriptor.h"

#include <QtCore/QByteArrayList>
#include <QtCore/QString>

#include <vector>

namespace tarn::packages {

// The open folders from a root down to the current one. Each is opened from the one above it without
// following links, so an unpacked link can't redirect a write. Archives are ordered by folder, so few are
// opened twice.
class FolderChain
{
public:
    explicit FolderChain(os::FileSystem& pFileSystem) : mFileSystem(pFileSystem) {}

    // Creates the root folder, which must not exist.
    Failure start(const QString& pRoot);
    // The descriptor of the folder below the root, created if missing; valid until the next call. -1 and
    // errno on failure.
    int enter(const QByteArrayList& pNames);
    // Makes the folders below the root read-only that this object has created. -1 and errno on failure.
    int finish();

private:
    int openFolder(int pParentFd, const QByteArray& pName);

    os::FileSystem& mFileSystem;
    QByteArrayList mNames;
    QList<QByteArrayList> mMade;
    std::vector<os::Descriptor> mFolders; // the root first, then one for each name
};

} // namespace tarn::packages

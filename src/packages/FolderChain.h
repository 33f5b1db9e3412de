#pragma once

#include "internal/Failure.h"
#include "os/Descriptor.h"

#include <QtCore/QByteArrayList>
#include <QtCore/QString>

#include <vector>

namespace tarn::packages {

// The open folders from a root down to the one being filled. Each is opened from the one above it without
// following links, so no link that was unpacked before can redirect what is written; archives go folder by
// folder, so few of them are opened twice.
class FolderChain
{
public:
    explicit FolderChain(os::FileSystem& pFileSystem) : mFileSystem(pFileSystem) {}

    // Makes the root folder, which must not exist.
    Failure start(const QString& pRoot);
    // The descriptor of the folder below the root, made where it is missing; valid until the next call.
    // -1 and errno on failure.
    int enter(const QByteArrayList& pNames);

private:
    int openFolder(int pParentFd, const QByteArray& pName);

    os::FileSystem& mFileSystem;
    QByteArrayList mNames;
    std::vector<os::Descriptor> mFolders; // the root first, then one for each name
};

} // namespace tarn::packages

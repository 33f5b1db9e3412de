#pragma once

#include "internal/Failure.h"

#include <QtCore/QString>

namespace tarn::vkpublish {

// What to do while another vkpublish works with the same keys, or on the same repository.
enum class Patience
{
    Wait, // as long as it takes, after a word about it on standard error
    Refuse,
};

// Keeps other publishers out of a folder until it is destroyed. Whoever needs several takes that of the keys
// first.
class FolderLock
{
public:
    FolderLock() = default;
    ~FolderLock();
    FolderLock(const FolderLock&) = delete;
    FolderLock& operator=(const FolderLock&) = delete;

    // Of keys: by a file, which nobody else can open.
    Failure takeKeys(const QString& pFolder, Patience pPatience);
    // The name of that file.
    static QString fileName();
    // Of a repository, for all keys and users: the folder of its metadata itself is locked, so that no file
    // is copied with it. Does nothing on a network file system that can't do that.
    Failure takeRepository(const QString& pMetadata, Patience pPatience);
    bool isTaken() const { return mFd >= 0; }

private:
    // pUse: what another vkpublish does.
    Failure wait(const QString& pFolder, const QString& pUse, Patience pPatience) const;

    int mFd = -1;
};

} // namespace tarn::vkpublish

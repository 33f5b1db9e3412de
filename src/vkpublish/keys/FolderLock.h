#pragma once

#include "internal/Failure.h"

#include <QtCore/QString>

namespace tarn::vkpublish {

// What to do while another vkpublish works with the same keys.
enum class Patience
{
    Wait, // as long as it takes, after a word about it on standard error
    Refuse,
};

// Keeps other publishers out of a key folder until it is destroyed.
class FolderLock
{
public:
    FolderLock() = default;
    ~FolderLock();
    FolderLock(const FolderLock&) = delete;
    FolderLock& operator=(const FolderLock&) = delete;

    Failure take(const QString& pFolder, Patience pPatience);
    // The name of the file that is locked.
    static QString fileName();

private:
    int mFd = -1;
};

} // namespace tarn::vkpublish

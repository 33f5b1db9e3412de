#pragma once

#include "keys/KeyFile.h"

#include "internal/Failure.h"

#include <QtCore/QDateTime>
#include <QtCore/QString>

namespace tarn::os {
class FileSystem;
}

namespace tarn::vkpublish {

class KeyFolder;

struct NewRepository
{
    QString mPath;
    KeyOrder mKeys;
    // How many keys the roles root and targets get, and how many of them must sign.
    int mCount = 1;
    int mThreshold = 1;
    QDateTime mRootExpires;
};

// Makes the keys, the folders and the first root. What an interrupted run has left is made anew; all else
// that is there is a failure, and stays.
Failure makeRepository(os::FileSystem& pFileSystem, const NewRepository& pNew, KeyFolder* pKeys);

} // namespace tarn::vkpublish

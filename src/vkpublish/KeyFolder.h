#pragma once

#include "Record.h"

#include "internal/Failure.h"
#include "tuf/SigningKey.h"

#include <QtCore/QString>

namespace tarn::os {
class FileSystem;
}

namespace tarn::vkpublish {

// The publisher's private folder: the keys, a file each, and the record. Only its owner may enter it.
class KeyFolder
{
public:
    KeyFolder(os::FileSystem& pFileSystem, const QString& pPath);
    ~KeyFolder(); // lets the lock go
    KeyFolder(const KeyFolder&) = delete;
    KeyFolder& operator=(const KeyFolder&) = delete;

    const QString& path() const { return mPath; }

    // Makes the folder, which must be new or empty, and locks it.
    Failure create();
    // Locks the folder against a second publisher and reads the record.
    Failure open();
    // Only reads the record.
    Failure openForReading();

    // To be written with save().
    Record mRecord;
    Failure save();

    Result<tuf::SigningKey> readKey(const QString& pRole) const;
    // The keys that a role's files get a signature of: its own first, then those that retire. One whose file
    // is gone does not sign any more.
    Result<QList<tuf::SigningKey>> readSigners(const QString& pRole) const;
    // Has mRecord name this root, and the keys in the folder that the root gives to the roles. Those that it
    // replaces retire.
    Failure takeRoot(const QByteArray& pRoot);
    // Writes the key into a file of its own and has mRecord name it.
    Failure addKey(const QString& pRole, const tuf::SigningKey& pKey);

private:
    QString filePath(const QString& pName) const;
    Failure checkPrivate(const QString& pPath) const;
    Failure lock();
    Result<tuf::SigningKey> readKeyFile(const QString& pName) const;
    QString findKeyFile(const QString& pRole, const QStringList& pIds) const;

    os::FileSystem& mFileSystem;
    QString mPath;
    int mLockFd = -1;
};

} // namespace tarn::vkpublish

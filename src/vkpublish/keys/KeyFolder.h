#pragma once

#include "record/Record.h"

#include "internal/Failure.h"
#include "tuf/SigningKey.h"

#include <QtCore/QString>

namespace tarn::os {
class FileSystem;
}

namespace tarn::vkpublish {

// The publisher's private folder: one file for each key, and the record. Only its owner has access.
class KeyFolder
{
public:
    KeyFolder(os::FileSystem& pFileSystem, const QString& pPath);
    ~KeyFolder(); // releases the lock
    KeyFolder(const KeyFolder&) = delete;
    KeyFolder& operator=(const KeyFolder&) = delete;

    const QString& path() const { return mPath; }

    // Creates the folder, which must be new or empty, and locks it.
    Failure create();
    // Locks the folder against a second publisher and reads the record.
    Failure open();
    // Only reads the record.
    Failure openForReading();
    // Locks the folder, which must have no record.
    Failure openWithoutRecord();

    // save() writes it.
    Record mRecord;
    Failure save();

    Result<tuf::SigningKey> readKey(const QString& pRole) const;
    // The keys that sign a role's files: its current key first, then its retiring keys. A retiring key whose
    // file is missing does not sign any longer.
    Result<QList<tuf::SigningKey>> readSigners(const QString& pRole) const;
    // Sets this root in mRecord, and the key files in the folder that match the root's roles. The replaced
    // keys retire. The folder must have the keys of pNeeded.
    Failure takeRoot(const QByteArray& pRoot, const QStringList& pNeeded);
    Failure takeRoot(const QByteArray& pRoot);
    // A file in the folder with one of these keys for a role; empty if there is none.
    QString findKeyFile(const QString& pRole, const QStringList& pIds) const;
    // Writes the key to its own file and sets the file name in mRecord.
    Failure addKey(const QString& pRole, const tuf::SigningKey& pKey);

private:
    QString filePath(const QString& pName) const;
    Failure checkPrivate(const QString& pPath) const;
    Failure lock();
    Result<tuf::SigningKey> readKeyFile(const QString& pName) const;

    os::FileSystem& mFileSystem;
    QString mPath;
    int mLockFd = -1;
};

} // namespace tarn::vkpublish

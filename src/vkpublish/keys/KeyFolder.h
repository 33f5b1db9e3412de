#pragma once

#include "keys/KeyFile.h"
#include "keys/Passphrases.h"
#include "record/Record.h"

#include "internal/Failure.h"

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

    // save() writes it.
    Record mRecord;
    Failure save();

    Result<Signer> readKey(const QString& pRole) const;
    // The keys that sign a role's files: its current key first, then its retiring keys. A retiring key whose
    // file is missing does not sign any longer.
    Result<QList<Signer>> readSigners(const QString& pRole) const;
    // Sets this root in mRecord, and the key files in the folder that match the root's roles. The replaced
    // keys retire.
    Failure takeRoot(const QByteArray& pRoot);
    // Writes the key to its own file and sets the file name in mRecord.
    Failure addKey(const QString& pRole, const KeyFile& pKey);

    // What opens the keys, and encrypts new ones.
    Passphrases& passphrases() const { return mPassphrases; }

private:
    QString filePath(const QString& pName) const;
    Failure checkPrivate(const QString& pPath) const;
    Failure lock();
    Result<QByteArray> readPrivate(const QString& pPath) const;
    // A command for the key beside its file signs in its place.
    Result<Signer> readKeyFile(const QString& pName) const;
    Result<Signer> openKeyFile(const QString& pName) const;
    QString findKeyFile(const QString& pRole, const QStringList& pIds) const;

    os::FileSystem& mFileSystem;
    QString mPath;
    int mLockFd = -1;
    mutable Passphrases mPassphrases;
    mutable QMap<QString, Signer> mOpened; // file name -> its key: to open one takes a while
};

} // namespace tarn::vkpublish

#pragma once

#include "keys/FolderLock.h"
#include "keys/Signer.h"
#include "record/PackageLists.h"
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
    KeyFolder(os::FileSystem& pFileSystem, const QString& pPath, Patience pPatience = Patience::Wait);

    const QString& path() const { return mPath; }

    // Creates the folder, which must be new or empty, and locks it.
    Failure create();
    // Locks the folder against other publishers, and waits for them if need be. Then reads the record.
    Failure open();
    // Only reads the record: as it was before or after what another publisher changes just now.
    Failure openForReading();

    // save() writes it.
    Record mRecord;
    Failure save();

    // Like open(), but the record has only the packages of this archive's name, and save() must not be
    // called: it takes as long for the first package as for the last of thousands.
    Failure openPackage(const QString& pArchive);
    // Writes what mRecord.mTargets has of this name, and nothing else.
    Failure savePackage(const QString& pArchive);

    Result<Signer> readKey(const QString& pRole) const;
    // The keys that sign a role's files: its current key first, then its retiring keys. A retiring key whose
    // file is missing does not sign any longer.
    Result<QList<Signer>> readSigners(const QString& pRole) const;
    // Sets this root in mRecord, and the key files in the folder that match the root's roles. The replaced
    // keys retire.
    Failure takeRoot(const QByteArray& pRoot);
    // Writes the key to its own file and sets the file name in mRecord.
    Failure addKey(const QString& pRole, const tuf::SigningKey& pKey);

private:
    QString filePath(const QString& pName) const;
    Failure checkPrivate(const QString& pPath) const;
    Failure checkEmpty() const;
    Failure openLocked();
    Failure read(const QString& pOnly);
    Failure readOnce(const QString& pOnly, QByteArray* pText);
    Result<Signer> readKeyFile(const QString& pName) const;
    QString findKeyFile(const QString& pRole, const QStringList& pIds) const;

    os::FileSystem& mFileSystem;
    QString mPath;
    PackageLists mLists;
    Packages mSaved; // as they are on the disk
    bool mMaySave = true; // false: mRecord is not whole, or a save() has failed
    Patience mPatience;
    FolderLock mLock;
};

} // namespace tarn::vkpublish

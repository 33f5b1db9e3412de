#pragma once

#include "keys/FolderLock.h"
#include "keys/KeyFile.h"
#include "keys/Passphrases.h"
#include "record/Beginning.h"
#include "record/Draft.h"
#include "record/PackageLists.h"
#include "record/Record.h"

#include "internal/Failure.h"

#include <QtCore/QDateTime>
#include <QtCore/QString>
#include <QtCore/QStringList>

namespace tarn::os {
class FileSystem;
}

namespace tarn::vkpublish {

class RootDocument;

// The publisher's private folder: one file for each key, and the record. Only its owner has access.
class KeyFolder
{
public:
    KeyFolder(os::FileSystem& pFileSystem, const QString& pPath, Patience pPatience = Patience::Wait);

    const QString& path() const { return mPath; }

    // A failure if there is something in the folder that was not begun.
    Failure checkEmpty() const;
    // Creates the folder, which must be new or empty in this sense, and locks it.
    Failure create();
    // What a new repository begins with, until the first save(). What was begun before is removed.
    Failure begin(const Beginning& pNew);
    std::optional<Beginning> begun() const;
    // Locks the folder against other publishers, and waits for them if need be. Then reads the record.
    Failure open();
    // Only reads the record: as it was before or after what another publisher changes just now.
    Failure openForReading();
    // Locks the folder, which must have no record.
    Failure openWithoutRecord();
    // Locks the repository, whose metadata is in this folder, too, as long as this object lives: against
    // publishers with other keys, and mirrors. Everything that writes to it begins with this.
    Failure lockRepository(const QString& pMetadata);

    // save() writes it.
    Record mRecord;
    Failure save();

    // Like open(), but the record has only the archives whose names begin with this, and save() must not be
    // called.
    Failure openPackages(const QString& pPrefix);
    // Writes what mRecord.mTargets has of this name, one line however many packages there are.
    Failure savePackage(const QString& pArchive);

    // What waits for signatures. Each of these is done at once.
    Result<std::optional<Draft>> draft(const QString& pRole) const
    {
        return readDraft(mFileSystem, mPath, pRole);
    }
    Failure saveDraft(const Draft& pDraft) { return writeDraft(mFileSystem, mPath, pDraft); }
    Failure dropDraft(const QString& pRole) { return removeDraft(mFileSystem, mPath, pRole); }

    // Whether this folder can sign with the key.
    bool isHere(const QString& pId) const;
    QStringList here(QStringList pIds) const;
    // Whether nobody waits for the key's signature: it was given up, or it was replaced and its file deleted.
    // A key in use whose file is not here is elsewhere.
    bool isGone(const QString& pId) const;
    // Whether enough keys of the role are here.
    bool canSign(const RootDocument& pRoot, const QString& pRole) const;
    // From files in the folder, which needs no record for it; in their order. A command for a key beside its
    // file signs in its place.
    Result<QList<Signer>> openKeyFiles(const QStringList& pNames) const;
    // Of those of these keys that are here.
    Result<QList<Signer>> readSigners(const QStringList& pIds) const;
    // Of the keys of a role that a record of format 1 has replaced, as long as their files are here.
    Result<QList<Signer>> readRetiringKeys(const QString& pRole) const;
    // Sets this root in mRecord, and finds its keys in the folder. The replaced root retires.
    Failure takeRoot(const QByteArray& pRoot);
    // Begins mRecord with this root and those that it has replaced, and finds their keys in the folder.
    Failure beginWith(const QByteArray& pRoot, const QList<RetiringRoot>& pReplaced);
    // Sets this root in mRecord. pUntil: when no machine can need the replaced one any longer.
    Failure replaceRoot(const QByteArray& pRoot, const QDateTime& pUntil);
    // The file of a key.
    static QString nameOf(const QString& pRole, const KeyFile& pKey);
    // Writes the key to its own file and sets it in mRecord.
    Failure addKey(const QString& pRole, const KeyFile& pKey);

    // What opens the keys, and encrypts new ones.
    Passphrases& passphrases() const { return mPassphrases; }

private:
    QString filePath(const QString& pName) const;
    QString commandPath(const QString& pName) const;
    Failure checkPrivate(const QString& pPath) const;
    Failure openLocked();
    Failure read(const QString& pPrefix);
    Failure readOnce(const QString& pPrefix, QByteArray* pText);
    void findKeys(const RootDocument& pRoot);
    void dropMissingKeys(const RootDocument& pOld, const RootDocument& pNew);
    Failure checkKeys(const RootDocument& pRoot) const;
    Result<QByteArray> readPrivate(const QString& pPath) const;
    Failure openAll(QStringList pNames) const;

    os::FileSystem& mFileSystem;
    QString mPath;
    PackageLists mLists;
    Packages mSaved;      // as they are on the disk
    bool mMaySave = true; // false: mRecord is not whole, or a save() has failed
    Patience mPatience;
    FolderLock mLock;
    FolderLock mRepositoryLock;
    mutable Passphrases mPassphrases;
    mutable QMap<QString, Signer> mOpened; // file name -> its key: to open one takes a while
};

} // namespace tarn::vkpublish

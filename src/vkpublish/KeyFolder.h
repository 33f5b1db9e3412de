#pragma once

#include "Record.h"

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

    // All of these: false with a sentence for the user in *pError.

    // Makes the folder, which must be new or empty, and locks it.
    bool create(QString* pError);
    // Locks the folder against a second publisher and reads the record.
    bool open(QString* pError);
    // Only reads the record.
    bool openForReading(QString* pError);

    // To be written with save().
    Record mRecord;
    bool save(QString* pError);

    bool readKey(const QString& pRole, std::optional<tuf::SigningKey>* pTo, QString* pError);
    // The keys that a role's files get a signature of: its own first, then those that retire. One whose file
    // is gone does not sign any more.
    bool readSigners(const QString& pRole, QList<tuf::SigningKey>* pTo, QString* pError);
    // Has mRecord name this root, and the keys in the folder that the root gives to the roles. Those that it
    // replaces retire.
    bool takeRoot(const QByteArray& pRoot, QString* pError);
    // Writes the key into a file of its own and has mRecord name it.
    bool addKey(const QString& pRole, const tuf::SigningKey& pKey, QString* pError);

private:
    QString filePath(const QString& pName) const;
    bool checkPrivate(const QString& pPath, QString* pError) const;
    bool lock(QString* pError);
    bool readKeyFile(const QString& pName, std::optional<tuf::SigningKey>* pTo, QString* pError);
    QString findKeyFile(const QString& pRole, const QStringList& pIds);

    os::FileSystem& mFileSystem;
    QString mPath;
    int mLockFd = -1;
};

} // namespace tarn::vkpublish

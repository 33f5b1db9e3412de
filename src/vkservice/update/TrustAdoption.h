#pragma once

#include "internal/Failure.h"

#include <QtCore/QByteArray>
#include <QtCore/QString>
#include <QtCore/QStringList>

namespace tarn::os {
class FileSystem;
}

namespace tarn::vkservice::update {

// The folder "trust" of version 1.0.0: trusted metadata for each address, in a folder named by 32 hexadecimal
// digits, with a note that names the root file from which this trust started.
class TrustAdoption
{
public:
    TrustAdoption(os::FileSystem& pFileSystem, const QString& pFolder);

    // The SHA-256 in hex of the root file noted for this address; empty if there is no note.
    QByteArray rootHash(const QString& pUri) const;
    // Creates the folder pTo from what was trusted by this root file: the newest root, and the newest file of
    // each other role with it. Creates nothing if there is no such root.
    Failure adopt(const QByteArray& pRootHash, const QString& pTo) const;
    // Removes all leftovers of that version. What cannot be removed stays for the next time.
    void remove() const;

private:
    Result<QString> readNote(const QString& pFolder) const;

    os::FileSystem& mFileSystem;
    QString mFolder;
    QStringList mOld; // the names of its folders
};

} // namespace tarn::vkservice::update

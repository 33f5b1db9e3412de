#pragma once

#include "internal/Failure.h"

#include <QtCore/QByteArray>
#include <QtCore/QString>
#include <QtCore/QStringList>

namespace tarn::os {
class FileSystem;
}

namespace tarn::vkservice::update {

// What version 1.0.0 left in the folder "trust": trusted metadata for each address, in a folder named by 32
// hexadecimal digits, and beside it a note that names the root file that this trust began with.
class TrustAdoption
{
public:
    TrustAdoption(os::FileSystem& pFileSystem, const QString& pFolder);

    // The root file by its SHA-256 in hex, as noted for this address; empty if nothing is noted.
    QByteArray rootHash(const QString& pUri) const;
    // Makes the folder pTo of what was trusted by this root file: the newest root, and the newest file of
    // each other role beside it. Makes none if there is no such root.
    Failure adopt(const QByteArray& pRootHash, const QString& pTo) const;
    // Removes all that is left of that version. What can't be removed stays for the next time.
    void remove() const;

private:
    Result<QString> readNote(const QString& pFolder) const;

    os::FileSystem& mFileSystem;
    QString mFolder;
    QStringList mOld; // the names of its folders
};

} // namespace tarn::vkservice::update

#pragma once

#include "internal/Failure.h"

#include <QtCore/QByteArray>
#include <QtCore/QString>

namespace tarn::os {
class FileSystem;
}

namespace tarn::tuf {

// The folder of one repository's trusted metadata: ROLE.json for each role, its name percent-encoded.
// ROLE.refused beside it was correctly signed but expired.
class MetadataStore
{
public:
    MetadataStore(os::FileSystem& pFileSystem, const QString& pFolder);

    enum class Copy
    {
        Trusted,
        Refused,
    };

    bool has(const QString& pRole) const;
    // Failure::Kind::NotFound if the role has no file or one that is too long, Failure::Kind::Damaged if the
    // disk fails.
    Result<QByteArray> load(const QString& pRole, qint64 pMaxLength, Copy pCopy = Copy::Trusted);
    Failure save(const QString& pRole, const QByteArray& pFile, Copy pCopy = Copy::Trusted);
    // Both copies. Fine if there is none.
    Failure remove(const QString& pRole);

    // Creates the folder, or removes all metadata from it.
    Failure clear();

private:
    QString pathOf(const QString& pRole, Copy pCopy) const;
    Failure removeFile(const QString& pPath);

    os::FileSystem& mFileSystem;
    QString mFolder;
};

} // namespace tarn::tuf
